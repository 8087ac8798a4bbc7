// SPDX-License-Identifier: MIT
/// The hash-file format of Berkeley DB 1.85: the header, the addresses of pages, and the marks in their slots.
///
/// A file is an array of pages. The first pages hold the header. Each bucket has a primary page; overflow pages lie
/// between the primary pages, after the last bucket of each doubling of the table. A page continues on the overflow
/// page whose address is in its last slots. The numbers of the header are big-endian; those of the pages have the byte
/// order that the header names.
#ifndef HASHDB_FORMAT_H
#define HASHDB_FORMAT_H

#include <db_185.h>

#include <cstddef>
#include <cstdint>

namespace rdm::hashdb {

constexpr uint32_t magic = HASHMAGIC;
constexpr uint32_t version = HASHVERSION;
constexpr uint32_t doublings = 32;      // of the table, at most
constexpr uint32_t split_pages = 2047;  // overflow pages of one doubling, at most
constexpr uint32_t segment_shift = 8;   // the library's directory consists of segments of 256 buckets
constexpr uint32_t min_page_shift = 6;
constexpr uint32_t max_page_shift = 15;  // offsets within a page are 16 bits wide
constexpr uint32_t max_buckets = 1u << 24;
constexpr uint32_t little_endian = 1234;
constexpr uint32_t big_endian = 4321;

/// The header at the start of a file, decoded to the machine's byte order.
struct Header {
  uint32_t magic;
  uint32_t version;
  uint32_t byte_order;      // of the numbers in pages: 1234 or 4321
  uint32_t page_size;       // bytes; a power of two
  uint32_t page_shift;      // its logarithm
  uint32_t directory_size;  // segments that the library allocates
  uint32_t segment_size;
  uint32_t segment_shift;
  uint32_t overflow_point;  // the doubling in which new overflow pages are allocated
  uint32_t last_freed;      // the page at which the library's search for a free one starts
  uint32_t max_bucket;      // number of the last bucket
  uint32_t high_mask;       // hash bits of the doubling in progress
  uint32_t low_mask;        // hash bits of the last complete doubling
  uint32_t fill_factor;     // records per bucket above which the library grows the table
  uint32_t records;
  uint32_t header_pages;
  uint32_t hash_check;          // the hash of a fixed text, to detect another hash function
  uint32_t spares[doublings];   // overflow pages in this and all earlier doublings
  uint16_t bitmaps[doublings];  // overflow addresses of the bitmaps of used overflow pages
};

constexpr size_t header_size = 260;
static_assert(sizeof(Header) == header_size);

/// header_pages returns the number of pages reserved for the header: at least 512 bytes.
constexpr uint32_t header_pages(uint32_t page_shift) { return (511u >> page_shift) + 1; }

using Hash = uint32_t (*)(const void *, size_t);

/// default_hash is the hash function that the library uses by default.
uint32_t default_hash(const void *bytes, size_t size) noexcept;
/// hash_check returns the header field of this name for a file whose hash function is `hash`.
uint32_t hash_check(Hash hash) noexcept;

/// decode returns the header in the first header_size bytes of a file; encode writes one.
Header decode(const unsigned char *bytes) noexcept;
void encode(const Header &header, unsigned char *bytes) noexcept;

/// is_sound returns true if the header's fields are consistent with each other, with the hash function and with a file
/// of `file_size` bytes.
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

/// overflow_page returns the number of the page at an overflow address, or 0 if the address is invalid.
uint64_t overflow_page(const Header &header, uint16_t address) noexcept;

/// A page begins with 16-bit numbers: the number of slots, the slots in pairs, the number of free bytes, the start of
/// the data. A pair holds the offsets of a key and of its value, or has one of these marks as its second number. A
/// record longer than a page fills pages of its own: partial_key marks a page on which the key continues, full_key_data
/// the page on which the value ends, full_key the pages between them. The page on which the key ends is marked
/// full_key_data if the value begins there.
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
