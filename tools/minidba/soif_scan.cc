#include "tools/minidba/soif_scan.h"

#include <string_view>

#include "libcs/soif/input.h"
#include "qxapi/ascii.h"
#include "tools/minidba/failure.h"

namespace minidba {
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

/// printable returns a text fit for one line.
std::string printable(std::string_view text) {
  std::string line = text.empty() ? "(empty)" : std::string(text.substr(0, 60)) + (text.size() > 60 ? "..." : "");
  for (char &c : line)
    if (static_cast<unsigned char>(c) < ' ' || c == 0x7F) c = '?';
  return line;
}

void seek(FILE *file, int64_t offset, int whence) {
  if (::fseeko(file, offset, whence) != 0) throw system_failure("cannot read the input");
}

/// Scan goes through an object as the parser does.
class Scan {
 public:
  Scan(FILE *file, int64_t size) : file_(file), size_(size), input_(file) {}

  std::string object() {
    if (!header()) return no_object;
    for (;;) {
      const int c = next_other(is_space);
      if (c == soif::end_of_input) return "not closed";
      if (c == '}') return {};
      input_.back_up(c);
      if (std::string fault = attribute(); !fault.empty()) return fault;
    }
  }

 private:
  bool header() {
    if (!input_.skip_past('@') || !input_.token(is_space, buffer_)) return false;
    input_.back_up(next_other([](int c) { return ascii::is_space(c) || c == '{'; }));
    return input_.token(is_space, buffer_).has_value();
  }

  std::string attribute() {
    const auto name = input_.token([](int c) { return c == '{'; }, buffer_);
    if (!name) return no_object;
    if (!is_name(*name)) return "attribute name \"" + printable(*name) + "\", after a value of the wrong size";
    input_.next();
    return value() ? "" : no_object;
  }

  /// value passes over a size and as many bytes, and returns whether they are there.
  bool value() {
    const auto digits = input_.token([](int c) { return c == '}'; }, buffer_);
    if (!digits) return false;
    const int32_t size = ascii::to_int32(*digits);
    input_.next();
    if (size < 0 || input_.next() != ':' || input_.next() != '\t') return false;
    if (::ftello(file_) + int64_t{size} > size_) return false;
    seek(file_, size, SEEK_CUR);
    return true;
  }

  template <typename Class>
  int next_other(Class is_in_class) {
    int c = input_.next();
    while (is_in_class(c)) c = input_.next();
    return c;
  }

  FILE *file_;
  int64_t size_;
  soif::file_input input_;
  char buffer_[soif::token_limit];
};

}  // namespace

std::string fault_of(FILE *file, int64_t size, int64_t offset) {
  seek(file, offset, SEEK_SET);
  return Scan(file, size).object();
}

}  // namespace minidba
