// SPDX-License-Identifier: MIT
#include <algorithm>
#include <optional>
#include <vector>

#include "qxapi/ascii.h"
#include "qxapi/words.h"
#include "tools/rdmgather/about.h"
#include "tools/rdmgather/plain_text.h"

namespace rdm::gather {
namespace {

constexpr std::string_view white_space = " \t\r\f\v";
constexpr size_t deepest_heading = 6;
constexpr size_t longest_read = 1 << 14;  // bytes of a text: those of a description and much white space

/// TextLines passes on the lines of a text without white space at their ends.
class TextLines {
 public:
  explicit TextLines(std::string_view text) : rest_(text) {}
  std::optional<std::string_view> next() {
    if (rest_.empty()) return std::nullopt;
    const size_t end = std::min(rest_.find('\n'), rest_.size());
    const std::string_view line = rest_.substr(0, end);
    rest_.remove_prefix(std::min(end + 1, rest_.size()));
    return trim(line, white_space);
  }
  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

bool consists_of(std::string_view line, char c) { return line.find_first_not_of(c) == std::string_view::npos; }

/// is_underline returns true for the second line of a heading in two lines.
bool is_underline(std::string_view line) { return !line.empty() && (consists_of(line, '=') || consists_of(line, '-')); }

/// heading_in returns the text of a heading such as "## Text ##".
std::optional<std::string_view> heading_in(std::string_view line) {
  const size_t level = std::min(line.find_first_not_of('#'), line.size());
  if (level == 0 || level > deepest_heading) return std::nullopt;
  if (level < line.size() && !ascii::is_space(line[level])) return std::nullopt;
  const std::string_view text = trim(line.substr(level), white_space);
  const size_t last = text.find_last_not_of('#');
  if (last == std::string_view::npos) return std::string_view();
  return text[last] == ' ' ? trim(text.substr(0, last), white_space) : text;
}

bool is_fence(std::string_view line) { return line.starts_with("```") || line.starts_with("~~~"); }

/// unquoted returns a value of YAML without its quotes.
std::string_view unquoted(std::string_view value) {
  const bool is_quoted =
      value.size() > 1 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
  return is_quoted ? value.substr(1, value.size() - 2) : value;
}

void take_field(std::string_view line, About &about) {
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos) return;
  const std::string_view name = line.substr(0, colon), value = unquoted(trim(line.substr(colon + 1), white_space));
  if (ascii::iequals(name, "title")) about.title = plain_text(value, longest_title);
  if (ascii::iequals(name, "author")) about.author = plain_text(value, longest_title);
  if (ascii::iequals(name, "description")) about.description = plain_text(value, longest_description);
}

/// after_fields takes the fields between lines "---" at the start of a text, and returns the rest.
std::string_view after_fields(std::string_view text, About &about) {
  TextLines lines(text);
  if (lines.next() != "---") return text;
  About found;
  while (const auto line = lines.next()) {
    if (line == "---" || line == "...") {
      about = found;
      return lines.rest();
    }
    take_field(*line, found);
  }
  return text;
}

/// MarkdownReader collects the first heading, and the text after it, or all text if there is no heading.
class MarkdownReader {
 public:
  explicit MarkdownReader(About &about) : about_(about) {}

  void read(std::string_view text) {
    TextLines lines(text);
    std::string_view before;
    while (const auto line = lines.next()) {
      take(*line, before);
      before = *line;
      if (text_.size() > longest_read) break;
    }
    if (about_.title.empty()) about_.title = plain_text(first_, longest_title);
    if (about_.description.empty()) about_.description = plain_text(text_, longest_description);
  }

 private:
  void take(std::string_view line, std::string_view before) {
    if (is_fence(line)) {
      is_code_ = !is_code_;
    } else if (const auto heading = is_code_ ? std::nullopt : heading_in(line)) {
      enter(*heading);
    } else if (!is_code_ && !before.empty() && is_underline(line)) {
      text_.resize(last_);
      enter(before);
    } else {
      if (first_.empty()) first_ = line;
      last_ = text_.size();
      text_.append(line).append(1, '\n');
    }
  }

  void enter(std::string_view heading) {
    if (has_heading_ || heading.empty()) return;
    has_heading_ = true;
    if (about_.title.empty()) about_.title = plain_text(heading, longest_title);
    text_.clear();
    last_ = 0;
  }

  About &about_;
  bool is_code_ = false, has_heading_ = false;
  std::string_view first_;  // line that is not empty
  std::string text_;
  size_t last_ = 0;  // offset of the last line in the text
};

bool has_nul(std::string_view bytes) { return bytes.find('\0') != std::string_view::npos; }

std::string_view without_mark(std::string_view text) {
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
  if (text.starts_with(byte_order_mark)) text.remove_prefix(byte_order_mark.size());
  return text;
}

}  // namespace

About about_markdown(std::string_view bytes) {
  About about;
  if (has_nul(bytes)) return about;
  const std::string_view text = after_fields(without_mark(bytes), about);
  MarkdownReader(about).read(text);
  return about;
}

About about_text(std::string_view bytes) {
  About about;
  if (has_nul(bytes)) return about;
  TextLines lines(without_mark(bytes));
  while (const auto line = lines.next()) {
    about.title = plain_text(*line, longest_title);
    if (!about.title.empty()) break;
  }
  TextLines after = lines;
  const auto line = after.next();
  about.description = plain_text(line && is_underline(*line) ? after.rest() : lines.rest(), longest_description);
  return about;
}

}  // namespace rdm::gather
