// SPDX-License-Identifier: MIT
#include "dba/dba.h"

#include <sys/stat.h>

#include <cerrno>

#include "dba/records.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using namespace std::string_literals;
using records::get;
using records::item;
using records::key_of;
using records::text;
using records::value_of;

class Dba : public support::HostTest {
 protected:
  DatabasePtr open(const char *mode) { return DatabasePtr(dba_open(path.c_str(), mode)); }
  int put(DB *db, const std::string &name, const std::string &content) {
    DBT key = item(name);
    const DBT value = item(content);
    return dba_put(db, &key, &value);
  }
  int del(DB *db, const std::string &name) {
    const DBT key = item(name);
    return dba_del(db, &key);
  }
  support::TemporaryDirectory directory;
  std::string path = directory.path("catalog");
};

TEST_F(Dba, GetReturnsTheStoredTextWithItsExactSize) {
  const std::string soif = "@FILE { http://localhost/a.html\ntitle{5}:\tHe\0lo\n}\n"s;
  ASSERT_EQ(put(open("w+").get(), "0000002a", soif), 0);
  const DatabasePtr db = open("r");
  ASSERT_NE(db, nullptr);
  const auto found = get(db.get(), "0000002a");
  EXPECT_EQ(found.result, 0);
  EXPECT_EQ(found.value, soif);
}

TEST_F(Dba, GetAnswersOneForAnAbsentKey) {
  ASSERT_EQ(put(open("w+").get(), "00000001", "one"), 0);
  EXPECT_EQ(get(open("r").get(), "00000002").result, 1);
  EXPECT_EQ(get(open("w").get(), "00000002").result, 1);
  EXPECT_EQ(get(open("r").get(), "0000000").result, 1);
  EXPECT_EQ(get(open("r").get(), "").result, 1);
}

TEST_F(Dba, WritePlusEmptiesTheFile) {
  ASSERT_EQ(put(open("w+").get(), "00000001", "one"), 0);
  EXPECT_NE(open("w+"), nullptr);
  EXPECT_EQ(get(open("r").get(), "00000001").result, 1);
}

TEST_F(Dba, WriteKeepsTheFile) {
  ASSERT_EQ(put(open("w").get(), "00000001", "one"), 0);
  ASSERT_EQ(put(open("w").get(), "00000002", "two"), 0);
  const DatabasePtr db = open("w");
  EXPECT_EQ(get(db.get(), "00000001").value, "one");
  EXPECT_EQ(get(db.get(), "00000002").value, "two");
}

