// SPDX-License-Identifier: MIT
/// Reads any bytes as a catalog database: visits all records, and gets each by its key. Unless the visit finds damage,
/// both must return the same records. What a locator finds, a key must find, too.

#include <algorithm>
#include <set>
#include <utility>

#include "dba/guard.h"
#include "dba/locator.h"
#include "fuzz/fuzz.h"

using namespace rdm;

namespace {

using Records = std::set<std::pair<std::string, std::string>>;

/// More records than a file of this size can hold.
size_t record_limit(size_t size) { return size / 4 + 16; }

std::string bytes_of(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

void look_up(DB *database, Locator &locator, const std::string &name, Records &found) {
  const DBT key{const_cast<char *>(name.data()), name.size()};
  DBT value{};
  std::string_view located;
  const bool is_located = locator.find(name, located).size > 0;
  const bool is_found = dba_get(database, &key, &value) == 0;
  if (is_found) found.emplace(name, bytes_of(value));
  fuzz::require(!is_located || (is_found && bytes_of(value) == located), "a locator found another record");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const fuzz::MemoryFile file(fuzz::text(data, size));
  const DatabasePtr database(dba_open(file.path().c_str(), "r"));
  if (!database) return 0;
  Locator locator;
  fuzz::require(locator.open(database->fd(database.get())), "a locator refuses a database that can be opened");
  DBT key{}, value{};
  size_t steps = 0;
  bool sound = true;
  Records walked, found;
  for (int result = dba_first(database.get(), &key, &value); result != 1;
       result = dba_next(database.get(), &key, &value)) {
    fuzz::require(++steps <= record_limit(size), "a walk does not end");
    sound = sound && result == 0;
    if (result != 0) continue;
    const std::string name = bytes_of(key);
    walked.emplace(name, bytes_of(value));
    look_up(database.get(), locator, name, found);
  }
  fuzz::require(!sound || std::includes(walked.begin(), walked.end(), found.begin(), found.end()),
                "a key found a record that the walk did not");
  return 0;
}
