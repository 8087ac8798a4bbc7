// SPDX-License-Identifier: MIT
#include "speed/processes.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;
using namespace rdm::bench;

namespace {

TEST(Processes, RunTimeIsTheFirstNumberOfSchedstat) {
  EXPECT_EQ(run_time("123456789 17 4\n"), 123456789);
  EXPECT_EQ(run_time(""), 0);
}

TEST(Processes, StatusHasKilobytes) {
  const std::string status = "Name:\tRssAnon\nRssAnon:\t     520 kB\nRssFile:\t    4096 kB\nRssShmem:\t       8 kB\n";
  EXPECT_EQ(status_bytes(status, "RssAnon"), 520 * 1024);
  EXPECT_EQ(status_bytes(status, "RssShmem"), 8 * 1024);
  EXPECT_EQ(status_bytes(status, "Rss"), 0);
  EXPECT_EQ(status_bytes("", "RssAnon"), 0);
}

TEST(Processes, ChildrenBelongToTheirParent) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::pause();
    ::_exit(0);
  }
  EXPECT_THAT(processes_of(::getpid()), testing::Contains(child));
  EXPECT_EQ(processes_of(child), std::vector<pid_t>{child});
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

TEST(Processes, CpuTimeGrowsWithWork) {
  const double before = cpu_time({::getpid()});
  volatile unsigned sum = 0;
  for (const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
       std::chrono::steady_clock::now() < end;)
    sum = sum + 1;
  EXPECT_GT(cpu_time({::getpid()}), before);
}

TEST(Processes, UnlinkedFilesCountOnce) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("file", std::string(100'000, 'x'));
  const std::uint64_t before = unlinked_bytes({::getpid()});
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC), second = ::dup(file);
  EXPECT_EQ(unlinked_bytes({::getpid()}), before);
  ::unlink(path.c_str());
  EXPECT_GE(unlinked_bytes({::getpid()}), before + 100'000);
  EXPECT_LT(unlinked_bytes({::getpid()}), before + 200'000);
  ::close(second);
  ::close(file);
}

TEST(Processes, ThatHaveEndedTakeNothing) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(cpu_time({child}), 0);
  EXPECT_EQ(own_memory({child}), 0);
  EXPECT_EQ(unlinked_bytes({child}), 0);
}

}  // namespace
