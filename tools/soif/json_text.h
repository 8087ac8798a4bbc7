// SPDX-License-Identifier: MIT
/// Text as JSON.
#ifndef SOIF_JSON_TEXT_H
#define SOIF_JSON_TEXT_H

#include <string>
#include <string_view>

namespace rdm::soif_tool {

/// is_utf8 returns true if a text is UTF-8: without surrogates, overlong forms, and code points above U+10FFFF.
bool is_utf8(std::string_view text);

/// json_string returns a text in UTF-8 as a JSON string with its quotes.
std::string json_string(std::string_view text);

/// shown_json_string returns any text as a JSON string: if it is not UTF-8, with "?" for each byte above 0x7F.
std::string shown_json_string(std::string_view text);

}  // namespace rdm::soif_tool

#endif
