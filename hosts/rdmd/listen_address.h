// SPDX-License-Identifier: MIT
/// The addresses that a server listens on: "HOST:PORT" is resolved, and a socket is bound to each address found.
///
/// Binding and listening are separate steps. A bound socket holds its address, so that an address in use is noticed at
/// once; clients are refused until its owner calls listen(). Nothing here depends on the server, so that a check of the
/// options can do the same.
#ifndef HOSTS_RDMD_LISTEN_ADDRESS_H
#define HOSTS_RDMD_LISTEN_ADDRESS_H

#include <sys/socket.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "qxapi/guard.h"

namespace rdm::rdmd {

/// ListenError says why the server cannot listen: "cannot listen on TEXT: REASON".
class ListenError : public std::runtime_error {
 public:
  ListenError(const std::string &text, const std::string &reason, int code = 0)
      : std::runtime_error("cannot listen on " + text + ": " + reason), code_(code) {}
  /// code is the errno of the system call that failed, as EADDRINUSE. 0 when the text is malformed or the name unknown.
  int code() const { return code_; }

 private:
  int code_;
};

/// ListenAddress is the address of a socket.
struct ListenAddress {
  sockaddr_storage storage{};
  socklen_t size = 0;

  int family() const { return storage.ss_family; }
  std::uint16_t port() const;
  void set_port(std::uint16_t port);
  /// text returns "127.0.0.1:8380" or "[::1]:8380".
  std::string text() const;
};

/// resolve_listen returns the addresses of "HOST:PORT" or "[IPV6]:PORT", each once, in the resolver's order; at least
/// one. Throws ListenError.
std::vector<ListenAddress> resolve_listen(const std::string &text);

/// bind_address returns a close-on-exec socket that is bound to the address and does not listen, or none with errno
/// set. With `v6_only` a socket for IPv6 takes no IPv4 clients, whatever the system's default.
HostFileGuard bind_address(const ListenAddress &address, bool v6_only);

/// BoundSockets are the sockets of one "HOST:PORT".
struct BoundSockets {
  std::vector<HostFileGuard> sockets;  // at least one
  std::vector<std::string> missing;    // "ADDRESS: REASON" of each address that this machine does not have
};

/// bind_listen binds a socket to every address of `text`. Port 0 takes a free port, the same for all of them. An
/// address that this machine does not have (a name may resolve to ::1 where IPv6 is off) is left out and named in
/// `missing`, unless no other is left. Throws ListenError when an address cannot be bound for any other reason.
BoundSockets bind_listen(const std::string &text);

/// local_address returns the address that a socket is bound to.
ListenAddress local_address(host_fd socket);

}  // namespace rdm::rdmd

#endif
