// SPDX-License-Identifier: MIT
#include "catalog/stream/fitting_count.h"

#include <charconv>

#include "qxapi/ascii.h"

namespace rdm::catalog {
namespace {

/// Limits on the work for one object: lines that are tried, and attributes that are followed behind each of them.
constexpr int most_lines = 1000, most_attributes = 100;

bool closes(std::string_view text) {
  if (text.empty() || text[0] != '}') return false;
  for (size_t i = 1; i < text.size(); ++i)
    if (!ascii::is_space(text[i])) return false;
  return true;
}

/// take_attribute removes `name{count}:TAB`, as many bytes and a newline from the front of a text.
bool take_attribute(std::string_view &text) {
  constexpr size_t longest_head = 256;
  const size_t brace = text.substr(0, longest_head).find_first_of("{} \t\n@");
  if (brace == 0 || brace == std::string_view::npos || text[brace] != '{') return false;
  size_t count = 0;
  const auto [end, error] = std::from_chars(text.data() + brace + 1, text.data() + text.size(), count);
  const std::string_view rest = text.substr(static_cast<size_t>(end - text.data()));
  constexpr std::string_view behind = "}:\t";
  if (error != std::errc() || !rest.starts_with(behind)) return false;
  const std::string_view value = rest.substr(behind.size());
  if (count >= value.size() || value[count] != '\n') return false;
  text = value.substr(count + 1);
  return true;
}

/// leads_to_end returns true if a text consists of attributes up to the end of the object, or has more of them than are
/// followed.
bool leads_to_end(std::string_view text) {
  for (int i = 0; i < most_attributes; ++i) {
    if (closes(text)) return true;
    if (!take_attribute(text)) return false;
  }
  return true;
}

}  // namespace

std::optional<size_t> fitting_count(std::string_view text) {
  size_t newline = text.find('\n');
  for (int i = 0; i < most_lines && newline != std::string_view::npos; ++i, newline = text.find('\n', newline + 1))
    if (leads_to_end(text.substr(newline + 1))) return newline;
  return std::nullopt;
}

}  // namespace rdm::catalog
