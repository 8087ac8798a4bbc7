// SPDX-License-Identifier: MIT
#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include <libcs/cs.h>

#include "qxapi/ascii.h"

using namespace rdm;

namespace {

struct Url {
  std::string_view host;
  int port;
  std::string_view name;
};

std::string_view without_leading_space(std::string_view text) {
  const auto first = std::find_if_not(text.begin(), text.end(), ascii::is_space);
  return text.substr(static_cast<size_t>(first - text.begin()));
}

/// take_number removes a decimal number, with optional white space and sign, from the front of `text`.
std::optional<int> take_number(std::string_view &text) {
  text = without_leading_space(text);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return number;
}

/// parse_after parses host:port/name after `scheme`.
std::optional<Url> parse_after(std::string_view scheme, std::string_view text) {
  if (!text.starts_with(scheme)) return std::nullopt;
  text.remove_prefix(scheme.size());
  const size_t colon = text.find(':');
  if (colon == 0 || colon == std::string_view::npos) return std::nullopt;
  const std::string_view host = text.substr(0, colon);
  text.remove_prefix(colon + 1);
  const std::optional<int> port = take_number(text);
  if (!port || !text.starts_with('/')) return std::nullopt;
  text = without_leading_space(text.substr(1));
  const auto end = std::find_if(text.begin(), text.end(), ascii::is_space);
  if (end == text.begin()) return std::nullopt;
  return Url{host, *port, text.substr(0, static_cast<size_t>(end - text.begin()))};
}

void store(std::string_view text, char *out) { out[text.copy(out, text.size())] = '\0'; }

}  // namespace

int csid_parse(const char *csid, char *name, char *host, int *port) noexcept {
  const std::string_view text(csid == nullptr ? "" : csid);
  std::optional<Url> url = parse_after("x-catalog://", text);
  if (!url) url = parse_after("x-catalogs://", text);
  const Url found = url.value_or(Url{});
  store(found.host, host);
  store(found.name, name);
  *port = found.port;
  return url ? 0 : 1;
}
