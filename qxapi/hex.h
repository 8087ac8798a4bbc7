// SPDX-License-Identifier: MIT
/// Hexadecimal digits, and the escapes of URLs that are made of them.
#ifndef QXAPI_HEX_H
#define QXAPI_HEX_H

#include <string_view>

#include "qxapi/ascii.h"

namespace rdm::hex {

/// The digits that we write.
inline constexpr char digits[] = "0123456789abcdef";

/// value_of returns the value of a digit in upper or lower case, or -1 for any other character.
constexpr int value_of(char c) {
  if (ascii::is_digit(c)) return c - '0';
  const char letter = ascii::lower(c);
  return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/// escaped_byte returns the byte (0 to 255) whose escape, "%" and two digits, `text` begins with, or -1.
constexpr int escaped_byte(std::string_view text) {
  if (text.size() < 3 || text[0] != '%') return -1;
  const int high = value_of(text[1]), low = value_of(text[2]);
  return high >= 0 && low >= 0 ? high * 16 + low : -1;
}

}  // namespace rdm::hex

#endif
