// SPDX-License-Identifier: MIT
#include "dba/dba.h"

#include <fcntl.h>

#include <string_view>

namespace {

constexpr int file_mode = 0644;

int flags_of(const char *mode) {
  const std::string_view text = mode == nullptr ? "" : mode;
  if (text == "w+") return O_RDWR | O_CREAT | O_TRUNC;
  if (text == "w") return O_RDWR | O_CREAT;
  return O_RDONLY;
}

}  // namespace

DB *dba_open(const char *path, const char *mode) noexcept {
  return QX_dbopen(path, flags_of(mode), file_mode, DB_HASH, nullptr);
}

int dba_close(DB *db) noexcept { return db->close(db); }

int dba_get(DB *db, const DBT *key, DBT *value) noexcept { return db->get(db, key, value, 0); }

int dba_put(DB *db, DBT *key, const DBT *value) noexcept { return db->put(db, key, value, 0); }

int dba_replace(DB *db, DBT *key, const DBT *value) noexcept { return db->put(db, key, value, 0); }

int dba_del(DB *db, const DBT *key) noexcept { return db->del(db, key, 0); }

int dba_first(DB *db, DBT *key, DBT *value) noexcept { return db->seq(db, key, value, R_FIRST); }

int dba_next(DB *db, DBT *key, DBT *value) noexcept { return db->seq(db, key, value, R_NEXT); }
