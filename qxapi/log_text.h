// SPDX-License-Identifier: MIT
/// Text of clients in lines of logs. Every log of the system escapes through this file.
#ifndef QXAPI_LOG_TEXT_H
#define QXAPI_LOG_TEXT_H

#include <cstddef>
#include <initializer_list>
#include <string_view>

#include "qxapi/ascii.h"

namespace rdm {

/// The bytes of a log line, its newline included, with a NUL: a longer line is cut.
constexpr std::size_t log_line_size = 8192;

/// Escaping says which characters are escaped. Each level includes the ones before it.
enum class Escaping {
  controls,   // 0 to 31 and 127, which could start a line or command a terminal
  non_ascii,  // bytes above 127
  quotes,     // the quote and the backslash, for a quoted field
};

/// EscapedChar is one character as a log shows it: itself or an escape (\n, \r, \t, \", \\ or \x1b).
class EscapedChar {
 public:
  constexpr EscapedChar(char c, Escaping level) {
    if (level == Escaping::quotes && (c == '"' || c == '\\'))
      put({'\\', c});
    else if (c == '\n' || c == '\r' || c == '\t')
      put({'\\', c == '\n' ? 'n' : (c == '\r' ? 'r' : 't')});
    else if (ascii::is_control(c) || (level != Escaping::controls && static_cast<unsigned char>(c) > 127))
      put({'\\', 'x', digits[static_cast<unsigned char>(c) >> 4], digits[c & 15]});
    else
      put({c});
  }
  constexpr std::string_view text() const { return {text_, size_}; }

 private:
  static constexpr char digits[] = "0123456789abcdef";

  constexpr void put(std::initializer_list<char> characters) {
    for (const char c : characters) text_[size_++] = c;
  }

  char text_[4] = {};
  std::size_t size_ = 0;
};

/// cut_text returns the front of an escaped text, at most `size` bytes, without a part of an escape at its end.
constexpr std::string_view cut_text(std::string_view text, std::size_t size) {
  if (text.size() <= size) return text;
  const std::size_t last = text.substr(0, size).rfind('\\');
  if (last == std::string_view::npos) return text.substr(0, size);
  const std::size_t end = last + (text.substr(last).starts_with("\\x") ? 4 : 2);
  return text.substr(0, end > size ? last : size);
}

/// LogText is a client's text for a log line, its control characters escaped and cut to what a line holds. It needs no
/// memory of the host. It lives as long as the statement that makes it:
///
///     CSLOG(CSLOG_ERROR, "rds", "Require <CSID:%s>\n", LogText(csid).c_str());
class LogText {
 public:
  explicit LogText(std::string_view text) noexcept {
    std::size_t size = 0;
    for (const char c : text) {
      const EscapedChar escaped(c, Escaping::controls);
      if (size + escaped.text().size() >= sizeof text_) break;
      size += escaped.text().copy(text_ + size, escaped.text().size());
    }
    text_[size] = '\0';
  }
  const char *c_str() const noexcept { return text_; }

 private:
  char text_[log_line_size];
};

}  // namespace rdm

#endif
