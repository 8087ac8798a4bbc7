// SPDX-License-Identifier: MIT
/// The file format of the index of a catalog database: a header and entries of fixed size. Header only.
///
/// All integers have 32 bits and are big-endian. The header is the magic number and the number of entries; the entries
/// follow, sorted by time.
#ifndef DBA_INDEX_FORMAT_H
#define DBA_INDEX_FORMAT_H

#include <libdeflate.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace rdm::index_format {

constexpr uint32_t magic = 0x3EB1CA0E;
constexpr size_t header_size = 8;
constexpr size_t entry_size = 20;

struct Entry {
  uint32_t time;      // of the description's last change; 0 if unknown
  uint32_t reserved;  // 0
  uint32_t number;    // of the description
  uint32_t size;      // of its record in bytes
  uint32_t checksum;  // CRC-32 of its record
  bool operator==(const Entry &) const = default;
};

/// checksum_of returns the checksum of a record.
inline uint32_t checksum_of(std::string_view record) { return libdeflate_crc32(0, record.data(), record.size()); }

/// word_at returns the integer at `offset`. Its four bytes must lie within `bytes`.
constexpr uint32_t word_at(std::string_view bytes, size_t offset) {
  const auto byte = [&](size_t i) { return uint32_t{static_cast<unsigned char>(bytes[offset + i])}; };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

/// has_magic returns true if the bytes begin with the header of an index.
constexpr bool has_magic(std::string_view bytes) { return bytes.size() >= header_size && word_at(bytes, 0) == magic; }

/// entry_count returns the number of entries according to the header of an index.
constexpr uint32_t entry_count(std::string_view bytes) { return word_at(bytes, 4); }

/// file_size returns the size of an index with this number of entries.
constexpr uint64_t file_size(uint32_t entries) { return header_size + uint64_t{entry_size} * entries; }

/// decode returns the entry at the start of `bytes`.
constexpr Entry decode(std::string_view bytes) {
  return {word_at(bytes, 0), word_at(bytes, 4), word_at(bytes, 8), word_at(bytes, 12), word_at(bytes, 16)};
}

/// entry_at returns an entry of an index, counted from 0. It must lie within `bytes`.
constexpr Entry entry_at(std::string_view bytes, size_t index) {
  return decode(bytes.substr(header_size + entry_size * index));
}

/// big_endian returns the big-endian bytes of the words.
template <typename... Words>
constexpr std::array<char, 4 * sizeof...(Words)> big_endian(Words... words) {
  std::array<char, 4 * sizeof...(Words)> bytes{};
  size_t at = 0;
  for (const uint32_t word : {words...})
    for (int shift = 24; shift >= 0; shift -= 8) bytes[at++] = static_cast<char>(word >> shift);
  return bytes;
}

/// encode_header returns the header of an index with this number of entries; encode returns one entry.
constexpr std::array<char, header_size> encode_header(uint32_t entries) { return big_endian(magic, entries); }
constexpr std::array<char, entry_size> encode(const Entry &entry) {
  return big_endian(entry.time, entry.reserved, entry.number, entry.size, entry.checksum);
}

}  // namespace rdm::index_format

#endif
