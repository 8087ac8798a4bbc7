// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/ip_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstring>

#include "qxapi/number.h"

namespace rdm::rdmd {
namespace {

constexpr std::uint8_t v4_mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
constexpr unsigned v4_prefix_bits = 8 * sizeof v4_mapped;

}  // namespace

IpAddress IpAddress::v4(const std::uint8_t (&bytes)[4]) {
  Bytes mapped{};
  std::copy(std::begin(v4_mapped), std::end(v4_mapped), mapped.begin());
  std::copy(std::begin(bytes), std::end(bytes), mapped.begin() + sizeof v4_mapped);
  return IpAddress(mapped);
}

std::optional<IpAddress> IpAddress::of(const sockaddr *address) {
  if (address->sa_family == AF_INET) {
    std::uint8_t bytes[4];
    std::memcpy(bytes, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, sizeof bytes);
    return v4(bytes);
  }
  if (address->sa_family != AF_INET6) return std::nullopt;
  Bytes bytes;
  std::memcpy(bytes.data(), &reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr, bytes.size());
  return IpAddress(bytes);
}

std::optional<IpAddress> IpAddress::parse(std::string_view text) {
  char copy[INET6_ADDRSTRLEN] = "";
  if (text.size() >= sizeof copy || text.find('\0') != std::string_view::npos) return std::nullopt;
  text.copy(copy, text.size());
  std::uint8_t four[4];
  if (::inet_pton(AF_INET, copy, four) == 1) return v4(four);
  Bytes sixteen;
  if (::inet_pton(AF_INET6, copy, sixteen.data()) == 1) return IpAddress(sixteen);
  return std::nullopt;
}

std::string IpAddress::text() const {
  char text[INET6_ADDRSTRLEN] = "";
  if (is_v4())
    ::inet_ntop(AF_INET, bytes_.data() + sizeof v4_mapped, text, sizeof text);
  else
    ::inet_ntop(AF_INET6, bytes_.data(), text, sizeof text);
  return text;
}

bool IpAddress::is_v4() const { return std::equal(std::begin(v4_mapped), std::end(v4_mapped), bytes_.begin()); }

std::optional<IpRange> IpRange::parse(std::string_view text) {
  const auto slash = text.find('/');
  const std::string_view host = text.substr(0, slash);
  const auto address = IpAddress::parse(host);
  if (!address) return std::nullopt;
  if (slash == std::string_view::npos) return IpRange(*address, 128);
  // "::ffff:192.0.2.0/120" counts the bits of an IPv6 address.
  const bool v6_text = host.find(':') != std::string_view::npos;
  const auto bits = parse_number<std::uint8_t>(text.substr(slash + 1));
  if (!bits || *bits > (v6_text ? 128 : 32)) return std::nullopt;
  return IpRange(*address, v6_text ? *bits : v4_prefix_bits + *bits);
}

bool IpRange::contains(const IpAddress &address) const {
  const std::size_t whole = bits_ / 8;
  const auto &one = address_.bytes(), &other = address.bytes();
  if (!std::equal(one.begin(), one.begin() + static_cast<std::ptrdiff_t>(whole), other.begin())) return false;
  return bits_ % 8 == 0 || (one[whole] ^ other[whole]) >> (8 - bits_ % 8) == 0;
}

}  // namespace rdm::rdmd
