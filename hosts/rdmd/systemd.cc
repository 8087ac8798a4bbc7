// SPDX-License-Identifier: MIT
#include "hosts/rdmd/systemd.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#include "qxapi/guard.h"
#include "qxapi/number.h"

namespace rdm::rdmd {
namespace {

std::string variable(const char *name) {
  const char *const value = std::getenv(name);
  return value != nullptr ? value : "";
}

/// watchdog_interval returns half of WATCHDOG_USEC if WATCHDOG_PID is absent or names this process.
std::optional<std::chrono::microseconds> watchdog_interval() {
  const auto limit = parse_number<std::int64_t>(variable("WATCHDOG_USEC"));
  const std::string process = variable("WATCHDOG_PID");
  if (!limit || *limit < 2 || (!process.empty() && parse_number<pid_t>(process) != ::getpid())) return std::nullopt;
  return std::chrono::microseconds(*limit / 2);
}

std::int64_t monotonic_microseconds() {
  struct timespec now {};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

}  // namespace

ServiceManager::ServiceManager() : socket_(variable("NOTIFY_SOCKET")), watchdog_(watchdog_interval()) {
  const bool usable = socket_.size() > 1 && (socket_.front() == '/' || socket_.front() == '@');
  if (!usable || socket_.size() >= sizeof sockaddr_un::sun_path) socket_.clear();
  if (socket_.empty()) watchdog_.reset();
}

void ServiceManager::ready(const std::string &status) const { send("READY=1\nSTATUS=" + status + "\n"); }

void ServiceManager::reloading() const {
  send("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(monotonic_microseconds()) + "\n");
}

void ServiceManager::stopping() const { send("STOPPING=1\nSTATUS=Finishing answers under way\n"); }

void ServiceManager::taken_over(pid_t process) const { send("MAINPID=" + std::to_string(process) + "\n"); }

void ServiceManager::alive() const { send("WATCHDOG=1\n"); }

void ServiceManager::send(const std::string &message) const {
  if (socket_.empty()) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  socket_.copy(address.sun_path, socket_.size());
  if (socket_.front() == '@') address.sun_path[0] = '\0';
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  const HostFileGuard socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const struct timeval limit { 1, 0 };
  ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  ::sendto(socket.get(), message.data(), message.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&address),
           size);
}

}  // namespace rdm::rdmd
