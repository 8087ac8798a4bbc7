// SPDX-License-Identifier: MIT
/// Replacing the running program by another one without closing the listening sockets.
///
/// The master starts the program that its own path names by now, with the same arguments and with the listening sockets
/// as inherited ones (inherited_sockets.h). When the new server is ready, it says so through a pipe, and the old one
/// stops. If it ends before that, the old one continues.
#ifndef HOSTS_RDMD_MASTER_UPGRADE_H
#define HOSTS_RDMD_MASTER_UPGRADE_H

#include <sys/types.h>

#include <string>
#include <vector>

#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/log.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

class Upgrade {
 public:
  /// Remembers the path of the program and its arguments. Takes the pipe to the predecessor out of the environment, so
  /// construct it before threads start.
  explicit Upgrade(char **arguments);

  /// report_ready tells the predecessor, if there is one, that this server has taken over.
  void report_ready();

  /// start starts the new program, unless one is being started.
  void start(const std::vector<ListeningSocket> &listeners, ErrorLog &errors);
  /// descriptor returns a descriptor that becomes readable when the new program is ready or has ended; -1: none is
  /// being started.
  host_fd descriptor() const { return successor_.get(); }
  /// finished returns true if the new program is ready. Call it when the descriptor is readable.
  bool finished(ErrorLog &errors);
  /// successor returns the process that is being started or has taken over, or -1.
  pid_t successor() const { return successor_process_; }

 private:
  [[noreturn]] void become(const std::vector<ListeningSocket> &listeners, host_fd report) const noexcept;

  std::string program_;
  char **arguments_;
  HostFileGuard predecessor_;
  HostFileGuard successor_;
  pid_t successor_process_ = -1;
};

}  // namespace rdm::rdmd

#endif
