#include "tools/minidba/stamp.h"

#include <endian.h>
#include <zlib.h>

#include <algorithm>

#include "dba/hash_file.h"

namespace minidba {
namespace {

constexpr int64_t offset = 264;  // behind the header
constexpr uint64_t mark = 0x6d696e6964626101;

constexpr uint64_t change_mark = 0x6d696e6964626102;

/// Words are the stamp in the file, each big-endian. Behind the first nine, the last of them a checksum of the others,
/// stand three that files of earlier versions do not have: a mark, the newest time of change, and a checksum of all. An
/// earlier version copies these three and changes some of the others, so that the checksum is wrong.
using Words = std::array<uint64_t, 12>;
constexpr size_t first_checksum = 8, newest_change_place = 10, last_checksum = 11;
static_assert(offset >= static_cast<int64_t>(hash_file::header_size) && offset + sizeof(Words) <= 512);

uint64_t checksum_of(const Words &words, size_t count) {
  return crc32_z(0, reinterpret_cast<const unsigned char *>(words.data()), count * sizeof(uint64_t));
}

bool is_checked(const Words &words, size_t checksum) {
  return be64toh(words[checksum]) == checksum_of(words, checksum);
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
  if (be64toh(words[0]) != mark || !is_checked(words, first_checksum)) return std::nullopt;
  const bool has_change = be64toh(words[first_checksum + 1]) == change_mark && is_checked(words, last_checksum);
  for (uint64_t &word : words) word = be64toh(word);
  Stamp stamp{static_cast<uint32_t>(words[1]), static_cast<uint32_t>(words[2]), {}};
  std::copy_n(words.begin() + 3, stamp.database.size(), stamp.database.begin());
  if (has_change) stamp.newest_change = static_cast<time_t>(words[newest_change_place]);
  return stamp;
}

void Stamp::write(const File &file) const {
  Words words{mark, next_number, planned_pages};
  if (newest_change) words[first_checksum + 1] = change_mark;
  words[newest_change_place] = static_cast<uint64_t>(newest_change.value_or(0));
  std::copy(database.begin(), database.end(), words.begin() + 3);
  for (uint64_t &word : words) word = htobe64(word);
  for (const size_t checksum : {first_checksum, last_checksum}) words[checksum] = htobe64(checksum_of(words, checksum));
  file.write_at(offset, {reinterpret_cast<const char *>(words.data()), sizeof words});
}

bool is_before(const struct stat &file, const Stamp &stamp) {
  const auto seconds = static_cast<uint64_t>(file.st_mtim.tv_sec), rest = static_cast<uint64_t>(file.st_mtim.tv_nsec);
  return std::pair(seconds, rest) < std::pair(stamp.database[3], stamp.database[4]);
}

}  // namespace minidba
