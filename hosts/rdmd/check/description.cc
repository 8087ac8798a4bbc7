// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/description.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>

#include "libcs/soif/grammar.h"
#include "qxapi/ascii.h"

namespace rdm::check {
namespace {

using soif::white_space;

constexpr std::int64_t longest_answer = 0xFFFFFFFF;
constexpr std::size_t npos = std::string_view::npos;
constexpr std::string_view blanks = " \t\r";

/// AttributeHead is the text before a value: NAME{SIZE}: and a tab.
struct AttributeHead {
  std::size_t offset;  // of the name
  std::string_view name;
  std::uint64_t size;
  std::size_t value;  // offset of the value
};

std::optional<AttributeHead> head_at(std::string_view text, std::size_t offset) {
  const auto head = soif::written_head(text.substr(offset), "{} \t\r\n");
  if (!head) return std::nullopt;
  return AttributeHead{offset, head->name, head->size, offset + head->length};
}

/// ends_line_at returns true if only blanks stand between `offset` and the end of its line.
bool ends_line_at(std::string_view text, std::size_t offset) {
  const std::size_t end = text.find_first_not_of(blanks, offset);
  return end == npos || text[end] == '\n';
}

/// begins_object_at returns true if "@NAME {" stands at `offset`.
bool begins_object_at(std::string_view text, std::size_t offset) {
  if (text[offset] != '@') return false;
  const std::size_t brace = text.find_first_not_of(blanks, text.find_first_of(white_space, offset));
  return brace != npos && text[brace] == '{';
}

/// begins_part_at returns true if an attribute or an object begins at `offset`.
bool begins_part_at(std::string_view text, std::size_t offset) {
  return begins_object_at(text, offset) || head_at(text, offset);
}

/// ends_value_at returns true if a closing brace on its own line, an attribute or an object stands at `offset`.
bool ends_value_at(std::string_view text, std::size_t offset) {
  return (text[offset] == '}' && ends_line_at(text, offset + 1)) || begins_part_at(text, offset);
}

/// line_end_before returns the end of the first line, from `from` on, that is followed by white space and a position
/// for which `is_part` returns true.
std::size_t line_end_before(std::string_view text, std::size_t from, bool (*is_part)(std::string_view, std::size_t)) {
  for (std::size_t end = text.find('\n', from); end != npos;) {
    const std::size_t next = text.find_first_not_of(white_space, end);
    if (next == npos) break;
    if (is_part(text, next)) return end;
    end = text.find('\n', next);
  }
  return npos;
}

std::string byte_count(std::uint64_t bytes) { return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes"); }

struct Object {
  std::size_t offset = 0;
  std::string_view name;
  std::optional<AttributeHead> type, message;  // rdm-type and rdm-error-message
  bool whole = false;
};

/// Reader reads a prepared answer and reports mistakes. If a byte count is wrong, it continues with the count that
/// would be right, so that one mistake is reported once.
class Reader {
 public:
  Reader(std::string_view text, Report &report) : text_(text), report_(report) {}

  void read(const std::string &key);

 private:
  void check_type(const Object &header, const std::string &key);
  void check_empty_line(const Object &header);
  void read_body(bool required);
  Object read_object();
  void read_attributes(Object &object);
  bool takes_end(const AttributeHead &head, std::size_t fit) const;
  bool read_value(AttributeHead &head);
  void skip_line(const Object &object, const std::optional<AttributeHead> &last);
  std::optional<std::size_t> fit_for(std::size_t value);

  void skip_space() { at_ = std::min(text_.find_first_not_of(white_space, at_), text_.size()); }
  std::string_view take_word();
  /// next_object returns the start of the next line that begins with "@", or the end of the text.
  std::size_t next_object(std::size_t from) const { return std::min(text_.find("\n@", from), text_.size() - 1) + 1; }
  std::string_view value_of(const AttributeHead &head) const { return text_.substr(head.value, head.size); }
  int line_of(std::size_t offset);
  void error(std::size_t offset, std::string text) { report_.error(line_of(offset), std::move(text)); }

  std::string_view text_;
  Report &report_;
  std::size_t at_ = 0;
  std::size_t line_offset_ = 0;     // the offset for which line_ is known
  int line_ = 1;                    // the line of that offset
  std::size_t no_fit_from_ = npos;  // no count fits a value at or after this offset
};

void Reader::read(const std::string &key) {
  skip_space();
  const std::size_t start = at_;
  const bool is_object = at_ < text_.size() && text_[at_++] == '@';
  if (!is_object || !ascii::iequals(take_word(), "RDMHEADER"))
    return error(start, "does not begin with an RDMHEADER object");
  at_ = start;
  const Object header = read_object();
  if (header.whole) {
    check_type(header, key);
    check_empty_line(header);
  }
  if (header.whole || at_ < text_.size()) read_body(!header.message);
}

/// check_type compares the header's RDM type with the two names that an answer of this kind may have.
void Reader::check_type(const Object &header, const std::string &key) {
  const std::string kind = key.substr(0, key.find('-')), wanted = key + "-response";
  if (!header.type)
    return error(header.offset, "the RDMHEADER object has no \"rdm-type\"; " + quote(wanted) + " is required");
  const std::string_view type = value_of(*header.type);
  if (!ascii::iequals(type, wanted) && !ascii::iequals(type, kind + "-response"))
    error(header.type->offset, "the type is " + quote(type) + "; " + quote(key) + " requires " + quote(wanted));
}

/// check_empty_line requires an empty line after the header and none within it, because some readers find the end of
/// the header by that line. `at_` is after the header's closing brace.
void Reader::check_empty_line(const Object &header) {
  const std::string_view object = text_.substr(header.offset, at_ - header.offset);
  const std::size_t within = std::min(object.find("\n\n"), object.find("\n\r\n"));
  if (within != npos) error(header.offset + within + 1, "an empty line ends the RDMHEADER object too early");
  const std::size_t end = std::min(text_.find('\n', at_), text_.size());
  const std::string_view behind = text_.substr(end);
  const bool is_empty = behind.substr(0, 2) == "\n\n" || behind.substr(0, 3) == "\n\r\n";
  if (!is_empty && text_.find_first_not_of(white_space, at_) != npos)
    error(at_, "no empty line follows the RDMHEADER object");
}

void Reader::read_body(bool required) {
  bool found = false;
  for (skip_space(); at_ < text_.size(); skip_space()) {
    if (text_[at_] == '@') {
      read_object();
      found = true;
    } else {
      report_.warning(line_of(at_), "this text is outside of any object; readers skip it");
      at_ = next_object(at_);
    }
  }
  if (!found && required) report_.error(0, "no object follows the RDMHEADER object");
}

/// read_object reads the object at at_. Like the parsers of such answers, it accepts any number of braces before the
/// URL, which only white space ends.
Object Reader::read_object() {
  Object object;
  object.offset = at_++;
  object.name = take_word();
  at_ = std::min(text_.find_first_not_of(soif::white_space_and_braces, at_), text_.size());
  take_word();
  read_attributes(object);
  return object;
}

void Reader::read_attributes(Object &object) {
  std::optional<AttributeHead> last;
  for (skip_space(); at_ < text_.size() && text_[at_] != '@'; skip_space()) {
    object.whole = text_[at_] == '}';
    if (object.whole) {
      ++at_;
      return;
    }
    auto head = head_at(text_, at_);
    if (!head) {
      skip_line(object, last);
      continue;
    }
    if (!read_value(*head)) return;
    if (!object.type && ascii::iequals(head->name, "rdm-type")) object.type = head;
    if (!object.message && ascii::iequals(head->name, "rdm-error-message")) object.message = head;
    last = head;
  }
  error(last ? last->offset : object.offset, "the " + std::string(object.name) + " object is not closed" +
                                                 (at_ < text_.size() ? "" : ": the file is truncated"));
}

/// takes_end returns true if the declared size of a value includes the end of its object: the value is the last of its
/// object, and text other than white space follows the size that would fit.
bool Reader::takes_end(const AttributeHead &head, std::size_t fit) const {
  const std::size_t next = text_.find_first_not_of(white_space, head.value + head.size);
  const bool is_last = next == npos || text_[next] == '@';
  return is_last && fit < head.size && value_of(head).find_first_not_of(white_space, fit) != npos;
}

/// read_value moves to the end of a value and corrects a wrong size. Returns false, after reporting an error, if the
/// end of the value cannot be found.
bool Reader::read_value(AttributeHead &head) {
  const std::size_t left = text_.size() - head.value;
  const auto fit = fit_for(head.value);
  const std::string announced = quote(head.name) + " announces " + byte_count(head.size);
  if (head.size <= left && ends_line_at(text_, head.value + head.size) && !(fit && takes_end(head, *fit))) {
    if (fit && line_end_before(value_of(head), 0, begins_part_at) != npos)
      report_.warning(line_of(head.offset), announced + ", the lines of further attributes among them; " +
                                                std::to_string(*fit) + " would fit without those");
  } else if (fit) {
    error(head.offset, announced + "; " + std::to_string(*fit) + " would fit");
    head.size = *fit;
  } else {
    error(head.offset,
          announced + (head.size > left ? ", but only " + std::to_string(left) + " follow: the file is truncated"
                                        : ", which end within a line"));
    at_ = next_object(head.value);
    return false;
  }
  at_ = head.value + head.size;
  return true;
}

/// skip_line reports a line that is not an attribute: either the line is damaged, or it belongs to the previous value.
void Reader::skip_line(const Object &object, const std::optional<AttributeHead> &last) {
  std::string problem = "the " + std::string(object.name) + " object is damaged in this line";
  const std::string_view line = text_.substr(at_, text_.find('\n', at_) - at_);
  const auto fit = last && line.find('{') == npos ? fit_for(last->value) : std::nullopt;
  if (fit)
    problem += ", or the value of " + quote(last->name) + " in line " + std::to_string(line_of(last->offset)) +
               " is longer than announced; " + std::to_string(*fit) + " would fit";
  error(at_, problem);
  const auto rest = fit_for(at_);
  at_ = rest ? at_ + *rest : next_object(at_);
}

/// fit_for returns the size that a value at `value` would have if it ended before the next text that ends a value.
/// Returns std::nullopt if there is none.
std::optional<std::size_t> Reader::fit_for(std::size_t value) {
  if (value >= no_fit_from_) return std::nullopt;
  const std::size_t end = line_end_before(text_, value, ends_value_at);
  if (end == npos) {
    no_fit_from_ = value;
    return std::nullopt;
  }
  return end - value - (end > value && text_[end - 1] == '\r' ? 1 : 0);
}

std::string_view Reader::take_word() {
  const std::size_t start = at_;
  at_ = std::min(text_.find_first_of(white_space, at_), text_.size());
  return text_.substr(start, at_ - start);
}

int Reader::line_of(std::size_t offset) {
  const auto [from, to] = std::minmax(offset, line_offset_);
  const std::string_view between = text_.substr(from, to - from);
  const auto lines = static_cast<int>(std::count(between.begin(), between.end(), '\n'));
  line_ += offset < line_offset_ ? -lines : lines;
  line_offset_ = offset;
  return line_;
}

}  // namespace

void check_description(const std::string &key, Report &report) {
  struct stat status;
  if (::stat(report.file().c_str(), &status) == 0 && status.st_size > longest_answer)
    return report.error(
        0, "has " + std::to_string(status.st_size) + " bytes; an answer has at most " + std::to_string(longest_answer));
  const auto text = read_bytes(report);
  if (text) check_description_text(key, *text, report);
}

void check_description_text(const std::string &key, std::string_view text, Report &report) {
  if (text.empty()) return report.error(0, "is empty");
  Reader(text, report).read(key);
}

}  // namespace rdm::check
