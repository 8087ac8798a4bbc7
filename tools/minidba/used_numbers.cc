#include "tools/minidba/used_numbers.h"

#include <algorithm>

#include "tools/minidba/failure.h"
#include "tools/minidba/hash_table.h"
#include "tools/minidba/record.h"
#include "tools/minidba/url_map.h"

namespace minidba {
namespace {

/// take_keys passes over damaged buckets.
void take_keys(const HashTable &table, UsedNumbers &used) {
  uint32_t highest = 0;
  BucketReader reader(table);
  for (uint32_t bucket = 0, end = table.buckets(); bucket < end; ++bucket) try {
      for (reader.start(bucket); reader.next(); used.is_empty = false)
        highest = std::max(highest, number_of(reader.key()).value_or(0));
    } catch (const Failure &failure) {
      used.damage = failure.what();
    }
  used.next_number = later(used.next_number, highest + 1);
}

/// stamped reads no more than the stamp, which outlives a damaged header.
uint32_t stamped(const std::string &path, std::string &damage) try {
  const auto stamp = Stamp::read(File::open(path));
  return stamp ? stamp->next_number : 1;
} catch (const Failure &failure) {
  damage = failure.what();
  return 1;
}

void take_records(const std::string &database, UsedNumbers &used) try {
  take_keys(HashTable(database), used);
} catch (const Failure &failure) {
  used.damage = failure.what();
}

}  // namespace

UsedNumbers used_numbers(const std::string &database) {
  if (const auto status = status_of(database); status && !S_ISREG(status->st_mode))
    throw Failure("not a regular file: " + database);
  File::open(database);
  UsedNumbers used;
  std::string ignored;
  used.next_number = later(stamped(database, used.damage), stamped(UrlMap::path_for(database), ignored));
  take_records(database, used);
  used.is_empty = used.is_empty && used.damage.empty();
  return used;
}

}  // namespace minidba
