// SPDX-License-Identifier: MIT
/// Processes that the master forks, and memory that is short for them.

#include "hosts/rdmd/master/children.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <new>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/log.h"
#include "hosts/rdmd/master/upgrade.h"
#include "support/refused_new.h"

using namespace rdm;
using namespace rdm::rdmd;

namespace {

int end_at_once(HostFileGuard) { return 7; }

TEST(Children, EndWithTheStatusOfWhatTheyRun) {
  const Child child = start_child("child", std::chrono::seconds(1), end_at_once);
  int status = 0;
  ASSERT_EQ(::waitpid(child.pid, &status, 0), child.pid);
  EXPECT_EQ(describe_end(status), "exited with status 7");
}

TEST(Children, AreNotStartedWithoutMemoryForTheirDescriptors) {
  // Regression: the child had the exception, and continued as another master.
  const std::vector<host_fd> kept = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
  const pid_t test = ::getpid();
  const support::RefusedNew list(kept.size() * sizeof(host_fd), kept.size() * sizeof(host_fd));
  try {
    const Child child = start_child("child", std::chrono::seconds(1), end_at_once, kept);
    ::waitpid(child.pid, nullptr, 0);
    ADD_FAILURE() << "a child was started";
  } catch (const std::bad_alloc &) {
    if (::getpid() != test) ::_exit(EXIT_FAILURE);
  }
}

TEST(Children, ANewProgramWithoutMemoryEnds) {
  // Regression: the new process had the exception, and continued as another master.
  std::vector<char> name = {'x', '\0'};
  char *arguments[] = {name.data(), nullptr};
  Upgrade upgrade(arguments);
  ErrorLog errors("/dev/null");
  std::vector<ListeningSocket> listeners(1);
  listeners[0].socket = HostFileGuard(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const pid_t test = ::getpid();
  const support::RefusedNew list(1, sizeof(int));
  try {
    upgrade.start(listeners, errors);
  } catch (const std::bad_alloc &) {
    if (::getpid() != test) ::_exit(EXIT_SUCCESS);
    throw;
  }
  EXPECT_FALSE(upgrade.finished(errors));
  int status = 0;
  ASSERT_EQ(::waitpid(upgrade.successor(), &status, 0), upgrade.successor());
  EXPECT_EQ(describe_end(status), "was killed by signal 6 (Aborted)");
}

}  // namespace
