// SPDX-License-Identifier: MIT
/// Trimming a text and splitting it into words.
#ifndef QXAPI_WORDS_H
#define QXAPI_WORDS_H

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

namespace rdm {

/// trim returns a text without the characters of `blanks` at its ends.
constexpr std::string_view trim(std::string_view text, std::string_view blanks) {
  const std::size_t first = text.find_first_not_of(blanks);
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// words_of returns the non-empty texts between the characters of `blanks`. It may throw: for programs.
inline std::vector<std::string_view> words_of(std::string_view text, std::string_view blanks) {
  std::vector<std::string_view> words;
  for (std::size_t at = 0; (at = text.find_first_not_of(blanks, at)) != std::string_view::npos;) {
    const std::size_t end = std::min(text.find_first_of(blanks, at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

}  // namespace rdm

#endif
