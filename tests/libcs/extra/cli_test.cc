// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/cs.h>
#include <libcs/log.h>

#include "qxapi/guard.h"
#include "support/diagnostics.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

/// The calls of fork() and waitpid() below: the errors to return, 0 for none, and what happened.
struct Calls {
  int fork_error = 0;
  int wait_error = 0;
  int wait_interruptions = 0;
  pid_t child = 0;
};
Calls calls;

template <typename Function>
Function *real(const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" pid_t fork() {
  if (calls.fork_error != 0) {
    errno = calls.fork_error;
    return -1;
  }
  return calls.child = real<pid_t()>("fork")();
}

extern "C" pid_t waitpid(pid_t pid, int *stat_loc, int options) {
  const pid_t ended = real<pid_t(pid_t, int *, int)>("waitpid")(pid, stat_loc, options);
  if (ended == -1 && errno == EINTR) ++calls.wait_interruptions;
  if (ended == -1 || calls.wait_error == 0) return ended;
  errno = calls.wait_error;
  *stat_loc = 0;
  return -1;
}

namespace {

/// Signal gives a signal a disposition for its lifetime.
class Signal {
 public:
  Signal(int number, void (*handler)(int)) : number_(number) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(number, &action, &old_);
  }
  Signal(const Signal &) = delete;
  Signal &operator=(const Signal &) = delete;
  ~Signal() { sigaction(number_, &old_, nullptr); }

 private:
  int number_;
  struct sigaction old_;
};

class CommandRunner : public support::HostTest {
 protected:
  CommandRunner() { calls = Calls{}; }

  support::TemporaryDirectory directory;
  support::Diagnostics diagnostics;
};

int limited(const char *command, int ignore_signals) {
  return cs_limited_cli_run(command, nullptr, 1, 2, ignore_signals, 0);
}

int limited_with_pipe(const char *command, const char *directory) {
  return cs_limited_cli_run(command, directory, -1, -1, 0, 1);
}

using Command = int (*)(const char *, const char *);
constexpr Command commands[] = {cs_cli_run, cs_cli_run_no_pipe, limited_with_pipe};

