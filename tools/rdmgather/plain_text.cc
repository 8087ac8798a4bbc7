// SPDX-License-Identifier: MIT
#include "tools/rdmgather/plain_text.h"

#include <algorithm>

#include "qxapi/ascii.h"
#include "tools/soif/json_text.h"

namespace rdm::gather {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";  // U+FFFD
constexpr size_t longest_character = 4;

bool is_lead(char c) { return static_cast<unsigned char>(c) >= 0xC0; }
bool is_continuation(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }
bool is_blank(char c) { return ascii::is_space(c) || ascii::is_control(c); }

/// character_at returns the size of the UTF-8 character at an offset, or 0 if there is none.
size_t character_at(std::string_view text, size_t at) {
  size_t size = 1;
  if (is_lead(text[at]))
    while (size < longest_character && at + size < text.size() && is_continuation(text[at + size])) ++size;
  return soif_tool::is_utf8(text.substr(at, size)) ? size : 0;
}

/// cut_to shortens a text of whole characters.
void cut_to(std::string &text, size_t limit) {
  if (text.size() <= limit) return;
  size_t end = limit;
  while (end > 0 && is_continuation(text[end])) --end;
  const size_t blank = text.rfind(' ', end);
  text.resize(blank == std::string::npos || blank == 0 ? end : blank);
}

}  // namespace

std::string plain_text(std::string_view bytes, size_t limit) {
  std::string text;
  bool is_pending = false;  // a blank, if more follows
  for (size_t at = 0; at < bytes.size() && text.size() <= limit;) {
    if (is_blank(bytes[at])) {
      is_pending = !text.empty();
      ++at;
      continue;
    }
    if (is_pending) text += ' ';
    is_pending = false;
    const size_t size = character_at(bytes, at);
    text += size == 0 ? replacement : bytes.substr(at, size);
    at += std::max<size_t>(size, 1);
  }
  cut_to(text, limit);
  return text;
}

std::string_view without_cut_character(std::string_view text) {
  for (size_t back = 1; back < longest_character && back <= text.size(); ++back) {
    const char c = text[text.size() - back];
    if (is_continuation(c)) continue;
    const auto lead = static_cast<unsigned char>(c);
    const size_t size = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
    return size > back ? text.substr(0, text.size() - back) : text;
  }
  return text;
}

}  // namespace rdm::gather
