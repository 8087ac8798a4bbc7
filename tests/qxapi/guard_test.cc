// SPDX-License-Identifier: MIT
#include "qxapi/guard.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

class Guard : public support::HostTest {
 protected:
  static bool is_open(host_fd fd) { return ::fcntl(fd, F_GETFD) != -1; }
  host_fd open() { return host_open_write(directory.path("file").c_str()); }

  support::TemporaryDirectory directory;
};

TEST_F(Guard, NewRecordsAreZeroed) {
  struct Record {
    int64_t number;
    char *text;
  };
  // The allocator returns memory that was used before.
  void *const used = host_alloc(10 * sizeof(Record));
  std::fill_n(static_cast<unsigned char *>(used), 10 * sizeof(Record), static_cast<unsigned char>(0xAA));
  host_free(used);
  const HostPtr<Record> records = host_new<Record>(10);
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

TEST_F(Guard, CopiedTextsAreWholeAndEndWithNul) {
  for (const std::string_view text : {std::string_view(), std::string_view("text"), std::string_view("a\0b", 3)}) {
    const HostText copy = copy_text(text);
    ASSERT_TRUE(copy);
    EXPECT_EQ(std::string_view(copy.get(), text.size() + 1), std::string(text) + '\0');
  }
  EXPECT_STREQ(copy_text(std::string_view("text").substr(1, 2)).get(), "ex");
}

TEST_F(Guard, CopiedTextWithoutMemoryIsNull) {
  host.fail_allocation = host.allocations + 1;
  EXPECT_FALSE(copy_text("text"));
}

TEST_F(Guard, FilesCloseWithTheirGuard) {
  host_fd fd = -1;
  {
    const HostFileGuard file(open());
    fd = file.get();
    EXPECT_TRUE(file);
    EXPECT_TRUE(is_open(fd));
  }
  EXPECT_FALSE(is_open(fd));
  EXPECT_FALSE(HostFileGuard());
}

TEST_F(Guard, ReleasedFilesStayOpen) {
  host_fd fd = -1;
  {
    HostFileGuard file(open());
    fd = file.release();
    EXPECT_FALSE(file);
  }
  EXPECT_TRUE(is_open(fd));
  host_close(fd);
}

TEST_F(Guard, MovedFilesCloseOnce) {
  HostFileGuard first(open());
  const host_fd fd = first.get();
  HostFileGuard second(std::move(first));
  EXPECT_EQ(second.get(), fd);
  HostFileGuard third;
  third = std::move(second);
  EXPECT_EQ(third.get(), fd);
  EXPECT_TRUE(is_open(fd));
}

TEST_F(Guard, AssignedOverFilesCloseWithTheSource) {
  HostFileGuard kept(open());
  const host_fd replaced_fd = kept.get();
  {
    HostFileGuard other(host_open_write(directory.path("other").c_str()));
    kept = std::move(other);
  }
  EXPECT_FALSE(is_open(replaced_fd));
  EXPECT_TRUE(is_open(kept.get()));
}

TEST_F(Guard, SectionsAreLeftWithTheirGuard) {
  static host_crit *const section = qxapi_posix_host()->crit_create();
  {
    const CritGuard inside(section);
    EXPECT_EQ(host.crit_depth, 1);
  }
  EXPECT_EQ(host.crit_depth, 0);
  host_free(section);
}

}  // namespace
