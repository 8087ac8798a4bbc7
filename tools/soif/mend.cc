// SPDX-License-Identifier: MIT
#include "tools/soif/mend.h"

#include <algorithm>

#include "catalog/stream/soif_scan.h"
#include "libcs/soif/grammar.h"
#include "qxapi/ascii.h"

namespace rdm::soif_tool {
namespace {

constexpr size_t none = std::string_view::npos;
// Counts may lead from everywhere to the same place: little of the text there is read each time.
constexpr size_t longest_name = 256, longest_count = 20, longest_space = 64;

/// Head is the text before a value, as people write it.
struct Head {
  std::string_view name, count;
  bool has_tab;
  size_t value;  // offset of the value in the text
};

bool is_digits(std::string_view text) { return std::all_of(text.begin(), text.end(), ascii::is_digit); }

class Mender {
 public:
  explicit Mender(std::string_view text)
      : text_(text), closing_(closing_of(text)), last_brace_(closing_ == none ? text.rfind("\n}") : none) {}

  bool ends_within_head(std::string_view value) const {
    const size_t newline = value.rfind('\n');
    if (newline == none) return false;
    const auto start = static_cast<size_t>(value.data() - text_.data());
    const std::optional<Head> head = head_at(start + newline + 1);
    return head && start + value.size() < head->value;
  }

  std::optional<Mended> mend() {
    if (!header()) return std::nullopt;
    for (;;) {
      at_ = past_space(at_);
      if (at_ == text_.size()) {
        correct(at_, "the closing brace is missing");
        return std::move(mended_);
      }
      if (at_ == closing_) return std::move(mended_);
      const std::optional<Head> head = head_at(at_);
      if (!head || !attribute(*head)) return std::nullopt;
    }
  }

 private:
  /// closing_of returns the offset of the brace that closes the text, alone on its line, or `none`.
  static size_t closing_of(std::string_view text) {
    const size_t last = text.find_last_not_of(soif::white_space);
    return last != none && last > 0 && text[last] == '}' && text[last - 1] == '\n' ? last : none;
  }

  size_t past_space(size_t at) const { return std::min(text_.find_first_not_of(soif::white_space, at), text_.size()); }

  bool header() {
    if (text_.empty() || text_.front() != '@') return false;
    const size_t space = text_.find_first_of(soif::white_space);
    const size_t url = text_.find_first_not_of(soif::white_space_and_braces, space);
    if (space == none || url == none || space == 1) return false;
    const size_t end = std::min(text_.find_first_of(soif::white_space, url), text_.size());
    mended_.description.template_name = text_.substr(1, space - 1);
    mended_.description.url = text_.substr(url, end - url);
    at_ = end;
    return fault_of(mended_.description).empty();
  }

  /// head_at returns the head of an attribute at an offset.
  std::optional<Head> head_at(size_t at) const {
    const std::string_view line = text_.substr(at, longest_name + longest_count);
    const size_t open = line.find_first_of("{\n");
    if (open > longest_name || line[open] != '{') return std::nullopt;
    const std::string_view name = line.substr(0, open), rest = line.substr(open + 1, longest_count);
    const size_t close = rest.find('}');
    if (close == none || !catalog::is_attribute_name(name) || !is_digits(rest.substr(0, close))) return std::nullopt;
    return head_of(name, rest.substr(0, close), at + open + close + 2);
  }

  /// head_of returns the head whose colon is at an offset.
  std::optional<Head> head_of(std::string_view name, std::string_view count, size_t colon) const {
    if (colon >= text_.size() || text_[colon] != ':') return std::nullopt;
    const char after = colon + 1 < text_.size() ? text_[colon + 1] : '\n';
    if (after == '\n' || after == '\r') return Head{name, count, false, colon + 1};
    if (after != '\t' && after != ' ') return std::nullopt;
    return Head{name, count, after == '\t', colon + 2};
  }

  bool is_boundary(size_t at) const { return at == text_.size() || at == closing_ || head_at(at).has_value(); }

  /// may_hold_an_end returns true if a value is the last of a text that is not closed, and may itself contain the end
  /// of the object.
  bool may_hold_an_end(size_t value, size_t end) const {
    return closing_ == none && end + 2 >= text_.size() && last_brace_ != none && last_brace_ >= value;
  }

  /// counted_end returns the end of the value of a head if its count stands, otherwise `none`.
  size_t counted_end(const Head &head) const {
    const auto size = static_cast<size_t>(std::max(ascii::to_int32(head.count), 0));
    if (head.count.empty() || size > text_.size() - head.value) return none;
    const size_t end = head.value + size;
    if (end > closing_ || may_hold_an_end(head.value, end)) return none;
    const bool ends_line = end == text_.size() || text_[end] == '\n' || text_.substr(end).starts_with("\r\n");
    const size_t space = text_.substr(end, longest_space).find_first_not_of(soif::white_space);
    const size_t next = space == none ? std::min(end + longest_space, text_.size()) : end + space;
    return ends_line && is_boundary(next) ? end : none;
  }

  /// line_end returns the end of the value that begins at an offset, before the next line that is a boundary. Returns
  /// `none` if there is no such line and the object may end within the text.
  size_t line_end(size_t value) const {
    for (size_t end = text_.find('\n', value); end != none; end = text_.find('\n', end + 1))
      if (end + 1 < text_.size() && is_boundary(end + 1)) return without_newline(value, end);
    if (may_hold_an_end(value, text_.size())) return none;
    return without_newline(value, text_.size() - (text_.ends_with('\n') ? 1 : 0));
  }

  /// without_newline returns the end of a value before a newline, or before its CR.
  size_t without_newline(size_t value, size_t newline) const {
    return newline > value && text_[newline - 1] == '\r' ? newline - 1 : std::max(newline, value);
  }

  bool attribute(const Head &head) {
    const size_t counted = counted_end(head);
    const size_t end = counted != none ? counted : line_end(head.value);
    if (end == none) return false;
    std::string name(head.name);
    std::transform(name.begin(), name.end(), name.begin(), ascii::lower);
    const std::string fits = name + '{' + std::to_string(end - head.value) + '}';
    if (counted == none)
      correct(at_, name + '{' + std::string(head.count) + "} should be " + fits);
    else if (!head.has_tab)
      correct(at_, "no tab after " + fits + ':');
    mended_.description.attributes.push_back(
        {std::move(name), std::string(text_.substr(head.value, end - head.value))});
    at_ = end;
    return true;
  }

  void correct(size_t offset, std::string words) { mended_.corrections.push_back({offset, std::move(words)}); }

  std::string_view text_;
  size_t closing_;
  size_t last_brace_;  // the last line that begins with a brace, if the text is not closed
  size_t at_ = 0;
  Mended mended_;
};

}  // namespace

bool ends_within_head(std::string_view text, std::string_view value) { return Mender(text).ends_within_head(value); }

std::optional<Mended> mend(std::string_view text) { return Mender(text).mend(); }

}  // namespace rdm::soif_tool
