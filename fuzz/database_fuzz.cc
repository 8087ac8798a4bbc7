/// Any bytes as a catalog database: a walk over it, and every record of the walk by its key.

#include "dba/guard.h"
#include "fuzz/fuzz.h"

namespace {

/// As many records as a file of this size can hold, and some.
size_t record_limit(size_t size) { return size / 4 + 16; }

std::string bytes_of(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const fuzz::MemoryFile file(fuzz::text(data, size));
  const database_ptr database(dba_open(file.path().c_str(), "r"));
  if (!database) return 0;
  DBT key{}, value{};
  size_t steps = 0;
  for (int result = dba_first(database.get(), &key, &value); result != 1;
       result = dba_next(database.get(), &key, &value)) {
    fuzz::require(++steps <= record_limit(size), "the end of a walk");
    if (result != 0) continue;
    const std::string name = bytes_of(key);
    const DBT wanted{const_cast<char *>(name.data()), name.size()};
    DBT found{};
    if (dba_get(database.get(), &wanted, &found) == 0) bytes_of(found);
  }
  return 0;
}
