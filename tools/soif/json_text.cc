// SPDX-License-Identifier: MIT
#include "tools/soif/json_text.h"

#include <algorithm>
#include <cstdio>

namespace rdm::soif_tool {
namespace {

/// Sequence is the form of a UTF-8 sequence by its first byte: its length, and the range of its second byte.
struct Sequence {
  size_t length;
  unsigned char least, most;
};

Sequence sequence_of(unsigned char first) {
  if (first < 0x80) return {1, 0, 0};
  if (first >= 0xC2 && first <= 0xDF) return {2, 0x80, 0xBF};
  if (first == 0xE0) return {3, 0xA0, 0xBF};
  if (first == 0xED) return {3, 0x80, 0x9F};
  if (first >= 0xE1 && first <= 0xEF) return {3, 0x80, 0xBF};
  if (first == 0xF0) return {4, 0x90, 0xBF};
  if (first >= 0xF1 && first <= 0xF3) return {4, 0x80, 0xBF};
  if (first == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

bool continues(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

void append_escaped(std::string &text, char c) {
  constexpr std::string_view special = "\"\\\b\f\n\r\t", names = "\"\\bfnrt";
  if (const size_t which = special.find(c); which != std::string_view::npos) {
    text.append(1, '\\').append(1, names[which]);
  } else if (static_cast<unsigned char>(c) < 0x20) {
    char code[8];
    std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(c));
    text += code;
  } else {
    text += c;
  }
}

}  // namespace

bool is_utf8(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const auto [length, least, most] = sequence_of(static_cast<unsigned char>(text[at]));
    if (length == 0 || length > text.size() - at) return false;
    const std::string_view rest = text.substr(at + 1, length - 1);
    const auto second = static_cast<unsigned char>(rest.empty() ? 0 : rest.front());
    if (!rest.empty() && (second < least || second > most)) return false;
    if (!std::all_of(rest.begin(), rest.end(), continues)) return false;
    at += length;
  }
  return true;
}

std::string json_string(std::string_view text) {
  std::string json = "\"";
  json.reserve(text.size() + 2);
  for (const char c : text) append_escaped(json, c);
  return json + '"';
}

std::string shown_json_string(std::string_view text) {
  if (is_utf8(text)) return json_string(text);
  std::string shown(text);
  for (char &c : shown)
    if (static_cast<unsigned char>(c) >= 0x80) c = '?';
  return json_string(shown);
}

}  // namespace rdm::soif_tool
