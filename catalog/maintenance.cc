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

}  // namespace

void erase_expired(const Catalog &catalog, time_t now, WriteBatch &batch, const RecordProgress &progress) {
  catalog.each_to_copy([&](uint32_t number, std::string_view record) {
    const SoifPtr object = parse_attributes(catalog, number, record, {"rd-expires"});
    progress(static_cast<int64_t>(record.size()));
    if (has_expired(object.get(), now)) batch.erase(number, object->url);
  });
}

std::vector<IndexEntry> index_entries(const Catalog &catalog, const EntryVisitor &visit) {
  std::vector<IndexEntry> entries;
  catalog.each([&](uint32_t number, std::string_view record) {
    entries.push_back(entry_of(number, record, read_outline(catalog, number, record).change_time));
    visit(entries.back(), record);
  });
  return entries;
}

void write_index(const std::string &path, const std::string &database, std::vector<IndexEntry> entries) {
  std::sort(entries.begin(), entries.end(), precedes);
  AtomicFile file(path, database);
  file.file().write_at(0, encode(entries));
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
