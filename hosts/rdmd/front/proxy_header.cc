// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/proxy_header.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include <boost/crc.hpp>

#include "qxapi/number.h"

namespace rdm::rdmd {
namespace {

/* ---- Version 1 ---- */

constexpr std::string_view v1_start = "PROXY ";
/// The longest line, with CR and LF.
constexpr std::size_t v1_limit = 107;

/// take_word removes the text up to the next blank, and the blank, from the front of `rest`.
std::string_view take_word(std::string_view &rest) {
  const std::string_view word = rest.substr(0, rest.find(' '));
  rest.remove_prefix(std::min(word.size() + 1, rest.size()));
  return word;
}

/// is_port returns true for a number from 0 to 65535 without leading zeros.
bool is_port(std::string_view text) {
  return parse_number<std::uint16_t>(text).has_value() && (text == "0" || text.front() != '0');
}

/// is_address returns true if `text` is an address in the form of the given family.
bool is_address(std::string_view text, bool v6) {
  return IpAddress::parse(text).has_value() && (text.find(':') != std::string_view::npos) == v6;
}

/// parse_line reads a whole line, without "PROXY " and CR LF.
ProxyHeaderResult parse_line(std::string_view line, std::size_t size) {
  // Five words, so four blanks: take_word does not show one at the end.
  const auto blanks = std::count(line.begin(), line.end(), ' ');
  const std::string_view family = take_word(line);
  if (family == "UNKNOWN") return ProxyHeader{size, std::nullopt};
  const bool v6 = family == "TCP6";
  const std::string_view from = take_word(line), to = take_word(line), from_port = take_word(line);
  const bool valid = (v6 || family == "TCP4") && blanks == 4 && is_address(from, v6) && is_address(to, v6) &&
                     is_port(from_port) && is_port(line);
  if (!valid) return ProxyHeaderMalformed{};
  return ProxyHeader{size, IpAddress::parse(from)};
}

ProxyHeaderResult parse_v1(std::string_view bytes) {
  const std::string_view start = bytes.substr(0, v1_limit);
  const auto end = start.find('\n');
  if (end == std::string_view::npos) {
    // A CR ends the line, and nothing but LF may follow it.
    const auto carriage = start.find('\r');
    const std::size_t missing = carriage == std::string_view::npos ? 2 : 1;
    const bool open = start.size() + missing <= v1_limit && (missing == 2 || carriage + 1 == start.size());
    return open ? ProxyHeaderResult(ProxyHeaderUnfinished{}) : ProxyHeaderMalformed{};
  }
  if (start[end - 1] != '\r' || start.find('\r') != end - 1) return ProxyHeaderMalformed{};
  return parse_line(start.substr(v1_start.size(), end - 1 - v1_start.size()), end + 1);
}

/* ---- Version 2 ---- */

constexpr std::string_view v2_signature("\r\n\r\n\0\r\nQUIT\n", 12);
constexpr std::size_t v2_fixed_size = 16;
constexpr std::uint8_t version_2 = 0x20, command_local = 0, command_proxy = 1;
constexpr std::uint8_t family_unspecified = 0x00, family_tcp4 = 0x11, family_tcp6 = 0x21, family_unix = 0x31;
constexpr std::size_t tcp4_size = 12, tcp6_size = 36, unix_size = 216;
constexpr std::uint8_t type_crc32c = 0x03;
constexpr std::size_t extension_head = 3, crc_size = 4;

std::uint8_t byte_at(std::string_view bytes, std::size_t at) { return static_cast<std::uint8_t>(bytes[at]); }
std::size_t word_at(std::string_view bytes, std::size_t at) {
  return std::size_t{byte_at(bytes, at)} << 8 | byte_at(bytes, at + 1);
}

/// has_checksum returns true if `bytes` have this CRC-32C with zeros in place of the four bytes at `at`.
bool has_checksum(std::string_view bytes, std::size_t at) {
  boost::crc_optimal<32, 0x1EDC6F41, 0xFFFFFFFF, 0xFFFFFFFF, true, true> sum;
  constexpr char zeros[crc_size] = {};
  sum.process_bytes(bytes.data(), at);
  sum.process_bytes(zeros, crc_size);
  sum.process_bytes(bytes.data() + at + crc_size, bytes.size() - at - crc_size);
  return sum.checksum() == (word_at(bytes, at) << 16 | word_at(bytes, at + 2));
}

/// extensions_fit returns true if the extensions, from `at` on, fill the header and a checksum among them fits.
bool extensions_fit(std::string_view header, std::size_t at) {
  while (at < header.size()) {
    if (header.size() - at < extension_head) return false;
    const std::uint8_t type = byte_at(header, at);
    const std::size_t length = word_at(header, at + 1);
    at += extension_head;
    if (header.size() - at < length) return false;
    if (type == type_crc32c && (length != crc_size || !has_checksum(header, at))) return false;
    at += length;
  }
  return true;
}

/// addresses_size returns the size of the addresses of a family, or std::nullopt for families without streams.
std::optional<std::size_t> addresses_size(std::uint8_t family) {
  switch (family) {
    case family_tcp4:
      return tcp4_size;
    case family_tcp6:
      return tcp6_size;
    case family_unix:
      return unix_size;
    case family_unspecified:
      return 0;
    default:
      return std::nullopt;
  }
}

std::optional<IpAddress> source_address(std::string_view header, std::uint8_t family) {
  const char *const source = header.data() + v2_fixed_size;
  if (family == family_tcp4) {
    std::uint8_t four[4];
    std::memcpy(four, source, sizeof four);
    return IpAddress::v4(four);
  }
  if (family != family_tcp6) return std::nullopt;
  IpAddress::Bytes sixteen;
  std::memcpy(sixteen.data(), source, sixteen.size());
  return IpAddress(sixteen);
}

/// parse_whole reads a complete header of version 2.
ProxyHeaderResult parse_whole(std::string_view header) {
  const std::uint8_t command = byte_at(header, 12) & 0x0f, family = byte_at(header, 13);
  if (command == command_local) return ProxyHeader{header.size(), std::nullopt};
  const std::size_t addresses = v2_fixed_size + *addresses_size(family);
  if (header.size() < addresses) return ProxyHeaderMalformed{};
  // The bytes after an unspecified family have no form.
  if (family != family_unspecified && !extensions_fit(header, addresses)) return ProxyHeaderMalformed{};
  return ProxyHeader{header.size(), source_address(header, family)};
}

ProxyHeaderResult parse_v2(std::string_view bytes) {
  if (bytes.size() > 12) {
    const std::uint8_t command = byte_at(bytes, 12);
    if (command != (version_2 | command_local) && command != (version_2 | command_proxy)) return ProxyHeaderMalformed{};
  }
  if (bytes.size() > 13 && !addresses_size(byte_at(bytes, 13))) return ProxyHeaderMalformed{};
  if (bytes.size() < v2_fixed_size) return ProxyHeaderUnfinished{};
  const std::size_t size = v2_fixed_size + word_at(bytes, 14);
  if (size > proxy_header_limit) return ProxyHeaderMalformed{};
  if (bytes.size() < size) return ProxyHeaderUnfinished{};
  return parse_whole(bytes.substr(0, size));
}

/// begins returns true if the shorter of the two texts begins the other.
bool begins(std::string_view one, std::string_view other) {
  const std::size_t size = std::min(one.size(), other.size());
  return one.substr(0, size) == other.substr(0, size);
}

}  // namespace

ProxyHeaderResult parse_proxy_header(std::string_view bytes) {
  if (bytes.empty()) return ProxyHeaderUnfinished{};
  if (begins(bytes, v2_signature)) return parse_v2(bytes);
  if (begins(bytes, v1_start)) return parse_v1(bytes);
  return ProxyHeaderMalformed{};
}

}  // namespace rdm::rdmd
