// SPDX-License-Identifier: MIT
/// The sender of a request: an address as logs and the plug-in show it, and the key that limits use.
#ifndef HOSTS_RDMD_FRONT_CLIENT_H
#define HOSTS_RDMD_FRONT_CLIENT_H

#include <sys/socket.h>

#include <optional>
#include <string>
#include <string_view>

#include "hosts/rdmd/front/client_key.h"
#include "hosts/rdmd/front/ip_address.h"

namespace rdm::rdmd {

/// unix_client is the text of all clients of Unix sockets.
inline constexpr std::string_view unix_client = "unix:";

struct Client {
  std::string text = "-";  // an IP address, unix_client, or "-" if it is unknown
  ClientKey key;
  std::optional<IpAddress> address;
};

/// client_of returns the client with this socket address. A v4-mapped IPv6 address is shown as IPv4.
Client client_of(const sockaddr *address);
Client client_of(const IpAddress &address);

}  // namespace rdm::rdmd

#endif
