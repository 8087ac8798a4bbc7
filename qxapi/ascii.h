// SPDX-License-Identifier: MIT
/// ASCII character classes and comparisons, independent of the host program's locale.
#ifndef QXAPI_ASCII_H
#define QXAPI_ASCII_H

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace rdm::ascii {

constexpr bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_control(int c) { return (c >= '\0' && c < ' ') || c == '\x7f'; }
constexpr bool is_digit(int c) { return c >= '0' && c <= '9'; }
constexpr bool is_upper(int c) { return c >= 'A' && c <= 'Z'; }
constexpr bool is_lower(int c) { return c >= 'a' && c <= 'z'; }
constexpr bool is_alpha(int c) { return is_upper(c) || is_lower(c); }
constexpr char lower(char c) { return is_upper(c) ? static_cast<char>(c + ('a' - 'A')) : c; }

constexpr bool iequals(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return lower(x) == lower(y); });
}

constexpr bool istarts_with(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && iequals(text.substr(0, prefix.size()), prefix);
}

/// is_plain_to_shell returns true if the shell gives the character no special meaning inside a word. Bytes of UTF-8
/// sequences have none.
constexpr bool is_plain_to_shell(char c) {
  return is_alpha(c) || is_digit(c) || static_cast<unsigned char>(c) >= 0x80 ||
         std::string_view("_./+,:@%=-").find(c) != std::string_view::npos;
}

/// icompare orders two texts like strcasecmp() in the C locale.
constexpr int icompare(std::string_view a, std::string_view b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const int difference = static_cast<unsigned char>(lower(a[i])) - static_cast<unsigned char>(lower(b[i]));
    if (difference != 0) return difference;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

/// to_int32 reads a decimal number like atoi() (leading white space, a sign, digits up to the first other character; 0
/// without digits), but clamps numbers outside the range of int32_t.
constexpr int32_t to_int32(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && is_space(text[at])) ++at;
  const bool negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  int64_t value = 0;
  for (; at < text.size() && is_digit(text[at]); ++at)
    value = std::min<int64_t>(value * 10 + (text[at] - '0'), INT64_C(1) << 31);
  return static_cast<int32_t>(negative ? -value : std::min<int64_t>(value, INT32_MAX));
}

}  // namespace rdm::ascii

#endif
