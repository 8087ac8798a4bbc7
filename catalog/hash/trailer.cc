// SPDX-License-Identifier: MIT
#include "catalog/hash/trailer.h"

#include <endian.h>
#include <libdeflate.h>

#include <algorithm>
#include <vector>

#include "hashdb/format.h"

namespace rdm::catalog {
namespace {

constexpr int64_t trailer_offset = 264;  // after the header
constexpr uint64_t mark = 0x6d696e6964626101;

constexpr uint64_t change_mark = 0x6d696e6964626102;
constexpr uint64_t content_mark = 0x6d696e6964626103;

/// Words are the trailer in the file, big-endian:
///   0 to 8    mark, next number, planned pages, file identity, CRC-32 of words 0 to 7
///   9 to 11   mark, newest time of change, CRC-32 of words 0 to 10
///   12 to 14  mark, checksum of the content, CRC-32 of words 0 to 13
/// Files of earlier versions lack the last or the last two groups. An earlier version that changes a file copies the
/// groups that it does not know; since it changes words before them, their checksums then do not match.
using Words = std::array<uint64_t, 15>;
constexpr size_t first_checksum = 8, change_word = 10, change_checksum = 11;
constexpr size_t content_word = 13, last_checksum = 14;
constexpr int64_t trailer_end = trailer_offset + static_cast<int64_t>(sizeof(Words));
static_assert(trailer_offset >= static_cast<int64_t>(hashdb::header_size) && trailer_offset + sizeof(Words) <= 512);

uint64_t checksum_of(const Words &words, size_t count) {
  return libdeflate_crc32(0, words.data(), count * sizeof(uint64_t));
}

bool is_checked(const Words &words, size_t checksum) {
  return be64toh(words[checksum]) == checksum_of(words, checksum);
}

/// has_group returns true if a group has its mark and a valid checksum.
bool has_group(const Words &words, size_t checksum, uint64_t group_mark) {
  return be64toh(words[checksum - 2]) == group_mark && is_checked(words, checksum);
}

/// checksum_of_range continues a CRC-32 with the bytes from `begin` to `end`.
uint32_t checksum_of_range(const File &file, int64_t begin, int64_t end, uint32_t checksum) {
  std::vector<unsigned char> block(1 << 18);
  while (begin < end) {
    const size_t count = std::min(block.size(), static_cast<size_t>(end - begin));
    file.read_at(begin, block.data(), count);
    checksum = libdeflate_crc32(checksum, block.data(), count);
    begin += static_cast<int64_t>(count);
  }
  return checksum;
}

}  // namespace

FileIdentity identity_of(const File &file) {
  const struct stat status = file.status();
  return {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size),
          static_cast<uint64_t>(status.st_mtim.tv_sec), static_cast<uint64_t>(status.st_mtim.tv_nsec)};
}

std::optional<Trailer> Trailer::read(const File &file) {
  Words words;
  if (file.size() < trailer_offset + static_cast<int64_t>(sizeof words)) return std::nullopt;
  file.read_at(trailer_offset, words.data(), sizeof words);
  if (be64toh(words[0]) != mark || !is_checked(words, first_checksum)) return std::nullopt;
  const bool has_change = has_group(words, change_checksum, change_mark);
  const bool has_content = has_group(words, last_checksum, content_mark);
  for (uint64_t &word : words) word = be64toh(word);
  Trailer trailer{static_cast<uint32_t>(words[1]), static_cast<uint32_t>(words[2]), {}};
  std::copy_n(words.begin() + 3, trailer.database.size(), trailer.database.begin());
  if (has_change) trailer.newest_change = static_cast<time_t>(words[change_word]);
  if (has_content) trailer.content = static_cast<uint32_t>(words[content_word]);
  return trailer;
}

void Trailer::write(const File &file) const {
  Words words{mark, next_number, planned_pages};
  if (newest_change) words[first_checksum + 1] = change_mark;
  words[change_word] = static_cast<uint64_t>(newest_change.value_or(0));
  if (content) words[content_word - 1] = content_mark;
  words[content_word] = content.value_or(0);
  std::copy(database.begin(), database.end(), words.begin() + 3);
  for (uint64_t &word : words) word = htobe64(word);
  for (const size_t checksum : {first_checksum, change_checksum, last_checksum})
    words[checksum] = htobe64(checksum_of(words, checksum));
  file.write_at(trailer_offset, {reinterpret_cast<const char *>(words.data()), sizeof words});
}

uint32_t content_checksum(const File &file) {
  const uint32_t header = checksum_of_range(file, 0, trailer_offset, 0);
  return checksum_of_range(file, trailer_end, file.size(), header);
}

bool is_before(const struct stat &file, const Trailer &trailer) {
  const auto seconds = static_cast<uint64_t>(file.st_mtim.tv_sec), rest = static_cast<uint64_t>(file.st_mtim.tv_nsec);
  return std::pair(seconds, rest) < std::pair(trailer.database[3], trailer.database[4]);
}

}  // namespace rdm::catalog
