// SPDX-License-Identifier: MIT
/// The grammar of SOIF objects, for the parser, the scan of streams and the check of prepared answers. Header only; it
/// needs nothing else of libcs.
///
///     @TEMPLATE { URL
///     NAME{SIZE}:<tab>VALUE
///     }
///
/// White space ends the template name and the URL and separates attributes. Any number of braces, also none, precede
/// the URL. Only "{" ends the name of an attribute.
#ifndef LIBCS_SOIF_GRAMMAR_H
#define LIBCS_SOIF_GRAMMAR_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "qxapi/ascii.h"

namespace rdm::soif {

/// A token (template name, URL, attribute name, size) must be shorter than this.
constexpr std::size_t token_limit = 4096;

/// up_to_nul returns the part of a token before its first NUL: names and URLs are stored as C strings.
constexpr std::string_view up_to_nul(std::string_view token) { return token.substr(0, token.find('\0')); }

inline constexpr std::string_view white_space = " \t\n\v\f\r";
inline constexpr std::string_view white_space_and_braces = " \t\n\v\f\r{";

/// The largest accepted value: a larger size is taken for damage.
constexpr std::int32_t largest_value = 256 << 20;

/// The number of buckets in the table of a parsed object. The printer writes the attributes bucket by bucket.
constexpr std::int32_t bucket_count = 23;

/// The text between the size of a value and the value.
inline constexpr std::string_view size_end = "}:\t";

/// The classes of characters that tokens end at, or that are between them.
inline constexpr auto is_space = [](int c) { return ascii::is_space(c); };
inline constexpr auto is_before_url = [](int c) { return ascii::is_space(c) || c == '{'; };
inline constexpr auto is_open_brace = [](int c) { return c == '{'; };
inline constexpr auto is_close_brace = [](int c) { return c == '}'; };

/// read_past reads the characters of a class and the one after them, which it returns.
template <typename Input, typename Class>
int read_past(Input &input, Class is_in_class) {
  int c = input.next();
  while (is_in_class(c)) c = input.next();
  return c;
}

/// The procedures below read tokens from a StringInput or FileInput (input.h). They return std::nullopt at the end of
/// input and for a token that is too long. `buffer` has token_limit bytes and may hold the text.

/// read_template_name reads the text from the "@" of an object up to white space.
template <typename Input>
std::optional<std::string_view> read_template_name(Input &input, char *buffer) {
  return input.token(is_space, buffer);
}

/// read_url reads the text from a template name up to the white space after the URL.
template <typename Input>
std::optional<std::string_view> read_url(Input &input, char *buffer) {
  input.back_up(read_past(input, is_before_url));
  return input.token(is_space, buffer);
}

/// read_up_to reads a token and the brace that ends it.
template <typename Input, typename Brace>
std::optional<std::string_view> read_up_to(Input &input, Brace is_brace, char *buffer) {
  const auto token = input.token(is_brace, buffer);
  if (token) input.next();
  return token;
}

/// read_attribute_name reads the name of an attribute and the "{" after it.
template <typename Input>
std::optional<std::string_view> read_attribute_name(Input &input, char *buffer) {
  return read_up_to(input, is_open_brace, buffer);
}

/// read_size reads a size, as it is written, and the "}" after it. size_of is its value: 0 if it has no digits.
template <typename Input>
std::optional<std::string_view> read_size(Input &input, char *buffer) {
  return read_up_to(input, is_close_brace, buffer);
}
constexpr int32_t size_of(std::string_view size) { return ascii::to_int32(size); }

/// read_size_end reads the colon and the tab after a size. Returns false if there is anything else.
template <typename Input>
bool read_size_end(Input &input) {
  return input.next() == ':' && input.next() == '\t';
}

/// AttributeHead is the text before a value: NAME{SIZE}: and a tab.
struct AttributeHead {
  std::string_view name;
  std::uint64_t size;  // of the value
  std::size_t length;  // of the head
};

/// written_head returns the head that `text` begins with, if it is one as programs write it: the name has at least one
/// character and none of `not_in_name`, which contains "{", and the size is digits. The parser takes much else for a
/// head; who searches a text for attributes must not. Only the first `longest_name` bytes are searched for the brace.
inline std::optional<AttributeHead> written_head(std::string_view text, std::string_view not_in_name,
                                                 std::size_t longest_name = std::string_view::npos) noexcept {
  const std::size_t open = text.substr(0, longest_name).find_first_of(not_in_name);
  if (open == 0 || open == std::string_view::npos || text[open] != '{') return std::nullopt;
  std::uint64_t size = 0;
  const auto [end, error] = std::from_chars(text.data() + open + 1, text.data() + text.size(), size);
  const auto close = static_cast<std::size_t>(end - text.data());
  if (error != std::errc() || !text.substr(close).starts_with(size_end)) return std::nullopt;
  return AttributeHead{text.substr(0, open), size, close + size_end.size()};
}

}  // namespace rdm::soif

#endif
