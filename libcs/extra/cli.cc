// SPDX-License-Identifier: MIT
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <string_view>

#include <libcs/cs.h>
#include <libcs/log.h>

#include "libcs/extra/join.h"
#include "qxapi/guard.h"
#include "qxapi/uninterrupted.h"

using namespace rdm;

namespace {

/// run_in_child executes the shell. Another thread may have held any lock at the fork(), so everything it calls is
/// async-signal-safe.
[[noreturn]] void run_in_child(const char *command, const char *directory, bool ignore_signals) {
  if (ignore_signals)
    for (const int number : {SIGINT, SIGTERM, SIGUSR1, SIGUSR2}) ::signal(number, SIG_IGN);
  // If chdir() fails, the command runs in the caller's directory.
  [[maybe_unused]] const bool entered = directory != nullptr && ::chdir(directory) == 0;
  ::close_range(STDERR_FILENO + 1, UINT_MAX, 0);
  ::execl("/bin/sh", "/bin/sh", "-c", command, nullptr);
  ::_exit(1);
}

/// wait_for returns the exit status of a child, or 0 if a signal ended it or waitpid() failed.
int wait_for(pid_t child) {
  int status = 0;
  if (uninterrupted([&] { return ::waitpid(child, &status, 0); }) != -1) return (status >> 8) & 0xff;
  if (errno != ECHILD)
    CSLOG(CSLOG_WARNING, "extra", "waitpid (pid=%d): %s\n", static_cast<int>(child), host_last_error_text());
  return 0;
}

/// find_in returns the path of the first existing `name` in a colon-separated list of directories, `name` itself if
/// there is none, or null if allocation fails.
HostText find_in(std::string_view directories, const char *name) {
  while (!directories.empty()) {
    const std::string_view directory = directories.substr(0, directories.find(':'));
    directories.remove_prefix(std::min(directory.size() + 1, directories.size()));
    if (directory.empty()) continue;
    HostText path = join(directory, '/', name);
    if (!path || ::access(path.get(), F_OK) == 0) return path;
  }
  return HostText(host_strdup(name));
}

}  // namespace

int cs_limited_cli_run(const char *command, const char *directory, long /*reserved1*/, long /*reserved2*/,
                       int ignore_signals, int /*pipe_flag*/) noexcept {
  const pid_t child = ::fork();
  if (child == 0) run_in_child(command, directory, ignore_signals != 0);
  if (child != -1) return wait_for(child);
  CSLOG(CSLOG_ERROR, "extra", "fork: %s\n", host_last_error_text());
  return -1;
}

int cs_cli_run(const char *command, const char *directory) noexcept {
  return cs_limited_cli_run(command, directory, 0, 0, 0, 0);
}

int cs_cli_run_no_pipe(const char *command, const char *directory) noexcept {
  return cs_limited_cli_run(command, directory, 0, 0, 0, 1);
}

char *cs_search_path(const char *name, const char *variable) noexcept {
  const char *directories = std::getenv(variable);
  return find_in(directories == nullptr ? "" : directories, name).release();
}
