// SPDX-License-Identifier: MIT
#include "catalog/hash/page_allocator.h"

#include <algorithm>

namespace rdm::catalog {

PageAllocator::PageAllocator(hashdb::Header &header, const File &file) : header_(header), file_(file) {
  for (uint32_t map = 0; map < hashdb::doublings && header_.bitmaps[map] != 0; ++map) {
    std::string bytes(header_.page_size, '\0');
    const uint64_t page = overflow_page(header_, header_.bitmaps[map]);
    file_.read_at(static_cast<int64_t>(page << header_.page_shift), bytes.data(), bytes.size());
    maps_.push_back(std::move(bytes));
  }
  for (uint32_t bit = 0; bit < header_.spares[header_.overflow_point]; ++bit)
    if (!is_set(bit)) free_.insert(bit);
}

bool PageAllocator::ends_with_last_page() const {
  for (uint32_t bit = header_.spares[header_.overflow_point]; bit < maps_.size() * bits_per_map(); ++bit)
    if (!is_set(bit)) return false;
  return true;
}

uint32_t PageAllocator::bit_of(uint16_t address) const {
  const uint32_t split = hashdb::overflow_split(address);
  return (split == 0 ? 0 : header_.spares[split - 1]) + hashdb::overflow_number(address) - 1;
}

uint16_t PageAllocator::address_of(uint32_t bit) const {
  const auto split = static_cast<uint32_t>(
      std::upper_bound(header_.spares, header_.spares + header_.overflow_point, bit) - header_.spares);
  return hashdb::overflow_address(split, bit - (split == 0 ? 0 : header_.spares[split - 1]) + 1);
}

bool PageAllocator::is_set(uint32_t bit) const {
  const auto byte = static_cast<unsigned char>(maps_.at(bit / bits_per_map())[bit % bits_per_map() / 8]);
  return (byte >> bit % 8 & 1) != 0;
}

void PageAllocator::set(uint32_t bit, bool used) {
  char &byte = maps_.at(bit / bits_per_map())[bit % bits_per_map() / 8];
  byte = static_cast<char>(used ? byte | 1 << bit % 8 : byte & ~(1 << bit % 8));
}

/// extend adds a page at the end of the file, in the last doubling, and returns its bit.
uint32_t PageAllocator::extend() {
  uint32_t &total = header_.spares[header_.overflow_point];
  const uint32_t before = header_.overflow_point == 0 ? 0 : header_.spares[header_.overflow_point - 1];
  if (total - before == hashdb::split_pages || total / bits_per_map() >= maps_.size()) throw NoPage();
  return total++;
}

uint16_t PageAllocator::take() {
  const uint32_t bit = free_.empty() ? extend() : *free_.begin();
  free_.erase(bit);
  set(bit, true);
  return address_of(bit);
}

void PageAllocator::release(uint16_t address) {
  set(bit_of(address), false);
  free_.insert(bit_of(address));
}

void PageAllocator::write() {
  for (size_t map = 0; map < maps_.size(); ++map) {
    const uint64_t page = overflow_page(header_, header_.bitmaps[map]);
    file_.write_at(static_cast<int64_t>(page << header_.page_shift), maps_[map]);
  }
  header_.last_freed = free_.empty() ? header_.spares[header_.overflow_point] : *free_.begin();
}

}  // namespace rdm::catalog
