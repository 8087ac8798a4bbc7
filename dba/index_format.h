/// The index of a catalog database, as the bytes of its file: a header and entries of fixed size. Header only.
///
/// All integers have 32 bits and stand in big-endian order. The header is the magic number and the number of entries;
/// the entries follow, sorted by time.
#ifndef DBA_INDEX_FORMAT_H
#define DBA_INDEX_FORMAT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace index_format {

constexpr uint32_t magic = 0x3EB1CA0E;
constexpr size_t header_size = 8;
constexpr size_t entry_size = 20;

struct Entry {
  uint32_t time;      // when the description last changed; 0 when that is not known
  uint32_t reserved;  // 0
  uint32_t number;    // of the description
  uint32_t size;      // of its record in bytes
  uint32_t checksum;  // CRC-32 of its record
};

/// word_at returns the integer at `offset`. Its four bytes lie within `bytes`.
constexpr uint32_t word_at(std::string_view bytes, size_t offset) {
  uint32_t word = 0;
  for (size_t i = 0; i < 4; ++i) word = word << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return word;
}

/// has_magic returns true if the bytes begin with the header of an index.
constexpr bool has_magic(std::string_view bytes) { return bytes.size() >= header_size && word_at(bytes, 0) == magic; }

/// entry_count returns the number of entries that the header of an index announces.
constexpr uint32_t entry_count(std::string_view bytes) { return word_at(bytes, 4); }

/// file_size returns the size of an index with this number of entries.
constexpr uint64_t file_size(uint32_t entries) { return header_size + uint64_t{entry_size} * entries; }

/// entry_at returns an entry, counted from 0. It lies within `bytes`.
constexpr Entry entry_at(std::string_view bytes, size_t index) {
  const size_t at = header_size + entry_size * index;
  return {word_at(bytes, at), word_at(bytes, at + 4), word_at(bytes, at + 8), word_at(bytes, at + 12),
          word_at(bytes, at + 16)};
}

}  // namespace index_format

#endif
