#include "tools/minidba/stamp.h"

#include <endian.h>
#include <zlib.h>

#include <algorithm>

#include "dba/hash_file.h"

namespace minidba {
namespace {

constexpr int64_t offset = 264;  // behind the header
constexpr uint64_t mark = 0x6d696e6964626101;

/// Words are the stamp in the file, each big-endian; the last is a checksum of the others.
using Words = std::array<uint64_t, 9>;
static_assert(offset >= static_cast<int64_t>(hash_file::header_size) && offset + sizeof(Words) <= 512);

uint64_t checksum_of(const Words &words) {
  return crc32_z(0, reinterpret_cast<const unsigned char *>(words.data()), sizeof(Words) - sizeof(uint64_t));
}

}  // namespace

FileIdentity identity_of(const File &file) {
  const struct stat status = file.status();
  return {status.st_dev, status.st_ino, static_cast<uint64_t>(status.st_size),
          static_cast<uint64_t>(status.st_mtim.tv_sec), static_cast<uint64_t>(status.st_mtim.tv_nsec)};
}

std::optional<Stamp> Stamp::read(const File &file) {
  Words words;
  if (file.size() < offset + static_cast<int64_t>(sizeof words)) return std::nullopt;
  file.read_at(offset, words.data(), sizeof words);
  if (be64toh(words[0]) != mark || be64toh(words.back()) != checksum_of(words)) return std::nullopt;
  for (uint64_t &word : words) word = be64toh(word);
  Stamp stamp{static_cast<uint32_t>(words[1]), static_cast<uint32_t>(words[2]), {}};
  std::copy_n(words.begin() + 3, stamp.database.size(), stamp.database.begin());
  return stamp;
}

void Stamp::write(const File &file) const {
  Words words{mark, next_number, planned_pages};
  std::copy(database.begin(), database.end(), words.begin() + 3);
  for (uint64_t &word : words) word = htobe64(word);
  words.back() = htobe64(checksum_of(words));
  file.write_at(offset, {reinterpret_cast<const char *>(words.data()), sizeof words});
}

}  // namespace minidba
