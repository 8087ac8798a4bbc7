// SPDX-License-Identifier: MIT
/// Numbers that take up a whole text. ascii::to_int32 reads those that other text may surround.
#ifndef QXAPI_NUMBER_H
#define QXAPI_NUMBER_H

#include <charconv>
#include <optional>
#include <string_view>

namespace rdm {

/// parse_number returns the number that `text` is: digits, for signed types after "-" if it is negative. Returns
/// std::nullopt if there is anything else, such as a blank or "+", or if the type cannot hold the number.
template <typename Number>
std::optional<Number> parse_number(std::string_view text, int base = 10) noexcept {
  Number number = 0;
  const char *const end_of_text = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), end_of_text, number, base);
  return error == std::errc() && end == end_of_text ? std::optional<Number>(number) : std::nullopt;
}

}  // namespace rdm

#endif
