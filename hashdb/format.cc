// SPDX-License-Identifier: MIT
#include "hashdb/format.h"

#include <endian.h>

#include <algorithm>
#include <bit>
#include <cstring>

namespace rdm::hashdb {
namespace {

constexpr size_t words = offsetof(Header, bitmaps) / sizeof(uint32_t);

/// swap_numbers converts every number of a header between big-endian and the machine's byte order.
void swap_numbers(Header &header) {
  uint32_t numbers[words];
  std::memcpy(numbers, &header, sizeof numbers);
  for (uint32_t &number : numbers) number = be32toh(number);
  std::memcpy(static_cast<void *>(&header), numbers, sizeof numbers);
  for (uint16_t &address : header.bitmaps) address = be16toh(address);
}

bool is_supported(const Header &h, Hash hash) {
  return h.magic == magic && h.version == version && h.hash_check == hash_check(hash) &&
         (h.byte_order == little_endian || h.byte_order == big_endian);
}

bool page_size_agrees(const Header &h) {
  return h.page_shift >= min_page_shift && h.page_shift <= max_page_shift && h.page_size == 1u << h.page_shift &&
         h.header_pages == header_pages(h.page_shift);
}

bool buckets_agree(const Header &h) {
  const uint32_t doubling = h.low_mask + 1;
  return h.low_mask <= h.max_bucket && h.max_bucket <= h.high_mask && h.max_bucket < max_buckets &&
         std::has_single_bit(doubling) && h.high_mask == 2 * doubling - 1 && h.fill_factor > 0;
}

bool directory_agrees(const Header &h) {
  return h.segment_shift == segment_shift && h.segment_size == 1u << segment_shift &&
         std::has_single_bit(h.directory_size) && h.directory_size <= max_buckets &&
         h.max_bucket >> segment_shift < h.directory_size;
}

bool spares_agree(const Header &h) {
  if (h.overflow_point >= doublings || h.overflow_point < log2_up(h.max_bucket + 1)) return false;
  const uint32_t *last = h.spares + h.overflow_point;
  return std::is_sorted(h.spares, last + 1) && *last <= doublings * (split_pages + 1) &&
         h.last_freed <= doublings * (split_pages + 1);
}

bool bitmaps_agree(const Header &h, int64_t file_size) {
  const uint32_t bits_per_map = h.page_size * 8;
  const uint32_t maps = (h.spares[h.overflow_point] + bits_per_map - 1) / bits_per_map;
  if (maps > doublings) return false;
  return std::all_of(h.bitmaps, h.bitmaps + maps, [&](uint16_t address) {
    const uint64_t page = overflow_page(h, address);
    return page != 0 && (page + 1) << h.page_shift <= static_cast<uint64_t>(file_size);
  });
}

}  // namespace

uint32_t default_hash(const void *bytes, size_t size) noexcept {
  const auto *byte = static_cast<const unsigned char *>(bytes);
  uint32_t value = 0;
  while (size-- > 0) value = value * 33 + *byte++;
  return value;
}

uint32_t hash_check(Hash hash) noexcept {
  static const char text[] = "%$sniglet^&";
  return hash(text, sizeof text);
}

Header decode(const unsigned char *bytes) noexcept {
  Header header;
  std::memcpy(static_cast<void *>(&header), bytes, header_size);
  swap_numbers(header);
  return header;
}

void encode(const Header &header, unsigned char *bytes) noexcept {
  Header copy = header;
  swap_numbers(copy);
  std::memcpy(bytes, &copy, header_size);
}

bool is_sound(const Header &header, Hash hash, int64_t file_size) noexcept {
  return is_supported(header, hash) && page_size_agrees(header) && buckets_agree(header) && directory_agrees(header) &&
         spares_agree(header) && bitmaps_agree(header, file_size);
}

uint32_t bucket_of(const Header &header, uint32_t hash_value) noexcept {
  const uint32_t bucket = hash_value & header.high_mask;
  return bucket > header.max_bucket ? bucket & header.low_mask : bucket;
}

uint64_t bucket_page(const Header &header, uint32_t bucket) noexcept {
  const uint64_t page = uint64_t{bucket} + header.header_pages;
  return bucket == 0 ? page : page + header.spares[log2_up(bucket + 1) - 1];
}

uint64_t overflow_page(const Header &header, uint16_t address) noexcept {
  const uint32_t split = overflow_split(address);
  if (overflow_number(address) == 0 || split > header.overflow_point) return 0;
  return bucket_page(header, (1u << split) - 1) + overflow_number(address);
}

}  // namespace rdm::hashdb
