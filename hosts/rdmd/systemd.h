// SPDX-License-Identifier: MIT
/// Tells the service manager about the state of the server, by the protocol of sd_notify(3): datagrams to the socket
/// that NOTIFY_SOCKET names. Without that variable every procedure does nothing.
///
/// No procedure throws or reports an error: the server works without its service manager. A message that the socket
/// does not take within a second is dropped.
#ifndef HOSTS_RDMD_SYSTEMD_H
#define HOSTS_RDMD_SYSTEMD_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

namespace rdm::rdmd {

class ServiceManager {
 public:
  /// Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID. They stay in the environment for a program that takes over.
  ServiceManager();

  /// ready says that the server serves, or serves again after reloading; `status` is shown to the operator.
  void ready(const std::string &status) const;
  /// reloading says that the configuration is read again; call ready afterwards.
  void reloading() const;
  void stopping() const;
  /// taken_over says that another process is the server now. Only the server so far may say so.
  void taken_over(pid_t process) const;
  /// alive restarts the watchdog.
  void alive() const;
  /// watchdog returns how often alive must be called: twice in the time after which the service manager would end the
  /// server. Returns std::nullopt if there is no watchdog over this process.
  std::optional<std::chrono::microseconds> watchdog() const { return watchdog_; }

 private:
  void send(const std::string &message) const;

  std::string socket_;  // a path, or "@" and the name of an abstract socket; empty: none
  std::optional<std::chrono::microseconds> watchdog_;
};

}  // namespace rdm::rdmd

#endif
