// SPDX-License-Identifier: MIT
#include "damage/pages.h"

#include <algorithm>

namespace rdm::damage {
namespace {

constexpr uint16_t full_key = 2, full_key_data = 3, least_offset = 4;

}  // namespace

HashPages::HashPages(const std::string &bytes)
    : header(hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data()))), bytes_(bytes) {
  for (const uint16_t address : header.bitmaps)
    if (address != 0) bitmaps.push_back(overflow_page(header, address));
  for (uint32_t bucket = 0; bucket <= header.max_bucket; ++bucket) take_bucket(bucket);
}

void HashPages::take_bucket(uint32_t bucket) {
  bool in_value = false;
  uint64_t page = bucket_page(header, bucket);
  if (start(page) < bytes_.size()) primary.push_back(page);
  for (uint64_t next = 0; page != 0 && start(page) < bytes_.size(); page = next) {
    const size_t at = start(page), slots = slot(bytes_, at, 0);
    const uint16_t mark = slots >= 2 ? slot(bytes_, at, 2) : 0;
    const bool begins_long = !in_value && mark == full_key_data;
    size_t link = slots >= 2 && slot(bytes_, at, slots) == 0 ? slots - 1 : 0;
    if (begins_long) link = 3;
    // A long record's first page has bytes to spare only when it holds all of it.
    if (begins_long)
      in_value = slot(bytes_, at, 5) == 0;
    else if (in_value)
      in_value = mark == full_key;
    uses_.push_back({page, 2 * (slots + (begins_long ? 2 : 1)), data_start(page, begins_long), {}});
    if (link != 0) uses_.back().unread = {0, 1};
    if (link != 0 && mark == full_key) uses_.back().unread = {0, 1, 2 * slots, 2 * slots + 1};
    next = link == 0 ? 0 : overflow_page(header, slot(bytes_, at, link));
    if (link != 0) links.push_back({page, link});
    if (next != 0) overflow.push_back(next);
  }
}

size_t HashPages::data_start(uint64_t page, bool begins_long) const {
  const size_t at = start(page);
  if (begins_long) return slot(bytes_, at, 4);
  size_t lowest = header.page_size;
  for (size_t i = 1; i < slot(bytes_, at, 0); i += 2) {
    const uint16_t second = slot(bytes_, at, i + 1);
    if (second != 0) lowest = std::min<size_t>(lowest, second < least_offset ? slot(bytes_, at, i) : second);
  }
  return lowest;
}

std::vector<bool> HashPages::matters() const {
  std::vector<bool> matters(bytes_.size());
  std::fill_n(matters.begin(), hashdb::header_size, true);
  for (const Use &use : uses_) {
    const auto at = matters.begin() + static_cast<std::ptrdiff_t>(start(use.page));
    std::fill_n(at, use.slots_end, true);
    for (const size_t byte : use.unread) at[static_cast<std::ptrdiff_t>(byte)] = false;
    std::fill_n(at + static_cast<std::ptrdiff_t>(use.data_start), header.page_size - use.data_start, true);
  }
  return matters;
}

}  // namespace rdm::damage
