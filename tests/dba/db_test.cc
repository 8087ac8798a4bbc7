// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "dba/records.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

/// The flags of the last call of the library's dbopen().
int library_flags;

}  // namespace

/// Replaces the library's dbopen(), records the flags and calls it.
extern "C" DB *dbopen(const char *file, int flags, int mode, DBTYPE type, const void *parameters) {
  static const auto open = reinterpret_cast<decltype(&dbopen)>(dlsym(dlopen("libdb1.so.2", RTLD_NOW), "dbopen"));
  library_flags = flags;
  return open(file, flags, mode, type, parameters);
}

namespace {

using records::get;
using records::item;
using records::number_one;

constexpr int create = O_RDWR | O_CREAT;
constexpr int access_method_flags = static_cast<int>(0xE0000000u);

const std::string one = "one";

class Opening : public support::HostTest {
 protected:
  ~Opening() override { all_databases_locked_closed = 0; }
  DatabasePtr open(int flags, int type = DB_HASH) {
    errno = 0;
    return DatabasePtr(QX_dbopen(path.c_str(), flags, 0600, type, nullptr));
  }
  void make() { ASSERT_TRUE(records::make_with_library(path, {{"00000001", "one"}})); }

  support::TemporaryDirectory directory;
  std::string path = directory.path("catalog");
};

TEST_F(Opening, RefusesEveryFlagThatIsNotAllowed) {
  make();
  for (unsigned bit = 1; bit != 0; bit <<= 1) {
    const bool allowed = (bit & (O_RDWR | O_CREAT | O_TRUNC | O_EXCL | 0xE0000000u)) != 0;
    if (allowed) continue;
    for (const int flags : {O_RDONLY, create, create | O_TRUNC}) {
      EXPECT_EQ(open(flags | static_cast<int>(bit)), nullptr) << std::hex << bit;
      EXPECT_EQ(errno, EINVAL) << std::hex << bit;
    }
  }
  EXPECT_EQ(get(open(O_RDONLY).get(), "00000001").value, "one");
}

TEST_F(Opening, PassesTheHighBitsOn) {
  make();
  EXPECT_EQ(get(open(O_RDONLY | access_method_flags).get(), "00000001").value, "one");
  for (const int flags : {O_RDWR, create, create | O_TRUNC}) {
    EXPECT_NE(open(flags | access_method_flags), nullptr) << flags;
    EXPECT_EQ(library_flags, flags | access_method_flags);
  }
}

TEST_F(Opening, SupportsTheHashTypeOnly) {
  make();
  for (const int type : {int{DB_BTREE}, int{DB_RECNO}, 3, -1}) {
    EXPECT_EQ(open(O_RDONLY, type), nullptr) << type;
    EXPECT_EQ(errno, EINVAL) << type;
    EXPECT_EQ(open(create | O_TRUNC, type), nullptr) << type;
    EXPECT_EQ(errno, EINVAL) << type;
  }
  EXPECT_EQ(get(open(O_RDONLY).get(), "00000001").value, "one");
}

TEST_F(Opening, ALockedDatabaseIsRefusedAndNoFileIsTouched) {
  make();
  const std::string before = support::read_file(path);
  const auto changed = std::filesystem::last_write_time(path);
  dbSetOrClearDBLock(0);
  EXPECT_EQ(all_databases_locked_closed, 1);
  for (const char *mode : {"r", "w", "w+", "a"}) {
    errno = 0;
    EXPECT_EQ(dba_open(path.c_str(), mode), nullptr) << mode;
    EXPECT_EQ(errno, EINVAL) << mode;
    EXPECT_EQ(dba_open(directory.path("absent").c_str(), mode), nullptr) << mode;
    EXPECT_EQ(errno, EINVAL) << mode;
  }
  EXPECT_FALSE(support::file_exists(directory.path("absent")));
  EXPECT_EQ(support::read_file(path), before);
  EXPECT_EQ(std::filesystem::last_write_time(path), changed);
}

TEST_F(Opening, TheLockOpensAgain) {
  make();
  all_databases_locked_closed = -5;
  EXPECT_EQ(open(O_RDONLY), nullptr) << "any value but 0 refuses";
  EXPECT_EQ(errno, EINVAL);
  dbSetOrClearDBLock(0);
  dbSetOrClearDBLock(7);
  EXPECT_EQ(all_databases_locked_closed, 0);
  EXPECT_EQ(get(open(O_RDONLY).get(), "00000001").value, "one");
}

TEST_F(Opening, TheLockLeavesDatabasesInMemoryAlone) {
  dbSetOrClearDBLock(0);
  const DatabasePtr db(QX_dbopen(nullptr, create, 0600, DB_HASH, nullptr));
  ASSERT_NE(db, nullptr);
  DBT key = item(number_one);
  const DBT value = item(one);
  EXPECT_EQ(dba_put(db.get(), &key, &value), 0);
  EXPECT_EQ(get(db.get(), "00000001").value, "one");
}

TEST_F(Opening, TheLockLeavesOpenHandlesAlone) {
  make();
  const DatabasePtr db = open(O_RDONLY);
  dbSetOrClearDBLock(0);
  EXPECT_EQ(get(db.get(), "00000001").value, "one");
}

TEST_F(Opening, GivesNewFilesTheModeAsked) {
  open(create);
  struct stat status;
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(Opening, ExclusiveCreationRefusesAnExistingFile) {
  EXPECT_NE(open(create | O_EXCL), nullptr);
  EXPECT_EQ(open(create | O_EXCL), nullptr);
  EXPECT_EQ(errno, EEXIST);
}

TEST_F(Opening, RequiresAFileWithoutCreate) {
  for (const int flags : {O_RDONLY, O_RDWR}) {
    EXPECT_EQ(open(flags), nullptr);
    EXPECT_EQ(errno, ENOENT);
  }
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(Opening, AnEmptyFileOpensOnlyToBeTruncated) {
  support::write_file(path, "");
  for (const int flags : {O_RDONLY, O_RDWR, create}) {
    EXPECT_EQ(open(flags), nullptr) << flags;
    EXPECT_EQ(errno, EINVAL) << flags;
  }
  EXPECT_NE(open(create | O_TRUNC), nullptr);
  EXPECT_NE(open(O_RDONLY), nullptr);
}

TEST_F(Opening, RefusesFilesThatAreNotHashFiles) {
  ASSERT_EQ(mkfifo(directory.path("fifo").c_str(), 0600), 0);
  directory.write("text", std::string(100000, 'x'));
  directory.write("empty", "");
  directory.write("short", std::string("\x00\x06\x15\x61", 4));
  for (const char *name : {"", "fifo", "text", "empty", "short"}) {
    path = directory.path(name);
    for (const int flags : {O_RDONLY, O_RDWR}) {
      EXPECT_EQ(open(flags), nullptr) << name;
      EXPECT_EQ(errno, EINVAL) << name;
    }
  }
}

TEST_F(Opening, DescriptorsAreCloseOnExec) {
  for (const int flags : {create | O_TRUNC, O_RDWR, O_RDONLY}) {
    const DatabasePtr db = open(flags);
    ASSERT_NE(db, nullptr);
    const int fd = db->fd(db.get());
    ASSERT_GE(fd, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << flags;
  }
}

TEST_F(Opening, FailsWhenMemoryDoes) {
  make();
  for (long allocation = 1; allocation <= 2; ++allocation) {
    host.fail_allocation = host.allocations + allocation;
    EXPECT_EQ(open(O_RDONLY), nullptr);
    EXPECT_EQ(errno, ENOMEM);
  }
  host.fail_allocation = 0;
  EXPECT_NE(open(O_RDONLY), nullptr);
}

TEST_F(Opening, CloseReleasesTheLibrarysMemoryForLongRecords) {
  const std::string content = records::value_of(1, 1000000);
  const auto use = [&] {
    for (const char *file : {path.c_str(), static_cast<const char *>(nullptr)}) {
      const DatabasePtr db(QX_dbopen(file, create | O_TRUNC, 0600, DB_HASH, nullptr));
      DBT key = item(number_one);
      const DBT value = item(content);
      ASSERT_EQ(dba_put(db.get(), &key, &value), 0);
      EXPECT_EQ(get(db.get(), number_one).value, content);
    }
  };
  use();
  const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
  for (int i = 0; i < 10; ++i) use();
  EXPECT_LT(mallinfo2().uordblks + mallinfo2().hblkhd, before + 100000);
}

TEST_F(Opening, APanickedHandleCanOnlyBeClosed) {
  make();
  for (const int flags : {O_RDONLY, O_RDWR}) {
    DB *db = open(flags).release();
    ASSERT_NE(db, nullptr);
    __dbpanic(db);
    DBT key = item(number_one);
    DBT value = item(one);
    EXPECT_EQ(dba_get(db, &key, &value), -1);
    EXPECT_EQ(dba_put(db, &key, &value), -1);
    EXPECT_EQ(dba_replace(db, &key, &value), -1);
    EXPECT_EQ(dba_del(db, &key), -1);
    EXPECT_EQ(dba_first(db, &key, &value), -1);
    EXPECT_EQ(dba_next(db, &key, &value), -1);
    EXPECT_EQ(db->sync(db, 0), -1);
    EXPECT_EQ(db->fd(db), -1);
    EXPECT_EQ(dba_close(db), 0);
  }
  EXPECT_EQ(get(open(O_RDONLY).get(), "00000001").value, "one");
}

}  // namespace
