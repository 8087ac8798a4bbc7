// SPDX-License-Identifier: MIT
/// Allocating the overflow pages of a hash file.
#ifndef CATALOG_HASH_PAGE_ALLOCATOR_H
#define CATALOG_HASH_PAGE_ALLOCATOR_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "catalog/os/file.h"
#include "hashdb/format.h"

namespace rdm::catalog {

/// NoPage is thrown if a file has no overflow address left.
struct NoPage {};

/// PageAllocator allocates overflow pages: free ones first, then new ones at the end of the file. It maintains the
/// bitmaps and the counts in the header. A bit is set if its page is in use or does not exist yet.
class PageAllocator {
 public:
  /// PageAllocator reads the bitmaps. It changes the header. Header and file must outlive it. Throws a Failure if a
  /// bitmap cannot be read.
  PageAllocator(hashdb::Header &header, const File &file);

  /// take allocates a page and returns its overflow address. Throws NoPage.
  uint16_t take();
  /// release makes a page free.
  void release(uint16_t address);
  /// is_free returns true if the page of a bit is free. Bits are counted from 0 over all bitmaps.
  bool is_free(uint32_t bit) const { return free_.contains(bit); }
  /// ends_with_last_page returns true if the bits of all pages that do not exist yet are set. The hash library would
  /// use a page whose bit is clear without counting it.
  bool ends_with_last_page() const;
  /// address_of returns the overflow address of the page of a bit.
  uint16_t address_of(uint32_t bit) const;
  /// write writes the bitmaps to the file and sets last_freed in the header. Throws a SystemFailure.
  void write();

 private:
  uint32_t bits_per_map() const { return header_.page_size * 8; }
  uint32_t bit_of(uint16_t address) const;
  bool is_set(uint32_t bit) const;
  void set(uint32_t bit, bool used);
  uint32_t extend();

  hashdb::Header &header_;
  const File &file_;
  std::vector<std::string> maps_;
  std::set<uint32_t> free_;  // bits
};

}  // namespace rdm::catalog

#endif
