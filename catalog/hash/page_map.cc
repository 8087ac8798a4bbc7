// SPDX-License-Identifier: MIT
#include "catalog/hash/page_map.h"

#include "catalog/hash/page_allocator.h"

namespace rdm::catalog {

PageMap::PageMap(const HashTable &table, const HashTable::Visitor &visit) : table_(table) {
  const hashdb::Header &header = table.header();
  used_.resize(static_cast<size_t>(table.source().size >> header.page_shift) + 1);
  for (uint32_t page = 0; page < header.header_pages; ++page) take(page);
  for (uint32_t bucket = 0, end = table.buckets(); bucket < end; ++bucket) take(bucket_page(header, bucket));
  for (const uint16_t address : header.bitmaps)
    if (address != 0) take(overflow_page(header, address));
  const auto count = [&](std::string_view key, std::string_view value) {
    ++records_;
    if (visit) visit(key, value);
  };
  table.each(count, [&](const std::vector<uint16_t> &addresses) {
    for (const uint16_t address : addresses) take(overflow_page(header, address));
  });
}

void PageMap::take(uint64_t page) {
  if (page >= used_.size()) return;
  shared_ = shared_ || used_[page];
  used_[page] = true;
}

bool PageMap::bitmaps_match() const {
  hashdb::Header header = table_.header();
  const PageAllocator pages(header, table_.file());
  for (uint32_t bit = 0; bit < header.spares[header.overflow_point]; ++bit) {
    const uint64_t page = overflow_page(header, pages.address_of(bit));
    if (pages.is_free(bit) == (page < used_.size() && used_[page])) return false;
  }
  return pages.ends_with_last_page();
}

}  // namespace rdm::catalog
