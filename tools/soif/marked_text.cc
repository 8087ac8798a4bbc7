// SPDX-License-Identifier: MIT
#include "tools/soif/marked_text.h"

#include "tools/soif/base64.h"
#include "tools/soif/json_text.h"

namespace rdm::soif_tool {
namespace {

constexpr std::string_view mark = "base64:";

}  // namespace

std::string marked_bytes(std::string_view text) { return std::string(mark) + base64_of(text); }

std::string marked(std::string_view text) {
  const bool is_plain = is_utf8(text) && text.find('\0') == std::string_view::npos && !text.starts_with(mark);
  return is_plain ? std::string(text) : marked_bytes(text);
}

std::optional<std::string> unmarked(std::string_view text) {
  if (!text.starts_with(mark)) return std::string(text);
  return bytes_of_base64(text.substr(mark.size()));
}

}  // namespace rdm::soif_tool
