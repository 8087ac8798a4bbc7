/// ASCII character classes and comparisons that no locale of the host program can change.
#ifndef QXAPI_ASCII_H
#define QXAPI_ASCII_H

#include <algorithm>
#include <string_view>

namespace ascii {

constexpr bool is_space(int c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
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

/// icompare orders two texts as strcasecmp does in the C locale.
constexpr int icompare(std::string_view a, std::string_view b) {
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const int difference = static_cast<unsigned char>(lower(a[i])) - static_cast<unsigned char>(lower(b[i]));
    if (difference != 0) return difference;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

}  // namespace ascii

#endif
