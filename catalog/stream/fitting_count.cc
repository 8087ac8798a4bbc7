// SPDX-License-Identifier: MIT
#include "catalog/stream/fitting_count.h"

#include "libcs/soif/grammar.h"
#include "qxapi/ascii.h"

namespace rdm::catalog {
namespace {

/// Limits on the work for one object: lines that are tried, and attributes that are followed after each of them.
constexpr int most_lines = 1000, most_attributes = 100;

bool closes(std::string_view text) {
  if (text.empty() || text[0] != '}') return false;
  for (size_t i = 1; i < text.size(); ++i)
    if (!ascii::is_space(text[i])) return false;
  return true;
}

/// take_attribute removes `name{count}:TAB`, as many bytes and a newline from the front of a text.
bool take_attribute(std::string_view &text) {
  constexpr size_t longest_name = 256;
  const auto head = soif::written_head(text, "{} \t\n@", longest_name);
  if (!head) return false;
  const std::string_view value = text.substr(head->length);
  if (head->size >= value.size() || value[head->size] != '\n') return false;
  text = value.substr(head->size + 1);
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
