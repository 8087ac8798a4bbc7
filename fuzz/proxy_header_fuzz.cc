// SPDX-License-Identifier: MIT
/// Reads any bytes as the header of a proxy. Acceptance must not depend on the bytes after the header, nor on how the
/// header is split, and a header that was accepted must print back to an equal one.

#include <string>
#include <variant>

#include "fuzz/fuzz.h"
#include "hosts/rdmd/front/proxy_header.h"

using namespace rdm;

namespace {

using rdmd::parse_proxy_header;
using rdmd::ProxyHeader;
using rdmd::ProxyHeaderMalformed;
using rdmd::ProxyHeaderUnfinished;

/// check_prefixes requires that every proper prefix of a complete header is unfinished.
void check_prefixes(std::string_view header) {
  for (size_t size = 0; size < header.size(); ++size)
    fuzz::require(std::holds_alternative<ProxyHeaderUnfinished>(parse_proxy_header(header.substr(0, size))),
                  "a part of a header is not unfinished");
}

/// line_of returns a version 1 header that names the client.
std::string line_of(const rdmd::IpAddress &client) {
  const std::string text = client.text();
  return client.is_v4() ? "PROXY TCP4 " + text + " 127.0.0.1 1 2\r\n" : "PROXY TCP6 " + text + " ::1 1 2\r\n";
}

void check(const ProxyHeader &header, std::string_view input) {
  fuzz::require(header.size > 0 && header.size <= input.size(), "a header is longer than its bytes");
  fuzz::require(header.size <= rdmd::proxy_header_limit, "a header exceeds the limit");
  const std::string_view bytes = input.substr(0, header.size);
  check_prefixes(bytes);
  const auto alone = parse_proxy_header(bytes);
  const auto *same = std::get_if<ProxyHeader>(&alone);
  fuzz::require(same != nullptr && same->size == header.size && same->client == header.client,
                "a header depends on the bytes after it");
  if (!header.client) return;
  const auto printed = parse_proxy_header(line_of(*header.client));
  const auto *again = std::get_if<ProxyHeader>(&printed);
  fuzz::require(again != nullptr && again->client == header.client, "an address does not print back to itself");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view input = fuzz::text(data, size);
  const auto result = parse_proxy_header(input);
  if (const auto *header = std::get_if<ProxyHeader>(&result)) check(*header, input);
  if (std::holds_alternative<ProxyHeaderUnfinished>(result))
    fuzz::require(size < rdmd::proxy_header_limit, "a header of the largest size is unfinished");
  if (std::holds_alternative<ProxyHeaderMalformed>(result))
    fuzz::require(std::holds_alternative<ProxyHeaderMalformed>(parse_proxy_header(std::string(input) + "\r\n")),
                  "further bytes mend a malformed header");
  return 0;
}
