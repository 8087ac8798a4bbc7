// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/client.h"

namespace rdm::rdmd {

Client client_of(const sockaddr *address) {
  const auto ip = IpAddress::of(address);
  if (ip) return client_of(*ip);
  return {address->sa_family == AF_UNIX ? std::string(unix_client) : "-", ClientKey(), std::nullopt};
}

Client client_of(const IpAddress &address) { return {address.text(), ClientKey(address), address}; }

}  // namespace rdm::rdmd
