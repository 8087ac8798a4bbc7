// SPDX-License-Identifier: MIT
#include <fcntl.h>

#include <cerrno>
#include <iterator>
#include <set>
#include <string>

#include "dba/guard.h"
#include "faults/operations.h"
#include "service/support/catalog.h"
#include "support/files.h"

namespace rdm::faults {
namespace {

constexpr uint32_t records = 20;

/// stored_record returns a record; the last is longer than a page, so that reading it allocates a block.
std::string stored_record(uint32_t number) {
  std::string record(number == records ? 20000 : 100, static_cast<char>('a' + number));
  return record;
}

std::string key_of(uint32_t number) {
  char key[9];
  host_format(key, sizeof key, "%08x", number);
  return key;
}

DBT item_of(std::string &text) { return {text.data(), text.size()}; }
std::string text_of(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

std::string catalog_bytes() {
  const support::TemporaryDirectory directory;
  support::Catalog catalog(directory);
  for (uint32_t number = 1; number <= records; ++number) catalog.put(number, stored_record(number));
  return support::read_file(catalog.path());
}

/// Catalog is a copy of one catalog made for all scenarios.
struct Catalog {
  support::TemporaryDirectory directory;
  std::string path;

  Catalog() {
    static const std::string bytes = catalog_bytes();
    path = directory.write("catalog.db", bytes);
  }
  DatabasePtr open(const char *mode) const { return DatabasePtr(dba_open(path.c_str(), mode)); }
};

/// read returns the result of dba_get, or -2 if the record is wrong.
int read(DB *database, uint32_t number) {
  std::string key = key_of(number);
  const DBT name = item_of(key);
  DBT value{};
  const int result = dba_get(database, &name, &value);
  return result == 0 && text_of(value) != stored_record(number) ? -2 : result;
}

int write(DB *database, int (*put)(DB *, DBT *, const DBT *), const std::string &text) {
  std::string key = key_of(1), bytes = text;
  DBT name = item_of(key), value = item_of(bytes);
  return put(database, &name, &value);
}

template <typename Open>
Verdict open_with(Memory &memory, Open open) {
  const Catalog catalog;
  errno = 0;
  const DatabasePtr database(memory.failing([&] { return open(catalog.path.c_str()); }));
  const int reason = errno;
  return judge(database && read(database.get(), 1) == 0, !database && reason == ENOMEM);
}

template <int (*put)(DB *, DBT *, const DBT *)>
bool store(Memory &memory) {
  const Catalog catalog;
  const DatabasePtr database = catalog.open("w");
  return memory.failing([&] { return write(database.get(), put, stored_record(1)); }) == 0 &&
         read(database.get(), 1) == 0;
}

constexpr Operation dba_scenarios[] = {
    {"dba_open", Need::reported,
     [](Memory &memory) { return open_with(memory, [](const char *path) { return dba_open(path, "r"); }); }},
    {"dba_close",
     [](Memory &memory) {
       const Catalog catalog;
       DatabasePtr database = catalog.open("r");
       read(database.get(), records);
       return memory.failing([&] { return dba_close(database.release()); }) == 0;
     }},
    // A record that could not be read can be read the next time.
    {"dba_get", Need::reported,
     [](Memory &memory) {
       const Catalog catalog;
       const DatabasePtr database = catalog.open("r");
       for (const uint32_t number : {1u, records}) {
         errno = 0;
         const int result = memory.failing([&] { return read(database.get(), number); });
         const int reason = errno;
         if (result == -1 && reason == ENOMEM && read(database.get(), number) == 0) return Verdict::refused;
         if (result != 0) return Verdict::wrong;
       }
       return Verdict::right;
     }},
    {"dba_put", store<dba_put>},
    {"dba_replace", store<dba_replace>},
    // A handle opened for reading refuses the change before it allocates.
    {"dba_del",
     [](Memory &memory) {
       const Catalog catalog;
       std::string key = key_of(1);
       const DBT name = item_of(key);
       const DatabasePtr database = catalog.open("w"), readable = catalog.open("r");
       return memory.failing([&] {
         return dba_del(database.get(), &name) == 0 && read(database.get(), 1) == 1 &&
                dba_del(readable.get(), &name) == -1;
       });
     }},
    // Each record is visited once; records are missing only if a step returned -1.
    {"dba_first dba_next", Need::reported,
     [](Memory &memory) {
       const Catalog catalog;
       const DatabasePtr database = catalog.open("r");
       std::set<std::string> found;
       bool has_failed = false, is_sound = true;
       DBT key{}, value{};
       const auto step = [&](int (*next)(DB *, DBT *, DBT *)) {
         errno = 0;
         const int result = memory.failing([&] { return next(database.get(), &key, &value); });
         if (result == 0) {
           const auto number = static_cast<uint32_t>(std::stoul(text_of(key), nullptr, 16));
           is_sound = is_sound && text_of(value) == stored_record(number) && found.insert(text_of(key)).second;
         }
         if (result == -1) {
           has_failed = true;
           is_sound = is_sound && errno == ENOMEM;
         }
         return result;
       };
       for (int result = step(dba_first); result != 1;) result = step(dba_next);
       return judge(is_sound && found.size() == records, is_sound && has_failed);
     }},
    {"QX_dbopen", Need::reported,
     [](Memory &memory) {
       return open_with(memory, [](const char *path) { return QX_dbopen(path, O_RDONLY, 0, DB_HASH, nullptr); });
     }},
    {"dbSetOrClearDBLock",
     [](Memory &memory) {
       const Catalog catalog;
       return memory.failing([&] {
         dbSetOrClearDBLock(0);
         const bool is_refused = !catalog.open("r");
         dbSetOrClearDBLock(1);
         return is_refused;
       });
     }},
    {"__dbpanic",
     [](Memory &memory) {
       const Catalog catalog;
       const DatabasePtr database = catalog.open("r");
       return memory.failing([&] {
         __dbpanic(database.get());
         return read(database.get(), 1);
       }) == -1;
     }},
};

}  // namespace

std::vector<Operation> dba_operations() { return {std::begin(dba_scenarios), std::end(dba_scenarios)}; }

}  // namespace rdm::faults