TEST_F(CommandRunner, ReturnsTheExitStatus) {
  const struct {
    const char *command;
    int status;
  } rows[] = {{"true", 0},
              {"false", 1},
              {"exit 3", 3},
              {"exit 255", 255},
              {"exit 256", 0},
              {"exit 300", 44},
              {"/no/such/program 2>/dev/null", 127},
              {"", 0}};
  for (const Command run : commands)
    for (const auto &row : rows) EXPECT_EQ(run(row.command, nullptr), row.status) << row.command;
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(CommandRunner, LeavesTheLineToTheShell) {
  const std::string out = directory.path("out"),
                    line = "printf '%s\\n' \"a  b\" 'c$d' $((1+2)) $0 $# | tr a-c A-C > " + out + " && exit 4";
  EXPECT_EQ(cs_cli_run(line.c_str(), nullptr), 4);
  EXPECT_EQ(support::read_file(out), "A  B\nC$d\n3\n/Bin/sh\n0\n");
}

TEST_F(CommandRunner, RunsInTheDirectory) {
  for (const Command run : commands) {
    EXPECT_EQ(run("pwd -P > out", directory.path().c_str()), 0);
    EXPECT_EQ(support::read_file(directory.path("out")), directory.path() + "\n");
  }
}

TEST_F(CommandRunner, RunsInTheCallersDirectoryIfChdirFails) {
  char here[4096];
  ASSERT_NE(getcwd(here, sizeof here), nullptr);
  const std::string out = directory.path("out");
  for (const char *missing : {"/no/such/directory", "", static_cast<const char *>(nullptr)}) {
    EXPECT_EQ(cs_cli_run(("pwd -P > " + out + "; exit 5").c_str(), missing), 5);
    EXPECT_EQ(support::read_file(out), std::string(here) + "\n");
  }
}

TEST_F(CommandRunner, TheCommandHasTheCallersStreams) {
  for (const Command run : commands) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(run("echo to output; echo to error >&2", nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to output\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to error\n");
  }
}

TEST_F(CommandRunner, TheCommandReadsTheCallersInput) {
  const HostFileGuard kept(fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  const HostFileGuard input(host_open_read(directory.write("in", "typed\n").c_str()));
  ASSERT_EQ(dup2(input.get(), STDIN_FILENO), STDIN_FILENO);
  EXPECT_EQ(cs_cli_run("read line && test \"$line\" = typed", nullptr), 0);
  dup2(kept.get(), STDIN_FILENO);
}

TEST_F(CommandRunner, TheCommandHasNoOtherDescriptor) {
  const HostFileGuard file(host_open_read(directory.write("file", "").c_str()));
  for (const int number : {50, 100, 200}) {
    const HostFileGuard inheritable(fcntl(file.get(), F_DUPFD, number));
    ASSERT_EQ(inheritable.get(), number);
    EXPECT_EQ(cs_cli_run(("test ! -e /proc/$$/fd/" + std::to_string(number)).c_str(), nullptr), 0) << number;
    EXPECT_NE(fcntl(number, F_GETFD), -1) << "it stays open in the caller";
  }
}

TEST_F(CommandRunner, ACommandThatASignalEndedReturnsZero) {
  for (const char *command : {"kill -KILL $$", "kill -TERM $$; exit 7", "kill -ABRT $$; exit 7"})
    EXPECT_EQ(cs_cli_run(command, nullptr), 0) << command;
}

TEST_F(CommandRunner, TheCommandIgnoresSignalsWhenAsked) {
  const struct {
    const char *command;
    int number;
    bool ignored;
  } rows[] = {{"kill -INT $$; exit 7", SIGINT, true},   {"kill -TERM $$; exit 7", SIGTERM, true},
              {"kill -USR1 $$; exit 7", SIGUSR1, true}, {"kill -USR2 $$; exit 7", SIGUSR2, true},
              {"kill -HUP $$; exit 7", SIGHUP, false},  {"kill -ALRM $$; exit 7", SIGALRM, false}};
  for (const auto &row : rows) {
    const Signal inherited(row.number, SIG_DFL);
    EXPECT_EQ(limited(row.command, 1), row.ignored ? 7 : 0) << row.command;
    EXPECT_EQ(limited(row.command, 0), 0) << row.command;
    EXPECT_EQ(cs_cli_run(row.command, nullptr), 0) << row.command;
    EXPECT_EQ(cs_cli_run_no_pipe(row.command, nullptr), 0) << row.command;
  }
}

TEST_F(CommandRunner, TheCallersDispositionsStay) {
  const Signal inherited(SIGUSR1, SIG_DFL);
  EXPECT_EQ(limited("true", 1), 0);
  struct sigaction now;
  sigaction(SIGUSR1, nullptr, &now);
  EXPECT_EQ(now.sa_handler, SIG_DFL);
}

TEST_F(CommandRunner, AnIgnoredSignalStaysIgnoredInTheCommand) {
  const Signal inherited(SIGUSR1, SIG_IGN);
  EXPECT_EQ(cs_cli_run("kill -USR1 $$; exit 7", nullptr), 7);
}

TEST_F(CommandRunner, AMissingStatusIsZero) {
  // With SIGCHLD ignored, children leave no status: waitpid() waits for their end and fails with ECHILD.
  const Signal children(SIGCHLD, SIG_IGN);
  const std::string out = directory.path("out");
  EXPECT_EQ(cs_cli_run(("echo done > " + out + "; exit 3").c_str(), nullptr), 0);
  EXPECT_EQ(support::read_file(out), "done\n");
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(CommandRunner, WaitsOnWhenASignalInterruptsIt) {
  const Signal ticks(SIGALRM, [](int) {});
  itimerval every_10_ms{{0, 10000}, {0, 10000}}, never{};
  setitimer(ITIMER_REAL, &every_10_ms, nullptr);
  EXPECT_EQ(cs_cli_run("sleep 0.2; exit 5", nullptr), 5);
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_GT(calls.wait_interruptions, 0);
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(CommandRunner, ReportsAWaitThatFails) {
  calls.wait_error = EINVAL;
  EXPECT_EQ(cs_cli_run("exit 3", nullptr), 0);
  EXPECT_EQ(diagnostics.text(), "WARNING: waitpid (pid=" + std::to_string(calls.child) + "): Invalid argument\n");
}

pid_t parent;
std::string exit_note;

TEST_F(CommandRunner, AShellThatCannotBeStartedReturnsOne) {
  // The child calls _exit(), so the atexit() handler of this process does not run in it.
  parent = ::getpid();
  exit_note = directory.path("note");
  std::atexit([] {
    if (::getpid() != parent) static_cast<void>(::creat(exit_note.c_str(), 0600));
  });
  const std::string longer_than_the_system_takes(8 << 20, ' ');
  for (const Command run : commands) EXPECT_EQ(run(longer_than_the_system_takes.c_str(), nullptr), 1);
  EXPECT_FALSE(support::file_exists(exit_note));
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(CommandRunner, ReportsThatThereIsNoProcess) {
  calls.fork_error = EAGAIN;
  EXPECT_EQ(cs_cli_run("exit 3", nullptr), -1);
  EXPECT_EQ(diagnostics.text(), "ERROR: fork: Resource temporarily unavailable\n");
}

class SearchPath : public support::HostTest {
 protected:
  static constexpr const char *variable = "SEARCH_PATH_TEST";
  ~SearchPath() override { unsetenv(variable); }

  std::string search(const std::string &name, const std::string &value) {
    setenv(variable, value.c_str(), 1);
    const HostText path(cs_search_path(name.c_str(), variable));
    EXPECT_STREQ(getenv(variable), value.c_str());
    return path ? path.get() : "(null)";
  }

  support::TemporaryDirectory directory;
};

TEST_F(SearchPath, FindsTheFirstDirectoryThatHasTheName) {
  support::TemporaryDirectory other;
  directory.write("both", "");
  directory.write("first", "");
  other.write("both", "");
  other.write("second", "");
  const std::string path = directory.path() + ":" + other.path();
  EXPECT_EQ(search("both", path), directory.path("both"));
  EXPECT_EQ(search("first", path), directory.path("first"));
  EXPECT_EQ(search("second", path), other.path("second"));
  EXPECT_EQ(search("none", path), "none");
}

TEST_F(SearchPath, SkipsMissingAndEmptyDirectories) {
  EXPECT_EQ(search("sh", "/nonexistent::/bin"), "/bin/sh");
  EXPECT_EQ(search("sh", ":::/bin:"), "/bin/sh");
  EXPECT_EQ(search("sh", "/nonexistent"), "sh");
  EXPECT_EQ(search("usr", ":"), "usr") << "an empty directory is not the root";
  EXPECT_EQ(search("sh", ""), "sh");
}

TEST_F(SearchPath, AsksOnlyWhetherThePathExists) {
  directory.write("file", "");
  EXPECT_EQ(search("file", directory.path()), directory.path("file"));
  EXPECT_EQ(search("bin", "/usr"), "/usr/bin");
  EXPECT_EQ(search("", "/usr"), "/usr/");
  EXPECT_EQ(search("bin/sh", "/nonexistent:/usr"), "/usr/bin/sh");
  EXPECT_EQ(search("file", directory.path() + "/"), directory.path() + "//file");
}

TEST_F(SearchPath, WithoutTheVariableReturnsACopyOfTheName) {
  unsetenv(variable);
  const char name[] = "sh";
  const HostText path(cs_search_path(name, variable));
  EXPECT_STREQ(path.get(), "sh");
  EXPECT_NE(path.get(), name);
}

TEST_F(SearchPath, HasNoLimitOfLength) {
  const std::string name(300, 'n');
  std::string path = directory.path();
  for (int i = 0; i < 100; ++i) path += "/.";
  directory.write(std::string(200, 'n'), "");
  EXPECT_EQ(search(std::string(200, 'n'), path), path + "/" + std::string(200, 'n'));
  EXPECT_EQ(search(name, std::string(20000, 'd')), name);
}

}  // namespace
