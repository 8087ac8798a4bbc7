// SPDX-License-Identifier: MIT
#include "tools/rdmctl/supervisor.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "catalog/os/error.h"
#include "qxapi/ascii.h"

namespace rdm::rdmctl {
namespace {

namespace fs = std::filesystem;

/// parent_of reads the parent from /proc/PID/stat: "4711 (name) S 4710 ...". The name may hold any character.
pid_t parent_of(const fs::path &process) {
  std::ifstream file(process / "stat");
  std::string text;
  std::getline(file, text);
  const size_t name_end = text.rfind(')');
  if (name_end == std::string::npos || name_end + 4 > text.size()) return -1;
  return ascii::to_int32(std::string_view(text).substr(name_end + 4));
}

std::vector<pid_t> children() {
  std::vector<pid_t> found;
  std::error_code ignored;
  for (const auto &entry : fs::directory_iterator("/proc", ignored)) {
    const pid_t process = ascii::to_int32(entry.path().filename().string());
    if (process > 0 && parent_of(entry.path()) == ::getpid()) found.push_back(process);
  }
  return found;
}

/// end_children kills the child and the commands that it ran, which become children of this process: SIGTERM for five
/// seconds, then SIGKILL.
void end_children() {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds timeout(5000), pause(10);
  const auto start = Clock::now();
  for (;;) {
    for (const pid_t child : children()) ::kill(child, Clock::now() - start < timeout ? SIGTERM : SIGKILL);
    pid_t reaped = 1;
    while (reaped > 0) reaped = ::waitpid(-1, nullptr, WNOHANG);
    if (reaped == -1 && errno == ECHILD) return;
    std::this_thread::sleep_for(pause);
  }
}

/// await_end waits until the child has ended or one of the held signals arrives.
ChildExit await_end(pid_t child, const HeldSignals &signals) {
  sigset_t awaited = signals.held();
  ::sigaddset(&awaited, SIGCHLD);
  constexpr timespec second{1, 0};
  for (;;) {
    int status = 0;
    if (::waitpid(child, &status, WNOHANG) == child)
      return WIFSIGNALED(status) ? ChildExit{0, WTERMSIG(status)} : ChildExit{WEXITSTATUS(status), 0};
    const int signal = ::sigtimedwait(&awaited, nullptr, &second);
    if (signal > 0 && signal != SIGCHLD) return {0, signal};
  }
}

}  // namespace

HeldSignals::HeldSignals() {
  ::sigemptyset(&held_);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&held_, signal);
  sigset_t blocked = held_;
  ::sigaddset(&blocked, SIGCHLD);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before_);
}

HeldSignals::~HeldSignals() { release(); }

void HeldSignals::release() const { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

std::optional<ChildExit> supervise(const HeldSignals &signals) {
  // The children of a child that has ended become children of this process, not of init.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  std::signal(SIGCHLD, SIG_DFL);
  std::cout.flush();
  const pid_t child = ::fork();
  if (child == -1) throw catalog::system_failure("fork");
  if (child == 0) {
    signals.release();
    return std::nullopt;
  }
  const ChildExit ended = await_end(child, signals);
  if (ended.signal != 0) end_children();
  return ended;
}

}  // namespace rdm::rdmctl
