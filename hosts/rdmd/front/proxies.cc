// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/proxies.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "qxapi/number.h"
#include "qxapi/words.h"

namespace rdm::rdmd {
namespace {

constexpr std::string_view unix_word = "unix";

/// take_last removes the last element of a list, and the comma before it, and returns the element.
std::string_view take_last(std::string_view &list) {
  const auto comma = list.rfind(',');
  const std::string_view last = comma == std::string_view::npos ? list : list.substr(comma + 1);
  list = list.substr(0, comma == std::string_view::npos ? 0 : comma);
  return trim(last, " \t");
}

/// is_port_part returns true for an empty text, or ":" and a port.
bool is_port_part(std::string_view text) {
  return text.empty() || (text.front() == ':' && parse_number<std::uint16_t>(text.substr(1)));
}

/// element_address returns the address of an element of X-Forwarded-For.
std::optional<IpAddress> element_address(std::string_view text) {
  if (text.starts_with('[')) {
    const auto close = text.find(']');
    if (close == std::string_view::npos || !is_port_part(text.substr(close + 1))) return std::nullopt;
    const auto address = IpAddress::parse(text.substr(1, close - 1));
    return text.substr(1, close - 1).find(':') != std::string_view::npos ? address : std::nullopt;
  }
  const auto colon = text.find(':');
  const bool has_port = colon != std::string_view::npos && text.find(':', colon + 1) == std::string_view::npos;
  if (!has_port) return IpAddress::parse(text);
  return is_port_part(text.substr(colon)) ? IpAddress::parse(text.substr(0, colon)) : std::nullopt;
}

}  // namespace

Proxies::Proxies(const std::vector<std::string> &texts) {
  for (const std::string &text : texts) {
    const auto range = IpRange::parse(text);
    if (range)
      ranges_.push_back(*range);
    else if (text == unix_word)
      unix_ = true;
    else
      throw std::invalid_argument(text);
  }
}

bool Proxies::is_valid(const std::string &text) { return text == unix_word || IpRange::parse(text).has_value(); }

bool Proxies::trusts(const IpAddress &address) const {
  return std::any_of(ranges_.begin(), ranges_.end(), [&](const IpRange &range) { return range.contains(address); });
}

bool Proxies::trusts(const Client &client) const {
  if (client.address) return trusts(*client.address);
  return unix_ && client.text == unix_client;
}

Client Proxies::forwarded(const Client &sender, std::string_view value) const {
  std::optional<IpAddress> client;
  while (!value.empty()) {
    const auto address = element_address(take_last(value));
    if (!address) break;
    client = address;
    if (!trusts(*client)) break;
  }
  return client ? client_of(*client) : sender;
}

}  // namespace rdm::rdmd
