// SPDX-License-Identifier: MIT
/// Client text in log lines. All logs of the system escape it with this file.
#ifndef QXAPI_LOG_TEXT_H
#define QXAPI_LOG_TEXT_H

#include <cstddef>
#include <initializer_list>
#include <string_view>

#include "qxapi/ascii.h"
#include "qxapi/hex.h"

namespace rdm {

/// The size of a log line with its newline and NUL; longer lines are cut.
constexpr std::size_t log_line_size = 8192;

/// Escaping is the set of characters to escape. Each level includes the ones before it.
enum class Escaping {
  controls,   // 0 to 31 and 127, which could start a line or command a terminal
  non_ascii,  // bytes above 127
  quotes,     // the quote and the backslash, for a quoted field
};

/// EscapedChar is one character as written to a log: itself or an escape (\n, \r, \t, \", \\ or \x1b).
class EscapedChar {
 public:
  constexpr EscapedChar(char c, Escaping level) {
    if (level == Escaping::quotes && (c == '"' || c == '\\'))
      put({'\\', c});
    else if (c == '\n' || c == '\r' || c == '\t')
      put({'\\', c == '\n' ? 'n' : (c == '\r' ? 'r' : 't')});
    else if (ascii::is_control(c) || (level != Escaping::controls && static_cast<unsigned char>(c) > 127))
      put_number(c);
    else
      put({c});
  }
  /// number returns the hexadecimal escape of a character, such as \x1b.
  static constexpr EscapedChar number(char c) {
    EscapedChar escaped;
    escaped.put_number(c);
    return escaped;
  }
  constexpr std::string_view text() const { return {text_, size_}; }

 private:
  constexpr EscapedChar() = default;

  constexpr void put_number(char c) {
    put({'\\', 'x', hex::digits[static_cast<unsigned char>(c) >> 4], hex::digits[c & 15]});
  }
  constexpr void put(std::initializer_list<char> characters) {
    for (const char c : characters) text_[size_++] = c;
  }

  char text_[4] = {};
  std::size_t size_ = 0;
};

/// cut_text returns at most the first `size` bytes of an escaped text. It never splits an escape.
constexpr std::string_view cut_text(std::string_view text, std::size_t size) {
  if (text.size() <= size) return text;
  const std::size_t last = text.substr(0, size).rfind('\\');
  if (last == std::string_view::npos) return text.substr(0, size);
  const std::size_t end = last + (text.substr(last).starts_with("\\x") ? 4 : 2);
  return text.substr(0, end > size ? last : size);
}

/// LogText is client text for a log line: control characters are escaped, and the text is cut to the size of a line. It
/// does not allocate. A temporary lives to the end of its statement:
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
