// SPDX-License-Identifier: MIT
/// Listening sockets inherited from the process that started this one, by the protocol of sd_listen_fds(3): LISTEN_PID
/// names this process, LISTEN_FDS counts descriptors from 3 on, LISTEN_FDNAMES holds a name of each, separated by ":".
#ifndef HOSTS_RDMD_INHERITED_SOCKETS_H
#define HOSTS_RDMD_INHERITED_SOCKETS_H

#include <string>
#include <vector>

#include "hosts/rdmd/listen_address.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// InheritedSocket is a descriptor with its name; the name is empty if LISTEN_FDNAMES does not name it.
struct InheritedSocket {
  HostFileGuard socket;
  std::string name;
};

/// take_inherited_sockets returns the inherited descriptors and makes them close-on-exec and non-blocking. A number
/// that is not open is left out. It removes the three variables from the environment, so that no child process takes
/// them for its own, and therefore must be called before the process starts threads. Returns an empty vector if the
/// variables are absent, malformed, or meant for another process.
std::vector<InheritedSocket> take_inherited_sockets();

/// is_listening_stream returns true if a descriptor is a listening stream socket for IPv4, IPv6 or local clients.
bool is_listening_stream(host_fd socket);

}  // namespace rdm::rdmd

#endif
