// SPDX-License-Identifier: MIT
/// Any bytes as a text, for formats that hold texts alone.
#ifndef SOIF_MARKED_TEXT_H
#define SOIF_MARKED_TEXT_H

#include <optional>
#include <string>
#include <string_view>

namespace rdm::soif_tool {

/// marked returns a text as it is, or "base64:" and its bytes in base64: if it is not UTF-8, contains NUL or begins
/// with "base64:".
std::string marked(std::string_view text);
/// marked_bytes returns the second form of any text.
std::string marked_bytes(std::string_view text);

/// unmarked returns the text that marked has written. Returns std::nullopt if what follows "base64:" is not base64.
std::optional<std::string> unmarked(std::string_view text);

}  // namespace rdm::soif_tool

#endif
