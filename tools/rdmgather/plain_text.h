// SPDX-License-Identifier: MIT
/// Text that is fit for a value: UTF-8 on one line, of limited size.
#ifndef RDMGATHER_PLAIN_TEXT_H
#define RDMGATHER_PLAIN_TEXT_H

#include <cstddef>
#include <string>
#include <string_view>

namespace rdm::gather {

constexpr size_t longest_title = 200;        // bytes
constexpr size_t longest_description = 400;  // bytes

/// plain_text returns any bytes as UTF-8: white space and control characters become one blank, those at both ends are
/// dropped, and U+FFFD replaces each byte that belongs to no character. The result has at most `limit` bytes; it ends
/// with a whole character, and with a whole word if one fits.
std::string plain_text(std::string_view bytes, size_t limit);

/// without_cut_character returns a text without the first bytes of a UTF-8 character whose end is missing. Use it for
/// the beginning of a file.
std::string_view without_cut_character(std::string_view text);

}  // namespace rdm::gather

#endif
