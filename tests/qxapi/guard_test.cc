#include "qxapi/guard.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "support/files.h"
#include "support/memory_host.h"

namespace {

class Guard : public support::HostTest {
 protected:
  static bool is_open(host_fd fd) { return ::fcntl(fd, F_GETFD) != -1; }
  host_fd open() { return host_open_write(folder.path("file").c_str()); }

  support::TemporaryFolder folder;
};

TEST_F(Guard, NewRecordsAreZeroed) {
  struct Record {
    int64_t number;
    char *text;
  };
  // The allocator hands out what was used before.
  void *const used = host_alloc(10 * sizeof(Record));
  std::fill_n(static_cast<unsigned char *>(used), 10 * sizeof(Record), static_cast<unsigned char>(0xAA));
  host_free(used);
  const host_ptr<Record> records = host_new<Record>(10);
  for (int i = 0; i < 10; ++i) {
    EXPECT_EQ(records.get()[i].number, 0);
    EXPECT_EQ(records.get()[i].text, nullptr);
  }
  EXPECT_EQ(host.live_blocks, 1);
}

TEST_F(Guard, NewRecordWithoutMemoryIsNull) {
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(host_new<int>(), nullptr);
}

TEST_F(Guard, FilesCloseWithTheirGuard) {
  host_fd fd = -1;
  {
    const file_guard file(open());
    fd = file.get();
    EXPECT_TRUE(file);
    EXPECT_TRUE(is_open(fd));
  }
  EXPECT_FALSE(is_open(fd));
  EXPECT_FALSE(file_guard());
}

TEST_F(Guard, ReleasedFilesStayOpen) {
  host_fd fd = -1;
  {
    file_guard file(open());
    fd = file.release();
    EXPECT_FALSE(file);
  }
  EXPECT_TRUE(is_open(fd));
  host_close(fd);
}

TEST_F(Guard, MovedFilesCloseOnce) {
  file_guard first(open());
  const host_fd fd = first.get();
  file_guard second(std::move(first));
  EXPECT_EQ(second.get(), fd);
  file_guard third;
  third = std::move(second);
  EXPECT_EQ(third.get(), fd);
  EXPECT_TRUE(is_open(fd));
}

TEST_F(Guard, AssignedOverFilesCloseWithTheSource) {
  file_guard kept(open());
  const host_fd replaced_fd = kept.get();
  {
    file_guard other(host_open_write(folder.path("other").c_str()));
    kept = std::move(other);
  }
  EXPECT_FALSE(is_open(replaced_fd));
  EXPECT_TRUE(is_open(kept.get()));
}

TEST_F(Guard, SectionsAreLeftWithTheirGuard) {
  static host_crit *const section = qxapi_posix_host()->crit_create();
  {
    const crit_guard inside(section);
    EXPECT_EQ(host.crit_depth, 1);
  }
  EXPECT_EQ(host.crit_depth, 0);
  host_free(section);
}

}  // namespace
