// SPDX-License-Identifier: MIT
#include "catalog/maintenance.h"

#include <algorithm>

#include "catalog/os/atomic_file.h"
#include "catalog/record.h"

namespace rdm::catalog {
namespace {

bool has_expired(const SOIF *object, time_t now) {
  const time_t time = time_of(object, "rd-expires");
  return time != 0 && time < now;
}

/// has_attributes returns true if an object has at least one attribute.
bool has_attributes(const SOIF *object) {
  const cshashtable &table = *object->attrs;
  return std::any_of(table.buckets, table.buckets + table.nbuckets,
                     [](const cslist *bucket) { return bucket->head != nullptr; });
}

using Put = std::pair<uint32_t, std::string>;  // number and URL

/// puts_that_expired returns the puts of a batch whose new record has expired.
std::vector<Put> puts_that_expired(const Catalog &catalog, time_t now, const WriteBatch &batch) {
  std::vector<Put> expired;
  batch.each_number([&](const WriteBatch::Change &change, size_t position) {
    if (change.record_size == WriteBatch::erased) return;
    const SoifPtr object = parse_attributes(catalog, change.number, batch.record(position), {"rd-expires"});
    if (has_expired(object.get(), now)) expired.emplace_back(change.number, object->url);
  });
  return expired;
}

}  // namespace

int64_t erase_expired(const Catalog &catalog, time_t now, WriteBatch &batch, const RecordProgress &progress) {
  const int64_t before = batch.count();
  const std::vector<Put> expired_puts = puts_that_expired(catalog, now, batch);
  const auto look = [&](uint32_t number, std::string_view record) {
    const SoifPtr object = parse_attributes(catalog, number, record, {"rd-expires"});
    progress(static_cast<int64_t>(record.size()));
    if (has_expired(object.get(), now)) batch.erase(number, object->url);
  };
  catalog.each_to_copy(look, [&](uint32_t number) { return batch.of_number(number) != nullptr; });
  for (const auto &[number, url] : expired_puts) batch.erase(number, url);
  return batch.count() - before;
}

std::vector<IndexEntry> index_entries(const Catalog &catalog, const EntryVisitor &visit) {
  std::vector<IndexEntry> entries;
  LastTime last_time;
  catalog.each([&](uint32_t number, std::string_view record) {
    entries.push_back(entry_of(number, record, read_outline(catalog, number, record, last_time).change_time));
    visit(entries.back(), record);
  });
  return entries;
}

std::string sorted_index(std::vector<IndexEntry> entries) {
  std::sort(entries.begin(), entries.end(), precedes);
  return encode(entries);
}

void write_index(const std::string &path, const std::string &database, std::vector<IndexEntry> entries) {
  AtomicFile file(path, database);
  file.file().write_at(0, sorted_index(std::move(entries)));
  file.sync();
  file.commit();
}

void each_unclassified(const Catalog &catalog, const std::vector<IndexEntry> &entries,
                       const std::function<void(const std::string &url)> &visit) {
  for (const IndexEntry &entry : entries) {
    const std::optional<std::string> record = catalog.get(entry.number);
    if (!record) continue;
    const SoifPtr object = parse_attributes(catalog, entry.number, *record, {"classification"});
    if (!has_attributes(object.get())) visit(object->url);
  }
}

}  // namespace rdm::catalog
