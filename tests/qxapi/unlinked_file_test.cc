// SPDX-License-Identifier: MIT
#include "qxapi/unlinked_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

TEST(UnlinkedFile, IsPrivateAndHasNoName) {
  const support::TemporaryDirectory directory;
  const HostFileGuard file = open_unlinked(directory.path(), "prefix-");
  ASSERT_TRUE(file);
  struct stat status;
  ASSERT_EQ(::fstat(file.get(), &status), 0);
  EXPECT_EQ(status.st_nlink, 0u);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_NE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(UnlinkedFile, NeedsADirectory) {
  errno = 0;
  EXPECT_FALSE(open_unlinked("/nonexistent", "prefix-"));
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
