// SPDX-License-Identifier: MIT
#include "tools/rdmgather/document_url.h"

#include <algorithm>

#include "qxapi/ascii.h"

namespace rdm::gather {
namespace {

bool is_graphic(char c) { return c > ' ' && c < '\x7f'; }

bool is_unreserved(char c) {
  return ascii::is_alpha(c) || ascii::is_digit(c) || std::string_view("-._~/").find(c) != std::string_view::npos;
}

bool is_scheme(std::string_view text) {
  const auto fits = [](char c) { return ascii::is_alpha(c) || ascii::is_digit(c) || c == '+' || c == '-' || c == '.'; };
  return !text.empty() && ascii::is_alpha(text.front()) && std::all_of(text.begin(), text.end(), fits);
}

}  // namespace

std::string fault_of_base(const std::string &url) {
  const size_t colon = url.find("://");
  if (colon == std::string::npos || !is_scheme(std::string_view(url).substr(0, colon)))
    return "not a URL with a scheme and \"://\"";
  if (!std::all_of(url.begin(), url.end(), is_graphic)) return "a URL has no blanks and no bytes beyond ASCII";
  return url.find_first_of("?#") != std::string::npos ? "must have no query and no fragment" : "";
}

std::string with_slash(std::string url) {
  if (!url.ends_with('/')) url += '/';
  return url;
}

std::string encoded_path(std::string_view path) {
  constexpr char digits[] = "0123456789ABCDEF";  // RFC 3986, section 2.1: escapes are in upper case
  std::string text;
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (is_unreserved(c))
      text += c;
    else
      text.append(1, '%').append(1, digits[byte >> 4]).append(1, digits[byte & 15]);
  }
  return text;
}

}  // namespace rdm::gather
