// SPDX-License-Identifier: MIT
/// The words of a line of a configuration file.
///
/// Blanks divide words. A pair is a word NAME=VALUE or NAME="VALUE"; a value in quotes may hold blanks. A backslash in
/// a value precedes a character that is taken as it is. Other words are ignored.
#ifndef QXAPI_CONFIG_LINE_H
#define QXAPI_CONFIG_LINE_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace rdm::config_line {

/// Word is a word as it is written. A word that is no pair has only a name. A pair may lack its name.
struct Word {
  std::string_view name;
  std::string_view value;  // with its backslashes, without its quotes
  bool is_pair;
  bool is_closed;  // false if a value begins with a quote and the line ends before the other
};

constexpr bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// value_end returns the offset at which the value ends: its closing quote, a blank or the end of the line.
constexpr std::size_t value_end(std::string_view line, std::size_t at, bool quoted) {
  for (; at < line.size(); ++at) {
    if (line[at] == '\\' && at + 1 < line.size())
      ++at;
    else if (quoted ? line[at] == '"' : is_blank(line[at]))
      break;
  }
  return at;
}

/// take_word removes blanks and a word from the front of `line` and returns the word, or std::nullopt if only blanks
/// are left.
constexpr std::optional<Word> take_word(std::string_view &line) {
  while (!line.empty() && is_blank(line.front())) line.remove_prefix(1);
  if (line.empty()) return std::nullopt;
  std::size_t at = 0;
  while (at < line.size() && !is_blank(line[at]) && line[at] != '=') ++at;
  Word word{line.substr(0, at), {}, at < line.size() && line[at] == '=', true};
  if (word.is_pair) {
    const bool quoted = ++at < line.size() && line[at] == '"';
    if (quoted) ++at;
    const std::size_t end = value_end(line, at, quoted);
    word.value = line.substr(at, end - at);
    word.is_closed = !quoted || end < line.size();
    at = quoted && word.is_closed ? end + 1 : end;
  }
  line.remove_prefix(at);
  return word;
}

/// unescape copies a value without the backslashes that precede a character. `out` has room for as many bytes as the
/// value. Returns how many were copied.
constexpr std::size_t unescape(std::string_view value, char *out) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    out[size++] = value[i];
  }
  return size;
}

}  // namespace rdm::config_line

#endif
