// SPDX-License-Identifier: MIT
#include "catalog/stream/soif_scan.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "libcs/soif/grammar.h"
#include "qxapi/ascii.h"
#include "qxapi/escaped.h"

namespace rdm::catalog {
namespace {

constexpr char no_object[] = "not a SOIF object";

bool is_name_character(char c) { return c != ' ' && c != '{' && c != '}' && c != '@' && !ascii::is_control(c); }

using DeadEnds = std::unordered_map<int64_t, ScanFault>;

/// The distance of memoised offsets, in blanks or attributes. Usual objects have fewer of either.
constexpr int64_t blanks_apart = 4096;
constexpr int attributes_apart = 64;

/// ObjectScan reads an object as the parser does, but seeks over the values.
class ObjectScan {
 public:
  ObjectScan(InputWindow &window, int64_t offset, int64_t size, const DeadEnds &dead_ends)
      : size_(size), dead_ends_(dead_ends), input_(window, offset) {}

  ScanFault object() {
    if (const std::string text = header(); !text.empty()) return fault(text);
    for (int count = 1;; ++count) {
      if (pass_blanks() || is_dead_end(count % attributes_apart == 0)) return dead_ends_.at(offset_);
      const int c = input_.next();
      if (c == soif::end_of_input) return fault("not closed");
      if (c == '}') return {};
      input_.back_up(c);
      if (const std::string text = attribute(); !text.empty()) return fault(text);
    }
  }
  /// offsets returns offsets that the scan has passed. If the object is faulty, they are dead ends.
  const std::vector<int64_t> &offsets() const { return offsets_; }
  int64_t end() const { return input_.offset(); }
  const std::string &url() const { return url_; }
  const std::optional<ByteCount> &last_count() const { return last_count_; }

 private:
  ScanFault fault(std::string text) const { return {std::move(text), is_too_long_ || input_.met_end()}; }

  /// is_dead_end returns true if an earlier scan came from this offset to a fault. With `is_kept`, it adds the offset
  /// to offsets().
  bool is_dead_end(bool is_kept) {
    if (is_kept) offsets_.push_back(offset_);
    return dead_ends_.contains(offset_);
  }

  /// pass_blanks skips white space. Returns true if it meets a dead end.
  bool pass_blanks() {
    for (offset_ = input_.offset();; ++offset_) {
      if (offset_ % blanks_apart == 0 && is_dead_end(true)) return true;
      const int c = input_.next();
      if (soif::is_space(c)) continue;
      input_.back_up(c);
      return false;
    }
  }

  /// header reads the line of template and URL, and returns the reason if it is malformed.
  std::string header() {
    if (input_.next() != '@') return no_object;
    if (!soif::read_template_name(input_, buffer_)) return fault_of_token("template", soif::is_space);
    const auto url = soif::read_url(input_, buffer_);
    if (!url) return fault_of_token("URL", soif::is_space);
    url_ = *url;
    return "";
  }

  /// fault_of_token returns the reason why a token could not be read: it is too long, or the file ends within it.
  template <typename Stop>
  std::string fault_of_token(const std::string &what, Stop stop) {
    if (input_.met_end()) return no_object;
    size_t size = soif::token_limit;
    int c = input_.next();
    for (; c != soif::end_of_input && !stop(c); c = input_.next()) ++size;
    input_.back_up(c);
    return "the " + what + " has " + std::to_string(size) + " bytes, more than " +
           std::to_string(soif::token_limit - 1);
  }

  std::string attribute() {
    const auto name = soif::read_attribute_name(input_, buffer_);
    if (!name) return no_object;
    if (!is_attribute_name(*name))
      return "attribute name \"" + (name->empty() ? "(empty)" : printable(*name, 60)) +
             "\", after a value of the wrong size";
    last_count_ = {std::string(*name), "", 0};
    return value();
  }

  /// value skips a count and the value, and returns the reason if they are malformed.
  std::string value() {
    const auto digits = soif::read_size(input_, buffer_);
    if (!digits) return no_object;
    const int32_t size = soif::size_of(*digits);
    last_count_->text = *digits;
    if (!soif::read_size_end(input_)) return "no colon and tab after " + counted_name();
    last_count_->value_offset = input_.offset();
    if (size < 0) return counted_name() + " has a size below zero";
    is_too_long_ = last_count_->value_offset + size > size_;
    if (is_too_long_) return counted_name() + " reaches beyond the end";
    input_.seek(last_count_->value_offset + size);
    return "";
  }

  std::string counted_name() const {
    return printable(last_count_->attribute, 60) + '{' + printable(last_count_->text, 20) + '}';
  }

  int64_t size_;
  const DeadEnds &dead_ends_;
  WindowInput input_;
  std::vector<int64_t> offsets_;
  std::string url_;
  std::optional<ByteCount> last_count_;
  int64_t offset_ = 0;
  bool is_too_long_ = false;  // the last value reaches beyond the end of the file
  char buffer_[soif::token_limit];
};

}  // namespace

bool is_attribute_name(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return is_name_character(c); });
}

std::string printable(std::string_view text, size_t limit) {
  const std::string line = without_controls(text.substr(0, limit), '?');
  return text.size() > limit ? line + "..." : line;
}

std::string SoifScan::fault_of(int64_t offset) {
  ObjectScan scan(window_, offset, size_, dead_ends_);
  fault_ = scan.object();
  end_ = scan.end();
  url_ = scan.url();
  last_count_ = scan.last_count();
  if (!fault_.text.empty())
    for (const int64_t passed : scan.offsets()) dead_ends_.emplace(passed, fault_);
  return fault_.text;
}

}  // namespace rdm::catalog
