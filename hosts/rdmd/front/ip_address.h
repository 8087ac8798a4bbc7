// SPDX-License-Identifier: MIT
/// Numeric IP addresses, and ranges of them.
#ifndef HOSTS_RDMD_FRONT_IP_ADDRESS_H
#define HOSTS_RDMD_FRONT_IP_ADDRESS_H

#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace rdm::rdmd {

/// IpAddress is an IPv6 address in network byte order. An IPv4 address is kept in its v4-mapped form (::ffff:a.b.c.d),
/// so that a client is the same whether it is accepted by an IPv4 or an IPv6 socket.
class IpAddress {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  explicit IpAddress(const Bytes &bytes) : bytes_(bytes) {}
  static IpAddress v4(const std::uint8_t (&bytes)[4]);
  /// of returns the address of a socket address, or std::nullopt if its family is neither IPv4 nor IPv6.
  static std::optional<IpAddress> of(const sockaddr *address);
  /// parse returns the address of a text such as "192.0.2.1" or "2001:db8::1", or std::nullopt for any other text.
  /// Zones ("%eth0"), brackets and decimals with leading zeros are not accepted.
  static std::optional<IpAddress> parse(std::string_view text);

  /// text returns the usual form; a v4-mapped address is shown as IPv4.
  std::string text() const;
  bool is_v4() const;
  const Bytes &bytes() const { return bytes_; }
  bool operator==(const IpAddress &) const = default;

 private:
  Bytes bytes_;
};

/// IpRange is the set of all addresses that begin with the same bits.
class IpRange {
 public:
  /// parse returns the range of "ADDRESS" or "ADDRESS/BITS", with at most 32 bits after an IPv4 address and at most 128
  /// after an IPv6 address, or std::nullopt for any other text. Address bits beyond BITS are ignored.
  static std::optional<IpRange> parse(std::string_view text);
  bool contains(const IpAddress &address) const;

 private:
  IpRange(const IpAddress &address, unsigned bits) : address_(address), bits_(bits) {}

  IpAddress address_;
  unsigned bits_;  // of the 128 of an IPv6 address
};

}  // namespace rdm::rdmd

#endif
