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
  std::string address;      // "127.0.0.1:8380", "[::1]:8380" or "unix:/run/rdmd.socket", for messages
  bool tls = false;         // its clients speak TLS
  bool admin = false;       // it is one of the administration endpoint
  SocketFile file;          // of a Unix socket that this process has made
  bool takes_file = false;  // it is a Unix socket whose file its former owner leaves to this process
};

/// listen_texts returns the addresses of --listen and --tls-listen, or the default address if neither is given.
std::vector<std::string> listen_texts(const Settings &settings);

/// open_listeners returns a socket for every address that the options name, in their order, and does not begin to
/// listen. It takes an inherited socket that has the address (port 0 matches any port of the host), and binds one
/// otherwise. If the options name no address at all, it takes all inherited sockets and does not bind the default
/// address; a socket whose name begins with "tls" then speaks TLS. Inherited sockets that no option names are
/// closed, and `warn` gets a text about each, as well as about each address of a name that this machine does not have.
/// The sockets of --admin come first. Throws ListenError, also if --admin has an address of another option.
std::vector<ListeningSocket> open_listeners(const Settings &settings, std::vector<InheritedSocket> inherited,
                                            const std::function<void(const std::string &)> &warn);

/// inherited_name returns the name under which a process passes the socket to its successor: it tells whether the
/// socket speaks TLS, and whether the successor shall remove its file.
std::string inherited_name(const ListeningSocket &socket);

/// begin_listening makes the kernel accept clients of a socket that open_listeners returned. `socket` is its
/// descriptor, which may have been moved out of `from`. If the former owner leaves the file of the socket to this
/// process, `from` owns it now. Throws ListenError, with EADDRINUSE if another process has
/// taken the address since it was bound.
void begin_listening(host_fd socket, ListeningSocket &from);

}  // namespace rdm::rdmd

#endif
