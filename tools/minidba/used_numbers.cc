#include "tools/minidba/used_numbers.h"

#include <algorithm>

#include "tools/minidba/failure.h"
#include "tools/minidba/hash_table.h"
#include "tools/minidba/record.h"
#include "tools/minidba/url_map.h"

namespace minidba {
namespace {

/// next_after_keys passes over damaged buckets.
uint32_t next_after_keys(const HashTable &table, std::string &damage) {
  uint32_t highest = 0;
  BucketReader reader(table);
  for (uint32_t bucket = 0, end = table.buckets(); bucket < end; ++bucket) try {
      for (reader.start(bucket); reader.next();) highest = std::max(highest, number_of(reader.key()).value_or(0));
    } catch (const Failure &failure) {
      damage = failure.what();
    }
  return highest + 1;
}

/// stamped reads no more than the stamp, which outlives a damaged header.
uint32_t stamped(const std::string &path, std::string &damage) try {
  const auto stamp = Stamp::read(File::open(path));
  return stamp ? stamp->next_number : 1;
} catch (const Failure &failure) {
  damage = failure.what();
  return 1;
}

uint32_t keyed(const std::string &database, std::string &damage) try {
  return next_after_keys(HashTable(database), damage);
} catch (const Failure &failure) {
  damage = failure.what();
  return 1;
}

}  // namespace

UsedNumbers used_numbers(const std::string &database) {
  if (const auto status = status_of(database); status && !S_ISREG(status->st_mode))
    throw Failure("not a regular file: " + database);
  File::open(database);
  UsedNumbers used;
  std::string ignored;
  used.next_number = later(stamped(database, used.damage), stamped(UrlMap::path_for(database), ignored));
  used.next_number = later(used.next_number, keyed(database, used.damage));
  return used;
}

}  // namespace minidba
