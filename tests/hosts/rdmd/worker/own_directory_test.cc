// SPDX-License-Identifier: MIT
/// The directories of workers: used by one, removed with it or after it.

#include "hosts/rdmd/worker/own_directory.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"

using namespace rdm;
using namespace rdm::rdmd;

namespace {

class WorkerDirectory : public ::testing::Test {
 protected:
  support::TemporaryDirectory parent_;
};

TEST_F(WorkerDirectory, IsPrivateAndEndsWithItsContents) {
  std::string path;
  {
    const OwnDirectory directory(parent_.path());
    path = directory.path();
    struct stat status;
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    support::write_file(path + "/file", "text");
  }
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(WorkerDirectory, StaysWhileItsWorkerLives) {
  const OwnDirectory directory(parent_.path());
  remove_unused_directories(parent_.path());
  EXPECT_TRUE(support::file_exists(directory.path()));
}

TEST_F(WorkerDirectory, IsNotTakenForUnusedWhileItIsMade) {
  std::atomic<bool> made_all = false;
  std::thread remover([&] {
    while (!made_all) remove_unused_directories(parent_.path());
  });
  int lost = 0;
  for (int i = 0; i < 1000; ++i) {
    const OwnDirectory directory(parent_.path());
    lost += support::file_exists(directory.path()) ? 0 : 1;
  }
  made_all = true;
  remover.join();
  EXPECT_EQ(lost, 0);
}

TEST_F(WorkerDirectory, OfAKilledWorkerIsRemovedByTheNext) {
  int ready[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  const pid_t worker = ::fork();
  if (worker == 0) {
    const OwnDirectory directory(parent_.path());
    support::write_file(directory.path() + "/file", "text");
    [[maybe_unused]] const ssize_t told = ::write(ready[1], "y", 1);
    for (;;) ::pause();
  }
  char told = '?';
  EXPECT_EQ(::read(ready[0], &told, 1), 1);
  ::kill(worker, SIGKILL);
  ::waitpid(worker, nullptr, 0);
  EXPECT_FALSE(std::filesystem::is_empty(parent_.path()));
  remove_unused_directories(parent_.path());
  EXPECT_TRUE(std::filesystem::is_empty(parent_.path()));
  ::close(ready[0]);
  ::close(ready[1]);
}

TEST_F(WorkerDirectory, NothingElseIsRemoved) {
  const std::string other = parent_.path("other"), file = parent_.write("rdmd-worker-file", "text"),
                    link = parent_.path("rdmd-worker-link");
  std::filesystem::create_directory(other);
  std::filesystem::create_directory_symlink(other, link);
  remove_unused_directories(parent_.path());
  remove_own_directory(other);
  remove_own_directory("");
  for (const std::string &path : {other, file, link}) EXPECT_TRUE(support::file_exists(path)) << path;
}

TEST_F(WorkerDirectory, ThatCannotBeMadeIsAnError) {
  EXPECT_THROW(OwnDirectory(parent_.path("nowhere")), std::system_error);
}

}  // namespace
