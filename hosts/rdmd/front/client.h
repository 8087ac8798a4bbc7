// SPDX-License-Identifier: MIT
/// The sender of a request: an address as logs and the plug-in show it, and the key that limits use.
#ifndef HOSTS_RDMD_FRONT_CLIENT_H
#define HOSTS_RDMD_FRONT_CLIENT_H

#include <sys/socket.h>

#include <string>

#include "hosts/rdmd/front/client_key.h"

namespace rdm::rdmd {

struct Client {
  std::string text = "-";  // an IP address, "unix:" for any client of a Unix socket, or "-" if it is unknown
  ClientKey key;
};

/// client_of returns the client with this socket address. A v4-mapped IPv6 address is shown as IPv4.
Client client_of(const sockaddr *address);

}  // namespace rdm::rdmd

#endif
