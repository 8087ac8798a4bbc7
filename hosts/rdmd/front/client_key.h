// SPDX-License-Identifier: MIT
/// The key by which clients are told apart, for limits and for turns: an IPv4 address, or the first 64 bits of an IPv6
/// address, because whoever has one IPv6 address usually has all of that network. A v4-mapped IPv6 address is IPv4. All
/// clients of Unix sockets have one key in common.
#ifndef HOSTS_RDMD_FRONT_CLIENT_KEY_H
#define HOSTS_RDMD_FRONT_CLIENT_KEY_H

#include <sys/socket.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "hosts/rdmd/front/ip_address.h"

namespace rdm::rdmd {

/// ClientKey is a value of 16 bytes.
class ClientKey {
 public:
  /// Makes the key that clients of Unix sockets have in common.
  constexpr ClientKey() = default;
  explicit ClientKey(const IpAddress &address);
  /// of returns the key of a socket address. Any family but IPv4 and IPv6 has the common key.
  static ClientKey of(const sockaddr *address);
  /// parse returns the key of a numeric address such as "192.0.2.1" or "2001:db8::1", or std::nullopt for other text.
  static std::optional<ClientKey> parse(std::string_view text);

  /// is_local returns true for the common key.
  bool is_local() const { return kind_ == Kind::local; }
  /// hash returns a keyed hash: a client cannot choose addresses whose hashes collide.
  std::size_t hash() const;
  bool operator==(const ClientKey &) const = default;

 private:
  enum class Kind : std::uint8_t { local, ipv4, ipv6 };

  std::uint64_t bits_ = 0;
  Kind kind_ = Kind::local;
};

}  // namespace rdm::rdmd

template <>
struct std::hash<rdm::rdmd::ClientKey> {
  std::size_t operator()(const rdm::rdmd::ClientKey &key) const { return key.hash(); }
};

#endif
