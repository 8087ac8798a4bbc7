// SPDX-License-Identifier: MIT
/// Strict parsing of the header that a proxy sends in front of a connection: the PROXY protocol, version 1 (a line of
/// text) and version 2 (binary).
#ifndef HOSTS_RDMD_FRONT_PROXY_HEADER_H
#define HOSTS_RDMD_FRONT_PROXY_HEADER_H

#include <cstddef>
#include <optional>
#include <string_view>
#include <variant>

#include "hosts/rdmd/front/ip_address.h"

namespace rdm::rdmd {

/// ProxyHeader is a complete header. Without a client (UNKNOWN, LOCAL, or a Unix socket) the connection is the proxy's
/// own, and the address of its socket stands.
struct ProxyHeader {
  std::size_t size = 0;  // in bytes; the client's own bytes follow
  std::optional<IpAddress> client;
};

struct ProxyHeaderUnfinished {};
struct ProxyHeaderMalformed {};
using ProxyHeaderResult = std::variant<ProxyHeaderUnfinished, ProxyHeader, ProxyHeaderMalformed>;

/// The longest header that is accepted. Version 2 allows 65,551 bytes; extensions in use take a few hundred.
inline constexpr std::size_t proxy_header_limit = 4096;

/// parse_proxy_header reads the header at the front of `bytes`. If it is unfinished, all of `bytes` belong to it. It is
/// malformed as soon as no further bytes can complete it. A checksum (extension PP2_TYPE_CRC32C) must fit; other
/// extensions are skipped.
ProxyHeaderResult parse_proxy_header(std::string_view bytes);

}  // namespace rdm::rdmd

#endif
