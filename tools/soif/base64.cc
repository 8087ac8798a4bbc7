// SPDX-License-Identifier: MIT
#include "tools/soif/base64.h"

#include <cstdint>

namespace rdm::soif_tool {
namespace {

constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// bits_of returns up to three bytes from an offset on as 24 bits.
uint32_t bits_of(std::string_view bytes, size_t at) {
  uint32_t bits = 0;
  for (size_t i = 0; i < 3; ++i)
    bits = bits << 8 | (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0);
  return bits;
}

}  // namespace

std::string base64_of(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t at = 0; at < bytes.size(); at += 3) {
    const uint32_t bits = bits_of(bytes, at);
    for (size_t i = 0; i < 4; ++i) text += at + i > bytes.size() ? '=' : digits[bits >> (18 - 6 * i) & 63];
  }
  return text;
}

std::optional<std::string> bytes_of_base64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  uint32_t bits = 0;
  const size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  for (size_t at = 0; at < text.size() - padding; ++at) {
    const size_t digit = digits.find(text[at]);
    if (digit == std::string_view::npos) return std::nullopt;
    bits = bits << 6 | static_cast<uint32_t>(digit);
    const size_t held = (at % 4) * 2;  // bits that the digits before have left over: 0, 6, 4, 2
    if (held != 0) bytes += static_cast<char>(bits >> (6 - held) & 0xFF);
  }
  if (base64_of(bytes) != text) return std::nullopt;
  return bytes;
}

}  // namespace rdm::soif_tool
