// SPDX-License-Identifier: MIT
/// Reading one object, whatever is made of it. Header only; of libcs it needs nothing that is not in headers.
#ifndef LIBCS_SOIF_OBJECT_READER_H
#define LIBCS_SOIF_OBJECT_READER_H

#include <algorithm>

#include "libcs/soif/grammar.h"
#include "libcs/soif/input.h"

namespace rdm::soif {

/// ObjectReader reads objects as soif_parse does. `Input` is StringInput or FileInput. An `Object` takes what is read:
///
///     bool begin(std::string_view template_name, std::string_view url)
///     bool wants(std::string_view name)
///     bool value(std::string_view name, size_t size, Input &input)   reads `size` bytes
///
/// Names are in lower case, and no text has a NUL. A wanted value must be read; others are skipped. Reading ends if
/// begin or value returns false.
template <typename Input, typename Object>
class ObjectReader {
 public:
  ObjectReader(Input &input, Object &object) noexcept : input_(input), object_(object) {}

  /// read returns false at the end of input, after a syntax error, or if the object says so.
  bool read() noexcept { return input_.skip_past('@') && header() && attributes(); }

 private:
  /// header reads template name and URL. The brace between them may be missing or repeated; a brace directly after the
  /// template name is part of the name.
  bool header() noexcept {
    const auto template_name = read_template_name(input_, name_);
    if (!template_name) return false;
    const auto url = read_url(input_, token_);
    return url && object_.begin(up_to_nul(*template_name), up_to_nul(*url));
  }

  /// attributes reads up to "}" or the end of input, which both complete the object.
  bool attributes() noexcept {
    for (;;) {
      const int c = read_past(input_, is_space);
      if (c == end_of_input || c == '}') return true;
      input_.back_up(c);
      if (!attribute()) return false;
    }
  }

  bool attribute() noexcept {
    const auto name_as_written = read_attribute_name(input_, name_);
    if (!name_as_written) return false;
    const std::string_view name = lower_case(up_to_nul(*name_as_written));
    const auto digits = read_size(input_, token_);
    if (!digits) return false;
    const int32_t size = size_of(*digits);
    if (size < 0 || size > largest_value || !read_size_end(input_)) return false;
    // An excessive size is damage even if the value is not wanted.
    if (!input_.may_hold(static_cast<size_t>(size))) return false;
    if (object_.wants(name)) return object_.value(name, static_cast<size_t>(size), input_);
    input_.skip(static_cast<size_t>(size));
    return true;
  }

  std::string_view lower_case(std::string_view name) noexcept {
    std::transform(name.begin(), name.end(), name_, ascii::lower);
    return {name_, name.size()};
  }

  Input &input_;
  Object &object_;
  char name_[token_limit];
  char token_[token_limit];
};

}  // namespace rdm::soif

#endif
