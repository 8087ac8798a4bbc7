#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <tuple>
#include <vector>

#include "tools/minidba/catalog.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/files.h"
#include "tools/minidba/progress.h"
#include "tools/minidba/record.h"
#include "tools/minidba/report.h"
#include "tools/minidba/verbs.h"

namespace minidba {
namespace {

constexpr uint32_t magic = 0x3EB1CA0E;

struct Entry {
  uint32_t time, number, size, checksum;
};

uint32_t checksum_of(std::string_view record) {
  return static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const unsigned char *>(record.data()), record.size()));
}

Entry entry_of(uint32_t number, std::string_view record, const std::string &database) {
  const soif_ptr object = parse(record);
  if (!object) throw Failure("damaged record " + database_key(number) + " in " + database);
  const auto time = std::clamp<time_t>(change_time(object.get()), 0, std::numeric_limits<uint32_t>::max());
  return {static_cast<uint32_t>(time), number, static_cast<uint32_t>(record.size()), checksum_of(record)};
}

std::vector<Entry> read_entries(const std::string &database, const Console &console) {
  std::vector<Entry> entries;
  Progress progress(console, "indexing");
  Catalog(database).each([&](uint32_t number, std::string_view record) {
    entries.push_back(entry_of(number, record, database));
    progress.advance(1, static_cast<int64_t>(record.size()));
  });
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

int index(const Options &options, const Console &console) {
  if (!status_of(options.database)) throw Failure("not there: " + options.database);
  const std::optional<Lock> lock =
      options.dry_run ? std::nullopt : std::optional<Lock>(std::in_place, options.database);
  const std::vector<Entry> entries = read_entries(options.database, console);
  if (!options.dry_run) {
    Snapshot snapshot(options.index);
    snapshot.create(encode(entries));
    snapshot.sync();
    snapshot.commit();
  }
  report(options, console, {"indexed", static_cast<int64_t>(entries.size())});
  return exit_done;
}

}  // namespace minidba
