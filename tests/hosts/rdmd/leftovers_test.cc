// SPDX-License-Identifier: MIT
/// Removal of temporary files of killed processes.

#include "hosts/rdmd/leftovers.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "qxapi/guard.h"
#include "qxapi/temporary_owner.h"
#include "support/files.h"

using namespace rdm;

namespace {

using rdmd::remove_leftovers;

constexpr char token[] = "0123456789abcdef", digits[] = "00112233445566ff";

class Leftovers : public ::testing::Test {
 protected:
  /// make creates a file with this name and returns its path.
  std::string make(const std::string &name) const { return directory_.write(name, "text"); }
  static std::string name_with(const std::string &owner) { return "csio" + owner + digits; }

  support::TemporaryDirectory directory_;
};

TEST_F(Leftovers, FilesOfKilledProcessesAreRemovedAndFilesOfLivingProcessesStay) {
  // Regression: each kill during a long answer left a file, until the disk was full.
  const std::string path = make(name_with(token));
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const std::string place = directory_.path();
  const pid_t owner = ::fork();
  if (owner == 0) {
    const int fd = ::open(place.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool held = temporary_owner::hold(fd, 0x0123456789abcdef);
    [[maybe_unused]] const ssize_t told = ::write(ends[1], held ? "y" : "n", 1);
    for (;;) ::pause();
  }
  char held = '?';
  EXPECT_EQ(::read(ends[0], &held, 1), 1);
  EXPECT_EQ(held, 'y');
  EXPECT_EQ(remove_leftovers(place), 0u);
  EXPECT_TRUE(support::file_exists(path));
  ::kill(owner, SIGKILL);
  ::waitpid(owner, nullptr, 0);
  EXPECT_EQ(remove_leftovers(place), 1u);
  EXPECT_FALSE(support::file_exists(path));
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST_F(Leftovers, NothingElseIsRemoved) {
  const std::string others[] = {
      "csio",
      "csio0123456789abcdef",         // made without a token
      name_with("f123456789abcdef"),  // no token: a place of a file is not negative
      name_with("0123456789abcdeF"),  // another's spelling
      name_with(token) + "0",
      "csrds" + std::string(token) + digits,
      name_with(token).substr(1),
  };
  for (const std::string &name : others) make(name);
  std::filesystem::create_directory(directory_.path(name_with("0000000000000001")));
  std::filesystem::create_symlink(others[0], directory_.path(name_with("0000000000000002")));
  ASSERT_EQ(::mkfifo(directory_.path(name_with("0000000000000003")).c_str(), 0600), 0);
  EXPECT_EQ(remove_leftovers(directory_.path()), 0u);
  for (const std::string &name : others) EXPECT_TRUE(support::file_exists(directory_.path(name))) << name;
}

TEST_F(Leftovers, ADirectoryThatCannotBeReadOrIsNotOfALocalDiskHasNone) {
  EXPECT_EQ(remove_leftovers("/nonexistent"), 0u);
  EXPECT_EQ(remove_leftovers("/proc"), 0u);
}

}  // namespace
