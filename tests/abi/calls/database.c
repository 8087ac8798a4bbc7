// SPDX-License-Identifier: MIT
/* A catalog database: written, read, locked. */
#include <errno.h>
#include <fcntl.h>

#include "check.h"
#include "dba/dba.h"

static const char path[] = "records.db";

static DBT bytes_of(char *text) {
  DBT bytes = {text, strlen(text)};
  return bytes;
}

static void check_record(const DBT *value, const char *expected) {
  CHECK(value->size == strlen(expected));
  CHECK(memcmp(value->data, expected, value->size) == 0);
}

static void write_records(void) {
  char one[] = "one", two[] = "two", first[] = "first", second[] = "second";
  DBT key = bytes_of(one), other_key = bytes_of(two), value = bytes_of(first), other = bytes_of(second);
  DB *db = dba_open(path, "w+");
  CHECK(db != NULL);
  CHECK(dba_put(db, &key, &value) == 0);
  CHECK(dba_put(db, &other_key, &value) == 0);
  CHECK(dba_replace(db, &key, &other) == 0);
  CHECK(dba_del(db, &other_key) == 0);
  CHECK(dba_del(db, &other_key) == 1);
  CHECK(dba_put(db, &other_key, &value) == 0);
  CHECK(dba_close(db) == 0);
}

static void read_records(void) {
  char one[] = "one", none[] = "none";
  DBT key = bytes_of(one), missing = bytes_of(none), value = {NULL, 0};
  DB *db = dba_open(path, "r");
  CHECK(db != NULL);
  CHECK(dba_get(db, &key, &value) == 0);
  check_record(&value, "second");
  CHECK(dba_get(db, &missing, &value) == 1);
  CHECK(dba_first(db, &key, &value) == 0);
  CHECK(dba_next(db, &key, &value) == 0);
  CHECK(dba_next(db, &key, &value) == 1);
  __dbpanic(db);
  CHECK(dba_get(db, &key, &value) == -1);
  CHECK(dba_close(db) == 0);
}

static void lock_databases(void) {
  DB *db;
  CHECK(all_databases_locked_closed == 0);
  dbSetOrClearDBLock(0);
  CHECK(all_databases_locked_closed != 0);
  CHECK(QX_dbopen(path, O_RDONLY, 0, DB_HASH, NULL) == NULL);
  CHECK(errno == EINVAL);
  dbSetOrClearDBLock(1);
  CHECK(all_databases_locked_closed == 0);
  db = QX_dbopen(path, O_RDONLY, 0, DB_HASH, NULL);
  CHECK(db != NULL);
  CHECK(dba_close(db) == 0);
}

int main(void) {
  write_records();
  read_records();
  lock_databases();
  return 0;
}
