// SPDX-License-Identifier: MIT
#include "hosts/rdmd/master/upgrade.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>

#include "hosts/rdmd/signals.h"
#include "qxapi/number.h"
#include "qxapi/uninterrupted.h"

namespace rdm::rdmd {
namespace {

/// The number of the pipe to the predecessor.
constexpr const char *predecessor_variable = "RDMD_PREDECESSOR";
/// The first inherited socket of the protocol of sd_listen_fds(3).
constexpr int first_socket = 3;
/// What a server that has taken over writes into that pipe. A process that cannot execute the program writes why.
constexpr std::string_view ready = "r";

std::string reason() { return std::generic_category().message(errno); }

HostFileGuard take_predecessor() {
  const char *const text = std::getenv(predecessor_variable);
  const std::optional<int> fd = text != nullptr ? parse_number<int>(text) : std::nullopt;
  ::unsetenv(predecessor_variable);
  if (!fd || *fd < first_socket || ::fcntl(*fd, F_SETFD, FD_CLOEXEC) != 0) return HostFileGuard();
  return HostFileGuard(*fd);
}

/// move_to_first gives descriptors the numbers from first_socket on, in their order, and makes them survive execv().
/// Returns false with errno set if that fails, as with EMFILE.
bool move_to_first(std::vector<int> descriptors) {
  const int beyond = first_socket + static_cast<int>(descriptors.size());
  for (int &fd : descriptors) {
    fd = ::fcntl(fd, F_DUPFD, beyond);
    if (fd < 0) return false;
  }
  for (std::size_t i = 0; i < descriptors.size(); ++i) ::dup2(descriptors[i], first_socket + static_cast<int>(i));
  ::close_range(static_cast<unsigned>(beyond), UINT_MAX, 0);
  return true;
}

/// fail ends the new process and tells the master why.
[[noreturn]] void fail(host_fd report, const std::string &what) {
  ::dprintf(report, "%s: %s", what.c_str(), reason().c_str());
  ::_exit(127);
}

}  // namespace

Upgrade::Upgrade(char **arguments) : arguments_(arguments), predecessor_(take_predecessor()) {
  std::error_code ignored;
  program_ = std::filesystem::read_symlink("/proc/self/exe", ignored).string();
  // Where /proc is not mounted.
  if (program_.empty()) program_ = arguments[0];
}

void Upgrade::report_ready() {
  if (predecessor_) uninterrupted([this] { return ::write(predecessor_.get(), ready.data(), ready.size()); });
  predecessor_ = HostFileGuard();
}

void Upgrade::start(const std::vector<ListeningSocket> &listeners, ErrorLog &errors) {
  if (successor_) return errors.info("upgrade: the new program is already being started");
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errors.error("upgrade: pipe: " + reason());
  successor_ = HostFileGuard(ends[0]);
  const HostFileGuard report(ends[1]);
  successor_process_ = ::fork();
  if (successor_process_ == 0) become(listeners, report.get());
  if (successor_process_ > 0)
    return errors.info("upgrade: starting " + program_ + " (process " + std::to_string(successor_process_) + ")");
  successor_ = HostFileGuard();
  errors.error("upgrade: fork: " + reason());
}

/// become runs in the new process. No exception may leave it: that process would continue as another master.
void Upgrade::become(const std::vector<ListeningSocket> &listeners, host_fd report) const noexcept {
  std::vector<int> descriptors;
  std::string names;
  for (const ListeningSocket &listener : listeners) {
    descriptors.push_back(listener.socket.get());
    names += (names.empty() ? "" : ":") + inherited_name(listener);
  }
  descriptors.push_back(report);
  const auto sockets = listeners.size();
  if (!move_to_first(std::move(descriptors))) fail(report, "move the listening sockets");
  const int moved_report = first_socket + static_cast<int>(sockets);
  ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
  ::setenv("LISTEN_FDS", std::to_string(sockets).c_str(), 1);
  ::setenv("LISTEN_FDNAMES", names.c_str(), 1);
  ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
  ::setenv(predecessor_variable, std::to_string(moved_report).c_str(), 1);
  hold_signals();
  ::execv(program_.c_str(), arguments_);
  fail(moved_report, "execv " + program_);
}

bool Upgrade::finished(ErrorLog &errors) {
  char text[512];
  const ssize_t size = uninterrupted([&] { return ::read(successor_.get(), text, sizeof text); });
  const std::string_view said(text, static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  const bool is_ready = said == ready;
  successor_ = HostFileGuard();
  if (is_ready)
    errors.info("upgrade: process " + std::to_string(successor_process_) + " has taken over");
  else
    errors.error("upgrade: the new program ended before it was ready" + (said.empty() ? "" : ": " + std::string(said)) +
                 "; the old one continues");
  return is_ready;
}

}  // namespace rdm::rdmd
