// SPDX-License-Identifier: MIT
/// What each page of a hash file is used for.
#ifndef CATALOG_HASH_PAGE_MAP_H
#define CATALOG_HASH_PAGE_MAP_H

#include <cstdint>
#include <vector>

#include "catalog/hash/table.h"

namespace rdm::catalog {

/// PageMap knows the pages that buckets, their records and the bitmaps take. The table must outlive it.
class PageMap {
 public:
  /// Reads the whole file, and calls `visit`, which may be empty, with each record. Throws a Failure when the file is
  /// damaged.
  explicit PageMap(const HashTable &table, const HashTable::Visitor &visit = {});

  /// is_shared says whether a page has two uses, so that writing one spoils the other.
  bool is_shared() const { return shared_; }
  /// records returns how many records the file holds.
  uint32_t records() const { return records_; }
  /// is_marked says whether the bitmaps mark the overflow pages that are in use, and no others.
  bool is_marked() const;

 private:
  void take(uint64_t page);

  const HashTable &table_;
  std::vector<bool> used_;  // by number of the page
  bool shared_ = false;
  uint32_t records_ = 0;
};

}  // namespace rdm::catalog

#endif