TEST_F(Dba, NewFilesAreReadableByAll) {
  const mode_t mask = umask(022);
  open("w+");
  umask(mask);
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(Dba, EveryOtherModeOpensReadOnly) {
  ASSERT_EQ(put(open("w+").get(), "00000001", "one"), 0);
  for (const char *mode : {"r", "a", "", "r+", "W", "w+b", "rw"}) {
    const DatabasePtr db = open(mode);
    ASSERT_NE(db, nullptr) << mode;
    EXPECT_EQ(get(db.get(), "00000001").value, "one") << mode;
    errno = 0;
    EXPECT_EQ(put(db.get(), "00000001", "two"), -1) << mode;
    EXPECT_EQ(errno, EPERM) << mode;
    EXPECT_EQ(del(db.get(), "00000001"), -1) << mode;
    EXPECT_EQ(errno, EPERM) << mode;
  }
  EXPECT_NE(open(nullptr), nullptr);
  EXPECT_EQ(get(open("r").get(), "00000001").value, "one");
}

TEST_F(Dba, ReadingDoesNotCreateAFile) {
  errno = 0;
  EXPECT_EQ(open("r"), nullptr);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(open("a"), nullptr);
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(Dba, PutAndReplaceBothOverwrite) {
  const DatabasePtr db = open("w+");
  const std::string name = "00000001", first = "first", second = "second", third = "third";
  DBT key = item(name);
  DBT value = item(first);
  EXPECT_EQ(dba_put(db.get(), &key, &value), 0);
  value = item(second);
  EXPECT_EQ(dba_put(db.get(), &key, &value), 0);
  EXPECT_EQ(get(db.get(), "00000001").value, "second");
  value = item(third);
  EXPECT_EQ(dba_replace(db.get(), &key, &value), 0);
  EXPECT_EQ(get(db.get(), "00000001").value, "third");
}

TEST_F(Dba, DeleteTellsRemovedFromAbsent) {
  const DatabasePtr db = open("w+");
  ASSERT_EQ(put(db.get(), "00000001", "one"), 0);
  EXPECT_EQ(del(db.get(), "00000001"), 0);
  EXPECT_EQ(del(db.get(), "00000001"), 1);
  EXPECT_EQ(get(db.get(), "00000001").result, 1);
}

TEST_F(Dba, FirstAndNextReadEveryRecordOnce) {
  records::Records all;
  for (unsigned i = 1; i <= 500; ++i) all[key_of(i)] = value_of(i, i % 90);
  ASSERT_TRUE(records::make_with_library(path, all));
  for (const char *mode : {"r", "w"}) {
    const DatabasePtr db = open(mode);
    DBT key{}, value{};
    size_t count = 0;
    records::Records found;
    int result = dba_first(db.get(), &key, &value);
    for (; result == 0 && count < 1000; result = dba_next(db.get(), &key, &value), ++count) {
      found[text(key)] = text(value);
      EXPECT_EQ(get(db.get(), key_of(1 + static_cast<unsigned>(count) % 500)).result, 0);
    }
    EXPECT_EQ(result, 1) << mode;
    EXPECT_EQ(count, 500u) << mode;
    EXPECT_EQ(found, all) << mode;
  }
}

TEST_F(Dba, FirstStartsOver) {
  ASSERT_TRUE(records::make_with_library(path, {{"00000001", "one"}, {"00000002", "two"}}));
  const DatabasePtr db = open("r");
  DBT key{}, value{};
  ASSERT_EQ(dba_first(db.get(), &key, &value), 0);
  const std::string first = text(key);
  ASSERT_EQ(dba_next(db.get(), &key, &value), 0);
  EXPECT_EQ(dba_next(db.get(), &key, &value), 1);
  EXPECT_EQ(dba_next(db.get(), &key, &value), 1);
  ASSERT_EQ(dba_first(db.get(), &key, &value), 0);
  EXPECT_EQ(text(key), first);
  const DatabasePtr other = open("r");
  ASSERT_EQ(dba_next(other.get(), &key, &value), 0) << "without dba_first";
  EXPECT_EQ(text(key), first);
  for (const char *mode : {"w+", "r"}) {
    DB *empty = open(mode).release();
    EXPECT_EQ(dba_first(empty, &key, &value), 1);
    EXPECT_EQ(dba_next(empty, &key, &value), 1);
    EXPECT_EQ(dba_close(empty), 0);
  }
}

/// A handle that records the operations called.
std::string asked;
DB noting_handle() {
  DB db{};
  db.close = [](DB *) { return asked += "close", 11; };
  db.del = [](const DB *, const DBT *, u_int flags) { return asked += "del " + std::to_string(flags), 12; };
  db.get = [](const DB *, const DBT *, DBT *, u_int flags) { return asked += "get " + std::to_string(flags), 13; };
  db.put = [](const DB *, DBT *, const DBT *, u_int flags) { return asked += "put " + std::to_string(flags), 14; };
  db.seq = [](const DB *, DBT *, DBT *, u_int flags) { return asked += "seq " + std::to_string(flags), 15; };
  return db;
}

TEST_F(Dba, OperationsAskTheHandleWithFlagsOfTheirOwn) {
  DB db = noting_handle();
  DBT key{}, value{};
  const struct {
    int result, expected;
    const char *call;
  } rows[] = {
      {(asked.clear(), dba_get(&db, &key, &value)), 13, "get 0"},
      {dba_put(&db, &key, &value), 14, "put 0"},
      {dba_replace(&db, &key, &value), 14, "put 0"},
      {dba_del(&db, &key), 12, "del 0"},
      {dba_first(&db, &key, &value), 15, "seq 3"},
      {dba_next(&db, &key, &value), 15, "seq 7"},
      {dba_close(&db), 11, "close"},
  };
  std::string calls;
  for (const auto &row : rows) {
    EXPECT_EQ(row.result, row.expected) << row.call;
    calls += row.call;
  }
  EXPECT_EQ(asked, calls);
}

}  // namespace
