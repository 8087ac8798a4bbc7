// SPDX-License-Identifier: MIT
#include "tools/rdmgather/child.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "qxapi/guard.h"
#include "qxapi/uninterrupted.h"

namespace rdm::gather {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t piece = 1 << 14;

/// SpawnSettings makes the child the leader of a process group, with the default action of SIGPIPE.
class SpawnSettings {
 public:
  SpawnSettings(int input, int output) {
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawn_file_actions_init(&actions_);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setpgroup(&attributes_, 0);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    ::posix_spawn_file_actions_adddup2(&actions_, input, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  }
  SpawnSettings(const SpawnSettings &) = delete;
  SpawnSettings &operator=(const SpawnSettings &) = delete;
  ~SpawnSettings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }

  std::optional<pid_t> spawn(std::vector<std::string> &words) const {
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    pid_t child = 0;
    const int error = ::posix_spawnp(&child, arguments.front(), &actions_, &attributes_, arguments.data(), environ);
    return error == 0 ? std::optional(child) : std::nullopt;
  }

 private:
  posix_spawnattr_t attributes_;
  posix_spawn_file_actions_t actions_;
};

/// Child kills the group of a process and waits for the process at the end of its scope.
class Child {
 public:
  explicit Child(pid_t process) : process_(process) {}
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;
  ~Child() {
    ::kill(-process_, SIGKILL);
    uninterrupted([this] { return ::waitpid(process_, nullptr, 0); });
  }

  /// has_succeeded waits until a time and returns true if the process has ended with status 0.
  bool has_succeeded(Clock::time_point deadline) {
    constexpr std::chrono::milliseconds pause(5);
    siginfo_t info = {};
    // WNOWAIT: the process stays a zombie, so that its number stays that of the group until the group is killed.
    while (::waitid(P_PID, static_cast<id_t>(process_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0) {
      if (Clock::now() >= deadline) return false;
      std::this_thread::sleep_for(pause);
    }
    return info.si_code == CLD_EXITED && info.si_status == 0;
  }

 private:
  pid_t process_;
};

/// wait_for_bytes returns false at the deadline.
bool wait_for_bytes(int pipe, Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  pollfd wanted{pipe, POLLIN, 0};
  return left > 0 && uninterrupted([&] { return ::poll(&wanted, 1, static_cast<int>(left)); }) > 0;
}

enum class End { closed, full, late };

End read_all(int pipe, size_t limit, Clock::time_point deadline, std::string &output) {
  while (wait_for_bytes(pipe, deadline)) {
    const size_t before = output.size();
    output.resize(before + piece);
    const ssize_t got = uninterrupted([&] { return ::read(pipe, output.data() + before, piece); });
    output.resize(before + static_cast<size_t>(std::max<ssize_t>(got, 0)));
    if (got <= 0) return End::closed;
    if (output.size() > limit) return output.resize(limit), End::full;
  }
  return End::late;
}

}  // namespace

std::optional<std::string> output_of(std::vector<std::string> words, int input, const Limits &limits) {
  const Clock::time_point deadline = Clock::now() + limits.time;
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return std::nullopt;
  const HostFileGuard out(ends[0]);
  HostFileGuard in(ends[1]);
  const std::optional<pid_t> process = SpawnSettings(input, in.get()).spawn(words);
  if (!process) return std::nullopt;
  Child child(*process);
  in = HostFileGuard();
  std::string output;
  const End end = read_all(out.get(), limits.output, deadline, output);
  const bool is_usable = end == End::full || (end == End::closed && child.has_succeeded(deadline));
  return is_usable ? std::optional(output) : std::nullopt;
}

}  // namespace rdm::gather
