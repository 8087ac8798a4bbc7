// SPDX-License-Identifier: MIT
/// The pages of a hash file that are in use.
#ifndef CATALOG_HASH_PAGE_MAP_H
#define CATALOG_HASH_PAGE_MAP_H

#include <cstdint>
#include <vector>

#include "catalog/hash/table.h"

namespace rdm::catalog {

/// PageMap finds the pages that the header, the buckets and the bitmaps use. The table must outlive it.
class PageMap {
 public:
  /// PageMap reads the whole file and calls `visit`, which may be empty, with each record. Throws a Failure at damage.
  explicit PageMap(const HashTable &table, const HashTable::Visitor &visit = {});

  /// is_shared returns true if a page has two uses: writing it for one would destroy the other.
  bool is_shared() const { return shared_; }
  /// records returns the number of records that were read.
  uint32_t records() const { return records_; }
  /// bitmaps_match returns true if the bitmaps mark exactly the overflow pages that are in use. Throws a Failure if a
  /// bitmap cannot be read.
  bool bitmaps_match() const;

 private:
  void take(uint64_t page);

  const HashTable &table_;
  std::vector<bool> used_;  // by number of the page
  bool shared_ = false;
  uint32_t records_ = 0;
};

}  // namespace rdm::catalog

#endif
