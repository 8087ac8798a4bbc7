// SPDX-License-Identifier: MIT
#include "catalog/used_numbers.h"

#include <algorithm>

#include "catalog/change_times.h"
#include "catalog/os/error.h"
#include "catalog/record.h"
#include "catalog/url_map.h"

namespace rdm::catalog {
namespace {

void take_record(std::string_view key, std::string_view record, UsedNumbers &used) {
  used.is_empty = false;
  used.next_number = later(used.next_number, number_of(key).value_or(0) + 1);
  if (const std::optional<Outline> outline = outline_of(record))
    used.newest_change = std::max(used.newest_change, valid_change_time(outline->change_time));
}

/// take_trailer reads only the trailer, which may be valid although the header is damaged.
void take_trailer(const std::string &path, UsedNumbers &used, std::string &damage) try {
  const auto trailer = Trailer::read(File::open(path));
  if (!trailer) return;
  used.next_number = later(used.next_number, trailer->next_number);
  used.newest_change = std::max(used.newest_change, trailer->newest_change.value_or(0));
} catch (const Failure &failure) {
  damage = failure.what();
}

void take_records(const std::string &database, UsedNumbers &used) try {
  const UsedNumbers found = used_in(HashTable(database));
  used.next_number = later(used.next_number, found.next_number);
  used.newest_change = std::max(used.newest_change, found.newest_change);
  used.is_empty = found.is_empty;
  if (!found.damage.empty()) used.damage = found.damage;
} catch (const Failure &failure) {
  used.damage = failure.what();
}

}  // namespace

UsedNumbers used_in(const HashTable &table) {
  UsedNumbers used;
  BucketReader reader(table);
  for (uint32_t bucket = 0, end = table.buckets(); bucket < end; ++bucket) try {
      for (reader.start(bucket); reader.next();) take_record(reader.key(), reader.value(), used);
    } catch (const Failure &failure) {
      used.damage = failure.what();
    }
  return used;
}

UsedNumbers used_numbers(const std::string &database) {
  File::open(database);
  UsedNumbers used;
  std::string ignored;
  take_trailer(database, used, used.damage);
  take_trailer(UrlMap::path_for(database), used, ignored);
  take_records(database, used);
  used.is_empty = used.is_empty && used.damage.empty();
  return used;
}

}  // namespace rdm::catalog
