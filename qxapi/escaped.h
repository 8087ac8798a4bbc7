// SPDX-License-Identifier: MIT
/// Escapes control characters in a std::string. Programs use it; the libraries use LogText.
#ifndef QXAPI_ESCAPED_H
#define QXAPI_ESCAPED_H

#include <string>
#include <string_view>

#include "qxapi/ascii.h"
#include "qxapi/log_text.h"

namespace rdm {

/// escaped returns `text` with the characters that `level` selects escaped. Escaping newlines and ESC prevents log and
/// terminal injection.
inline std::string escaped(std::string_view text, Escaping level = Escaping::controls) {
  std::string line;
  line.reserve(text.size());
  for (const char c : text) line.append(EscapedChar(c, level).text());
  return line;
}

/// without_controls returns a text with `substitute` for each of its control characters.
inline std::string without_controls(std::string_view text, char substitute) {
  std::string line(text);
  for (char &c : line)
    if (ascii::is_control(c)) c = substitute;
  return line;
}

}  // namespace rdm

#endif
