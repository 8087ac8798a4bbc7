// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/client.h"

#include "hosts/rdmd/front/ip_address.h"

namespace rdm::rdmd {

Client client_of(const sockaddr *address) {
  const auto ip = IpAddress::of(address);
  if (ip) return {ip->text(), ClientKey(*ip)};
  return {address->sa_family == AF_UNIX ? "unix:" : "-", ClientKey()};
}

}  // namespace rdm::rdmd
