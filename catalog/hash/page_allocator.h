// SPDX-License-Identifier: MIT
/// The overflow pages of a hash file that are free.
#ifndef CATALOG_HASH_PAGE_ALLOCATOR_H
#define CATALOG_HASH_PAGE_ALLOCATOR_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "catalog/os/file.h"
#include "hashdb/format.h"

namespace rdm::catalog {

/// NoPage says that a file has no overflow page left for what is to be stored.
struct NoPage {};

/// PageAllocator hands out overflow pages: free ones first, then new ones at the end of the file. It keeps the file's
/// bitmaps, in which the bits of pages in use are set and those of pages that are not there yet, and the header's
/// counts.
class PageAllocator {
 public:
  /// Reads the bitmaps. The header must outlive the allocator, which changes it.
  PageAllocator(hashdb::Header &header, const File &file);

  /// take returns the address of a page that now is in use; throws NoPage.
  uint16_t take();
  /// release makes a page free.
  void release(uint16_t address);
  bool is_free(uint32_t bit) const { return free_.contains(bit); }
  /// ends_with_last_page says whether no page looks free that is not there yet: the library would use it uncounted.
  bool ends_with_last_page() const;
  /// address_of returns the address of the page that a bit of the bitmaps stands for.
  uint16_t address_of(uint32_t bit) const;
  /// write brings the bitmaps into the file and the header up to date with them.
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
