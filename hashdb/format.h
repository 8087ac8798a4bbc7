// SPDX-License-Identifier: MIT
/// The hash-file format of Berkeley DB 1.85: the header, the addresses of pages, and the marks in their slots.
///
/// A file is an array of pages. The first hold the header; each bucket has one primary page; between the primary pages,
/// after the last bucket of each doubling of the table, lie overflow pages. A page with an overflow address in its last
/// slots is continued on that overflow page. All numbers of the header are big-endian, those of the pages in the order
/// that the header names.
#ifndef HASHDB_FORMAT_H
#define HASHDB_FORMAT_H

#include <db_185.h>

#include <cstddef>
#include <cstdint>

namespace rdm::hashdb {

constexpr uint32_t magic = HASHMAGIC;
constexpr uint32_t version = HASHVERSION;
constexpr uint32_t doublings = 32;      // of the table, that a header has room for
constexpr uint32_t split_pages = 2047;  // overflow pages that one doubling can have
constexpr uint32_t segment_shift = 8;   // the library's directory is made of segments of 256 buckets
constexpr uint32_t min_page_shift = 6;
constexpr uint32_t max_page_shift = 15;  // offsets within a page are 16 bits wide
constexpr uint32_t max_buckets = 1u << 24;
constexpr uint32_t little_endian = 1234;
constexpr uint32_t big_endian = 4321;

/// The header as it stands at the start of a file, but with the numbers in this machine's order.
struct Header {
  uint32_t magic;
  uint32_t version;
  uint32_t byte_order;      // of the numbers in pages: 1234 or 4321
  uint32_t page_size;       // bytes; a power of two
  uint32_t page_shift;      // its logarithm
  uint32_t directory_size;  // segments that the library makes room for
  uint32_t segment_size;
  uint32_t segment_shift;
  uint32_t overflow_point;  // the doubling in which new overflow pages are allocated
  uint32_t last_freed;      // where the library looks for a free overflow page first
  uint32_t max_bucket;      // number of the last bucket
  uint32_t high_mask;       // hash bits of the doubling in progress
  uint32_t low_mask;        // hash bits of the last complete doubling
  uint32_t fill_factor;     // records per bucket past which the library grows the table
  uint32_t records;
  uint32_t header_pages;
  uint32_t hash_check;          // the hash of a fixed text, which tells other hash functions apart
  uint32_t spares[doublings];   // overflow pages in this and all earlier doublings
  uint16_t bitmaps[doublings];  // overflow addresses of the pages that say which overflow pages are in use
};

constexpr size_t header_size = 260;
static_assert(sizeof(Header) == header_size);

/// header_pages returns how many pages are kept for the header, at least 512 bytes.
constexpr uint32_t header_pages(uint32_t page_shift) { return (511u >> page_shift) + 1; }

using Hash = uint32_t (*)(const void *, size_t);

/// default_hash is the hash function of files made without another one.
uint32_t default_hash(const void *bytes, size_t size) noexcept;
/// hash_check is what `hash` must leave in the header.
uint32_t hash_check(Hash hash) noexcept;

/// decode reads a header from the first header_size bytes of a file, encode writes one.
Header decode(const unsigned char *bytes) noexcept;
void encode(const Header &header, unsigned char *bytes) noexcept;

/// is_sound returns true if the header's fields agree with each other, with the hash function and with a file of
/// `file_size` bytes.
bool is_sound(const Header &header, Hash hash, int64_t file_size) noexcept;

/// bucket_of returns the number of the bucket that holds keys of this hash value.
uint32_t bucket_of(const Header &header, uint32_t hash_value) noexcept;

/// bucket_page returns the number of a bucket's primary page.
uint64_t bucket_page(const Header &header, uint32_t bucket) noexcept;

/// An overflow address holds the doubling in its five high bits and the number of the page within it, from 1, below.
constexpr uint32_t overflow_split(uint16_t address) { return address >> 11; }
constexpr uint32_t overflow_number(uint16_t address) { return address & split_pages; }
constexpr uint16_t overflow_address(uint32_t split, uint32_t number) {
  return static_cast<uint16_t>(split << 11 | number);
}

/// overflow_page returns the number of the page an overflow address names, or 0 when it can name none.
uint64_t overflow_page(const Header &header, uint16_t address) noexcept;

/// A page begins with 16-bit numbers: how many slots it has, the slots in pairs, the free bytes, the start of the data.
/// A pair is the offset of a key and of its value, or has one of these marks as its second number. A record longer than
/// a page fills pages of its own: those that its key does not end on are marked partial_key, the one where the value
/// ends is marked full_key_data, all between full_key. The page where the key ends is marked full_key_data if it also
/// holds the beginning of the value.
namespace slot_mark {
constexpr uint32_t link = 0;  // the first number is the address of the next page
constexpr uint32_t partial_key = 1;
constexpr uint32_t full_key = 2;
constexpr uint32_t full_key_data = 3;
constexpr uint32_t first_offset = 4;  // from here on the number is an offset
}  // namespace slot_mark

/// log2_up returns the smallest n for which 2^n is at least `number`.
constexpr uint32_t log2_up(uint32_t number) {
  uint32_t n = 0;
  while (n < 31 && 1u << n < number) ++n;
  return n;
}

}  // namespace rdm::hashdb

#endif
