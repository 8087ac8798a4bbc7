// SPDX-License-Identifier: MIT
#include "catalog/stream/soif_scan.h"

#include <string_view>
#include <vector>

#include "catalog/os/error.h"
#include "libcs/soif/input.h"
#include "qxapi/ascii.h"

namespace rdm::catalog {
namespace {

constexpr char no_object[] = "not a SOIF object";
constexpr auto is_space = [](int c) { return ascii::is_space(c); };

bool is_name_character(char c) {
  return static_cast<unsigned char>(c) > ' ' && c != '{' && c != '}' && c != '@' && c != 0x7F;
}

bool is_name(std::string_view name) {
  for (char c : name)
    if (!is_name_character(c)) return false;
  return !name.empty();
}

void seek(FILE *file, int64_t offset, int whence) {
  if (::fseeko(file, offset, whence) != 0) throw system_failure("cannot read the input");
}

int64_t tell(FILE *file) {
  const int64_t offset = ::ftello(file);
  if (offset == -1) throw system_failure("cannot read the input");
  return offset;
}

using DeadEnds = std::unordered_map<int64_t, ScanFault>;

/// How far it is between the places that are remembered, in blanks or attributes. Objects as they should be have fewer.
constexpr int64_t blanks_apart = 4096;
constexpr int attributes_apart = 64;

/// ObjectScan goes through an object as the parser does.
class ObjectScan {
 public:
  ObjectScan(FILE *file, int64_t size, const DeadEnds &dead_ends)
      : file_(file), size_(size), dead_ends_(dead_ends), input_(file) {}

  ScanFault object() {
    if (!header()) return fault(no_object);
    for (int count = 1;; ++count) {
      if (pass_blanks() || is_dead_end(count % attributes_apart == 0)) return dead_ends_.at(place_);
      const int c = input_.next();
      if (c == soif::end_of_input) return fault("not closed");
      if (c == '}') return {};
      input_.back_up(c);
      if (const std::string text = attribute(); !text.empty()) return fault(text);
    }
  }
  /// places returns where the scan has been, for others to be warned of.
  const std::vector<int64_t> &places() const { return places_; }
  const std::string &url() const { return url_; }
  const std::optional<Counted> &last_count() const { return last_count_; }

 private:
  ScanFault fault(std::string text) const { return {std::move(text), is_too_long_ || std::feof(file_) != 0}; }

  /// is_dead_end says whether a scan before this one has been at the place, and may keep it for those after this.
  bool is_dead_end(bool is_kept) {
    if (is_kept) places_.push_back(place_);
    return dead_ends_.contains(place_);
  }

  /// pass_blanks goes to the place where an attribute begins; true at a dead end on the way.
  bool pass_blanks() {
    for (place_ = tell(file_);; ++place_) {
      if (place_ % blanks_apart == 0 && is_dead_end(true)) return true;
      const int c = input_.next();
      if (is_space(c)) continue;
      input_.back_up(c);
      return false;
    }
  }

  bool header() {
    if (!input_.skip_past('@') || !input_.token(is_space, buffer_)) return false;
    input_.back_up(next_other([](int c) { return ascii::is_space(c) || c == '{'; }));
    const auto url = input_.token(is_space, buffer_);
    if (url) url_ = *url;
    return url.has_value();
  }

  std::string attribute() {
    const auto name = input_.token([](int c) { return c == '{'; }, buffer_);
    if (!name) return no_object;
    if (!is_name(*name))
      return "attribute name \"" + (name->empty() ? "(empty)" : printable(*name, 60)) +
             "\", after a value of the wrong size";
    last_count_ = {std::string(*name), "", 0};
    input_.next();
    return value();
  }

  /// value passes over a size and as many bytes, and returns what is wrong with them.
  std::string value() {
    const auto digits = input_.token([](int c) { return c == '}'; }, buffer_);
    if (!digits) return no_object;
    const int32_t size = ascii::to_int32(*digits);
    last_count_->count = *digits;
    input_.next();
    if (input_.next() != ':' || input_.next() != '\t') return "no colon and tab after " + counted();
    last_count_->value = tell(file_);
    if (size < 0) return counted() + " has a size below zero";
    is_too_long_ = last_count_->value + size > size_;
    if (is_too_long_) return counted() + " reaches beyond the end";
    seek(file_, size, SEEK_CUR);
    return "";
  }

  std::string counted() const {
    return printable(last_count_->attribute, 60) + '{' + printable(last_count_->count, 20) + '}';
  }

  template <typename Class>
  int next_other(Class is_in_class) {
    int c = input_.next();
    while (is_in_class(c)) c = input_.next();
    return c;
  }

  FILE *file_;
  int64_t size_;
  const DeadEnds &dead_ends_;
  soif::FileInput input_;
  std::vector<int64_t> places_;
  std::string url_;
  std::optional<Counted> last_count_;
  int64_t place_ = 0;
  bool is_too_long_ = false;  // the value read last, for the file
  char buffer_[soif::token_limit];
};

}  // namespace

std::string printable(std::string_view text, size_t limit) {
  std::string line(text.substr(0, limit));
  for (char &c : line)
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) c = '?';
  return text.size() > limit ? line + "..." : line;
}

std::string SoifScan::fault_of(int64_t offset) {
  seek(file_, offset, SEEK_SET);
  ObjectScan scan(file_, size_, dead_ends_);
  fault_ = scan.object();
  url_ = scan.url();
  last_count_ = scan.last_count();
  if (!fault_.text.empty())
    for (const int64_t place : scan.places()) dead_ends_.emplace(place, fault_);
  return fault_.text;
}

}  // namespace rdm::catalog
