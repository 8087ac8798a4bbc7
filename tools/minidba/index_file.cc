#include "tools/minidba/index_file.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <limits>
#include <tuple>

#include "tools/minidba/failure.h"
#include "tools/minidba/files.h"

namespace minidba {
namespace {

constexpr uint32_t magic = 0x3EB1CA0E;
constexpr size_t header_size = 8, entry_size = 20;

void append_word(std::string &bytes, uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift);
}

std::string read_all(const std::string &path) {
  const file_guard file = open_file(path, O_RDONLY);
  std::string bytes;
  char block[1 << 16];
  ssize_t got = file ? 1 : -1;
  while (got > 0) {
    got = uninterrupted([&] { return ::read(file.get(), block, sizeof block); });
    bytes.append(block, static_cast<size_t>(std::max<ssize_t>(got, 0)));
  }
  if (got < 0) throw system_failure("cannot read " + path);
  return bytes;
}

uint32_t word_at(std::string_view bytes, size_t offset) {
  uint32_t word = 0;
  for (size_t i = 0; i < 4; ++i) word = word << 8 | static_cast<unsigned char>(bytes[offset + i]);
  return word;
}

}  // namespace

IndexEntry entry_of(uint32_t number, std::string_view record, int64_t change_time) {
  const auto time = std::clamp<int64_t>(change_time, 0, std::numeric_limits<uint32_t>::max());
  const unsigned long checksum = crc32_z(0, reinterpret_cast<const unsigned char *>(record.data()), record.size());
  return {static_cast<uint32_t>(time), 0, number, static_cast<uint32_t>(record.size()),
          static_cast<uint32_t>(checksum)};
}

bool precedes(const IndexEntry &a, const IndexEntry &b) {
  return std::tie(a.time, a.number) < std::tie(b.time, b.number);
}

std::string encode(const std::vector<IndexEntry> &entries) {
  std::string bytes;
  bytes.reserve(header_size + entry_size * entries.size());
  append_word(bytes, magic);
  append_word(bytes, static_cast<uint32_t>(entries.size()));
  for (const IndexEntry &entry : entries)
    for (uint32_t word : {entry.time, entry.reserved, entry.number, entry.size, entry.checksum})
      append_word(bytes, word);
  return bytes;
}

std::vector<IndexEntry> decode(std::string_view bytes, const std::string &path) {
  if (bytes.size() < header_size || word_at(bytes, 0) != magic) throw Failure("not an index: " + path);
  const size_t count = word_at(bytes, 4);
  if (bytes.size() != header_size + entry_size * count)
    throw Failure("not as long as its " + std::to_string(count) + " entries: " + path);
  std::vector<IndexEntry> entries;
  entries.reserve(count);
  for (size_t at = header_size; at < bytes.size(); at += entry_size)
    entries.push_back({word_at(bytes, at), word_at(bytes, at + 4), word_at(bytes, at + 8), word_at(bytes, at + 12),
                       word_at(bytes, at + 16)});
  return entries;
}

std::vector<IndexEntry> read_index(const std::string &path) { return decode(read_all(path), path); }

}  // namespace minidba
