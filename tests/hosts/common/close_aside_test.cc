// SPDX-License-Identifier: MIT
#include "hosts/common/close_aside.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "qxapi/guard.h"
#include "support/files.h"
#include "support/refused_new.h"

using namespace rdm;
using namespace std::chrono_literals;

namespace {

class CloseAside : public ::testing::Test {
 protected:
  /// open_file returns a descriptor of a new file with blocks of this size.
  int open_file(std::int64_t size) {
    const int fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    EXPECT_EQ(::posix_fallocate(fd, 0, size), 0);
    return fd;
  }
  void remove_file() const { std::filesystem::remove(path_); }
  static bool is_open(int fd) { return ::fcntl(fd, F_GETFD) != -1; }
  static bool gets_closed(int fd) {
    for (int i = 0; i < 6000 && is_open(fd); ++i) std::this_thread::sleep_for(10ms);
    return !is_open(fd);
  }

  support::TemporaryDirectory directory_;
  const std::string path_ = directory_.path("file");
};

TEST_F(CloseAside, ClosesALargeFileThatHasBeenRemoved) {
  const int fd = open_file(hosts::aside_size);
  remove_file();
  EXPECT_TRUE(hosts::close_aside(fd));
  EXPECT_TRUE(gets_closed(fd));
}

TEST_F(CloseAside, LeavesOtherFilesToTheCaller) {
  const HostFileGuard named(open_file(hosts::aside_size));
  EXPECT_FALSE(hosts::close_aside(named.get()));
  remove_file();
  const HostFileGuard small(open_file(hosts::aside_size - 4096));
  remove_file();
  EXPECT_FALSE(hosts::close_aside(small.get()));
  EXPECT_TRUE(is_open(named.get()) && is_open(small.get()));
  EXPECT_FALSE(hosts::close_aside(-1));
}

TEST_F(CloseAside, LeavesTheFileToTheCallerIfThereIsNoMemoryForAThread) {
  const HostFileGuard file(open_file(hosts::aside_size));
  remove_file();
  const support::RefusedNew refused(1, 1000);
  EXPECT_FALSE(hosts::close_aside(file.get()));
  EXPECT_TRUE(refused.done());
  EXPECT_TRUE(is_open(file.get()));
}

}  // namespace
