// SPDX-License-Identifier: MIT
/// The listening sockets of a server: those that its options name and those that it inherits.
///
/// Everything here works in a process without threads, so that a process can open the sockets and then fork.
#ifndef HOSTS_RDMD_LISTENERS_H
#define HOSTS_RDMD_LISTENERS_H

#include <functional>
#include <string>
#include <vector>

#include "hosts/rdmd/inherited_sockets.h"
#include "hosts/rdmd/settings.h"
#include "hosts/rdmd/socket_file.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {

/// ListeningSocket is a bound socket; it may listen already if it was inherited.
struct ListeningSocket {
  HostFileGuard socket;
  std::string address;  // "127.0.0.1:8380", "[::1]:8380" or "unix:/run/rdmd.socket", for messages
  bool tls = false;     // its clients speak TLS
  SocketFile file;      // of a Unix socket that this process has made
};

/// listen_texts returns the addresses of the option --listen, or the default address if the option is not given.
std::vector<std::string> listen_texts(const Settings &settings);

/// open_listeners returns a socket for every address that the options name, in their order, and does not begin to
/// listen. It takes an inherited socket that has the address (port 0 matches any port of the host), and binds one
/// otherwise. Inherited sockets that no option names follow if the options name no address at all; then the default
/// address is not bound either. Otherwise they are closed, and `warn` gets a text about each, as well as about each
/// address of a name that this machine does not have. Throws ListenError.
std::vector<ListeningSocket> open_listeners(const Settings &settings, std::vector<InheritedSocket> inherited,
                                            const std::function<void(const std::string &)> &warn);

/// begin_listening makes the kernel accept clients of a socket that open_listeners returned. `socket` is its
/// descriptor, which may have been moved out of `from`. Throws ListenError, with EADDRINUSE if another process has
/// taken the address since it was bound.
void begin_listening(host_fd socket, const ListeningSocket &from);

}  // namespace rdm::rdmd

#endif
