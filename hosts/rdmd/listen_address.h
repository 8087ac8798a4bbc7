// SPDX-License-Identifier: MIT
/// Resolves "HOST:PORT" and binds a socket to each address found. Addresses of Unix sockets can be compared and shown.
///
/// Binding and listening are separate steps. A bound socket reserves its address, so EADDRINUSE is reported at once,
/// but clients are refused until listen() is called. This file does not depend on the server, so that --check can use
/// it too.
#ifndef HOSTS_RDMD_LISTEN_ADDRESS_H
#define HOSTS_RDMD_LISTEN_ADDRESS_H

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "qxapi/guard.h"

namespace rdm::rdmd {

/// ListenError is the reason why the server cannot listen: "cannot listen on TEXT: REASON".
class ListenError : public std::runtime_error {
 public:
  ListenError(const std::string &text, const std::string &reason, int code = 0)
      : std::runtime_error("cannot listen on " + text + ": " + reason), code_(code) {}
  /// code returns the errno of the failed system call, such as EADDRINUSE, or 0 if the text is malformed or the name
  /// unknown.
  int code() const { return code_; }

 private:
  int code_;
};

/// ListenAddress is a socket address.
struct ListenAddress {
  sockaddr_storage storage{};
  socklen_t size = 0;

  int family() const { return storage.ss_family; }
  std::uint16_t port() const;
  void set_port(std::uint16_t port);
  /// covers returns true if `other` has the same family, host and port; port 0 covers any port.
  bool covers(const ListenAddress &other) const;
  /// text returns "127.0.0.1:8380", "[::1]:8380" or "unix:PATH". The name of an abstract Unix socket begins with "@".
  std::string text() const;
};

/// resolve_listen returns the addresses of "HOST:PORT" or "[IPV6]:PORT" without duplicates, in the resolver's order; at
/// least one. Throws ListenError.
std::vector<ListenAddress> resolve_listen(const std::string &text);

/// bind_address returns a close-on-exec socket that is bound to the address but does not listen, or an empty guard with
/// errno set. If `v6_only`, an IPv6 socket does not accept IPv4 clients, whatever the system's default.
HostFileGuard bind_address(const ListenAddress &address, bool v6_only);

/// BoundSockets holds the sockets of one "HOST:PORT".
struct BoundSockets {
  std::vector<HostFileGuard> sockets;  // at least one
  std::vector<std::string> missing;    // "ADDRESS: REASON" of each address that this machine does not have
};

/// TakeSocket returns a socket that already has the address, or an empty guard.
using TakeSocket = std::function<HostFileGuard(const ListenAddress &)>;

/// bind_listen returns a socket for every address of `text`: one from `take`, or else one that it binds. For port 0 the
/// system chooses one port, the same for all addresses. An address that this machine does not have (a name may resolve
/// to ::1 while IPv6 is off) is skipped and listed in `missing`. Throws ListenError if no address is left, or if
/// binding one fails for any other reason.
BoundSockets bind_listen(const std::string &text, const TakeSocket &take = {});

/// local_address returns the address that a socket is bound to.
ListenAddress local_address(host_fd socket);

}  // namespace rdm::rdmd

#endif
