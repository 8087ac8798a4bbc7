// SPDX-License-Identifier: MIT
/// Making and reading databases.
#ifndef TESTS_DBA_RECORDS_H
#define TESTS_DBA_RECORDS_H

#include <fcntl.h>

#include <cstdio>
#include <map>
#include <string>

#include "dba/dba.h"
#include "dba/guard.h"

namespace rdm::records {

using Records = std::map<std::string, std::string>;

/// number_one is the key of the description 1.
inline const std::string number_one = "00000001";

inline std::string key_of(unsigned number) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", number);
  return text;
}

/// value_of returns `length` bytes that differ between records and offsets.
inline std::string value_of(unsigned number, size_t length) {
  std::string value(length, ' ');
  for (size_t i = 0; i < length; ++i) value[i] = static_cast<char>((size_t{31} * number + i * 7 + i / 251) & 0xFF);
  return value;
}

/// item returns a DBT of a text, which must outlive it.
inline DBT item(const std::string &&) = delete;
inline DBT item(const std::string &text) { return {const_cast<char *>(text.data()), text.size()}; }
inline std::string text(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

/// make_with_library writes the records through the hash library, with `page_size` bytes per page (0: its default).
inline bool make_with_library(const std::string &path, const Records &records, unsigned page_size = 0, int lorder = 0) {
  HASHINFO info{};
  info.bsize = page_size;
  info.lorder = lorder;
  DatabasePtr db(QX_dbopen(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644, DB_HASH, &info));
  if (!db) return false;
  for (const auto &[name, content] : records) {
    DBT key = item(name);
    const DBT value = item(content);
    if (dba_put(db.get(), &key, &value) != 0) return false;
  }
  return true;
}

struct Found {
  int result;
  std::string value;
};

inline Found get(DB *db, const std::string &name) {
  const DBT key = item(name);
  DBT value{};
  const int result = dba_get(db, &key, &value);
  return {result, result == 0 ? text(value) : ""};
}

/// walk reads all records with dba_first and dba_next; `result` is their last result, 1 after a complete walk.
inline Records walk(DB *db, int &result) {
  Records found;
  DBT key{}, value{};
  for (result = dba_first(db, &key, &value); result == 0; result = dba_next(db, &key, &value))
    found.emplace(text(key), text(value));
  return found;
}

}  // namespace rdm::records

#endif
