// SPDX-License-Identifier: MIT
#include "hosts/common/shared_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

using hosts::SharedFile;

class SharedFileTest : public ::testing::Test {
 protected:
  static HostFileGuard open(const std::string &path) {
    return HostFileGuard(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  }
  static std::shared_ptr<const SharedFile> share(const std::string &path) { return SharedFile::open(open(path).get()); }
  /// mapped returns the file when all of it is expected.
  static std::shared_ptr<const SharedFile> mapped(const std::string &path) {
    auto file = share(path);
    file->expect(file->size());
    EXPECT_NE(file->mapping(), nullptr);
    return file;
  }

  /// descriptors returns how many descriptors lead to a path, or did before it was removed.
  static long descriptors(const std::string &path) {
    long found = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      found += std::filesystem::read_symlink(entry, gone).string().starts_with(path) ? 1 : 0;
    }
    return found;
  }

  support::TemporaryDirectory directory_;
  const std::string path_ = directory_.write("file", "bytes of a file");
};

TEST_F(SharedFileTest, IsOneForAllWhoOpenTheSameFile) {
  const auto one = share(path_), two = share(path_);
  ASSERT_TRUE(one);
  EXPECT_EQ(one, two);
  EXPECT_EQ(descriptors(path_), 1);
  EXPECT_EQ(one->size(), 15);
  EXPECT_NE(::fcntl(one->fd(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(share(directory_.write("other", "bytes of a file")), one);
}

TEST_F(SharedFileTest, IsAnotherAfterAChange) {
  const auto before = share(path_);
  EXPECT_TRUE(before->is_unchanged());
  ASSERT_EQ(::truncate(path_.c_str(), 3), 0);
  EXPECT_FALSE(before->is_unchanged());
  const auto after = share(path_);
  EXPECT_NE(after, before);
  EXPECT_EQ(after->size(), 3);
  const timespec times[] = {{1, 0}, {1, 1}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
  EXPECT_FALSE(after->is_unchanged());
}

TEST_F(SharedFileTest, StaysMappedBetweenAnswersAsLongAsItHasAName) {
  EXPECT_EQ(std::string(mapped(path_)->mapping(), 5), "bytes");
  EXPECT_EQ(descriptors(path_), 1);
  SharedFile::let_go_former();
  EXPECT_EQ(descriptors(path_), 1);
  std::filesystem::remove(path_);
  EXPECT_EQ(descriptors(path_), 1);
  SharedFile::let_go_former();
  EXPECT_EQ(descriptors(path_), 0);
}

TEST_F(SharedFileTest, StaysMappedNoLongerThanItIsUnchanged) {
  mapped(path_);
  ASSERT_EQ(::truncate(path_.c_str(), 3), 0);
  SharedFile::let_go_former();
  EXPECT_EQ(descriptors(path_), 0);
}

TEST_F(SharedFileTest, IsMappedForALargePartOfIt) {
  const auto file = share(directory_.write("large", std::string(8000, 'x')));
  EXPECT_EQ(file->mapping(), nullptr) << "nothing is expected";
  file->expect(1000);
  EXPECT_NE(file->mapping(), nullptr);
}

TEST_F(SharedFileTest, IsMappedForTheSecondSmallPartOfIt) {
  const std::string path = directory_.write("large", std::string(8000, 'x'));
  share(path)->expect(999);
  EXPECT_EQ(share(path)->mapping(), nullptr);
  EXPECT_EQ(descriptors(path), 1) << "it stays open, or it would forget";
  share(path)->expect(1);
  EXPECT_NE(share(path)->mapping(), nullptr);
}

TEST_F(SharedFileTest, IsKeptUntilOthersAreExpected) {
  const auto expected = [this](std::size_t number) {
    std::string path = directory_.write("expected" + std::to_string(number), "x");
    share(path)->expect(1);
    return path;
  };
  const std::string first = expected(0), second = expected(1);
  for (std::size_t i = 2; i <= SharedFile::kept_limit; ++i) expected(i);
  EXPECT_EQ(descriptors(first), 0);
  EXPECT_EQ(descriptors(second), 1);
}

TEST_F(SharedFileTest, SurvivesItsNameWhileItIsUsed) {
  const auto file = share(path_);
  file->expect(file->size());
  std::filesystem::remove(path_);
  SharedFile::let_go_former();
  EXPECT_TRUE(file->is_unchanged()) << "its bytes are";
  EXPECT_EQ(std::string(file->mapping(), 5), "bytes");
}

TEST_F(SharedFileTest, LetsGoOfALargeMappingAside) {
  const std::string path = directory_.path("large");
  {
    const HostFileGuard file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    ASSERT_EQ(::ftruncate(file.get(), 16 << 20), 0);
  }
  mapped(path);
  ASSERT_EQ(::truncate(path.c_str(), 1), 0);
  SharedFile::let_go_former();
  for (int i = 0; i < 6000 && descriptors(path) > 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(descriptors(path), 0);
}

TEST_F(SharedFileTest, MayHaveNoMapping) {
  const auto empty = share(directory_.write("empty", ""));
  empty->expect(1);
  EXPECT_EQ(empty->mapping(), nullptr);
}

TEST_F(SharedFileTest, NeedsADescriptor) {
  EXPECT_EQ(SharedFile::open(-1), nullptr);
  EXPECT_EQ(errno, EBADF);
}

}  // namespace
