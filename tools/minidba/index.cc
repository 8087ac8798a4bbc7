#include "tools/minidba/index.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <ostream>
#include <tuple>
#include <vector>

#include "tools/minidba/failure.h"
#include "tools/minidba/files.h"
#include "tools/minidba/hash_table.h"
#include "tools/minidba/record.h"

namespace minidba {
namespace {

constexpr uint32_t magic = 0x3EB1CA0E;

struct Entry {
  uint32_t time, number, size, checksum;
};

uint32_t checksum_of(std::string_view record) {
  return static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const unsigned char *>(record.data()), record.size()));
}

Entry entry_of(std::string_view key, std::string_view record, const std::string &database) {
  const auto number = number_of(key);
  const soif_ptr object = parse(record);
  if (!number || !object) throw Failure("damaged record " + std::string(key) + " in " + database);
  const auto time = std::clamp<time_t>(change_time(object.get()), 0, std::numeric_limits<uint32_t>::max());
  return {static_cast<uint32_t>(time), *number, static_cast<uint32_t>(record.size()), checksum_of(record)};
}

std::vector<Entry> read_entries(const std::string &database) {
  std::vector<Entry> entries;
  HashTable(database).each(
      [&](std::string_view key, std::string_view record) { entries.push_back(entry_of(key, record, database)); });
  std::sort(entries.begin(), entries.end(),
            [](const Entry &a, const Entry &b) { return std::tie(a.time, a.number) < std::tie(b.time, b.number); });
  return entries;
}

void append_word(std::string &bytes, uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift);
}

std::string encode(const std::vector<Entry> &entries) {
  std::string bytes;
  bytes.reserve(8 + 20 * entries.size());
  append_word(bytes, magic);
  append_word(bytes, static_cast<uint32_t>(entries.size()));
  for (const Entry &entry : entries)
    for (uint32_t word : {entry.time, 0u, entry.number, entry.size, entry.checksum}) append_word(bytes, word);
  return bytes;
}

}  // namespace

void index(const std::string &database, const std::string &index, std::ostream &out) {
  if (!status_of(database)) throw Failure("not there: " + database);
  const Lock lock(database);
  const std::vector<Entry> entries = read_entries(database);
  Snapshot snapshot(index);
  snapshot.create(encode(entries));
  snapshot.sync();
  snapshot.commit();
  out << entries.size() << '\n';
}

}  // namespace minidba
