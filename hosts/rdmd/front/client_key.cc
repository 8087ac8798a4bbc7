// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/client_key.h"

#include <cstring>

#include "qxapi/sip_hash.h"

namespace rdm::rdmd {

ClientKey::ClientKey(const IpAddress &address) : kind_(address.is_v4() ? Kind::ipv4 : Kind::ipv6) {
  // The second half of a v4-mapped address holds the IPv4 address.
  std::memcpy(&bits_, address.bytes().data() + (address.is_v4() ? sizeof bits_ : 0), sizeof bits_);
}

ClientKey ClientKey::of(const sockaddr *address) {
  const auto ip = IpAddress::of(address);
  return ip ? ClientKey(*ip) : ClientKey();
}

std::optional<ClientKey> ClientKey::parse(std::string_view text) {
  const auto ip = IpAddress::parse(text);
  return ip ? std::optional(ClientKey(*ip)) : std::nullopt;
}

std::size_t ClientKey::hash() const {
  SipState state(process_sip_key());
  state.take(bits_);
  state.take(static_cast<std::uint64_t>(kind_));
  return state.finish();
}

}  // namespace rdm::rdmd
