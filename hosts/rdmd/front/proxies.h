// SPDX-License-Identifier: MIT
/// The proxies that may name the client of a connection or of a request, and the naming by X-Forwarded-For.
#ifndef HOSTS_RDMD_FRONT_PROXIES_H
#define HOSTS_RDMD_FRONT_PROXIES_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/rdmd/front/client.h"
#include "hosts/rdmd/front/ip_address.h"

namespace rdm::rdmd {

/// Proxies is the set of trusted proxies.
class Proxies {
 public:
  /// `texts` are ranges "ADDRESS[/BITS]", or "unix" for the clients of Unix sockets. Throws std::invalid_argument for
  /// any other text.
  explicit Proxies(const std::vector<std::string> &texts);
  /// is_valid returns true if the constructor accepts `text`.
  static bool is_valid(const std::string &text);

  /// trusts returns true if `client` is a trusted proxy.
  bool trusts(const Client &client) const;

  /// forwarded returns the client of a request that `sender`, a trusted proxy, has forwarded with this value of
  /// X-Forwarded-For: the rightmost address that is not a trusted proxy, because clients can send addresses of their
  /// own, which stand further to the left. If all are trusted, it returns the leftmost. An element that is no address
  /// ends the search: the proxy to the right of it, or `sender`, counts as the client. Elements are addresses, also as
  /// "ADDRESS:PORT", "[IPV6]" or "[IPV6]:PORT".
  Client forwarded(const Client &sender, std::string_view value) const;

 private:
  bool trusts(const IpAddress &address) const;

  std::vector<IpRange> ranges_;
  bool unix_ = false;
};

}  // namespace rdm::rdmd

#endif
