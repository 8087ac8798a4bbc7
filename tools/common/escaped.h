// SPDX-License-Identifier: MIT
/// Texts of catalogs, inputs and command lines in messages.
#ifndef TOOLS_COMMON_ESCAPED_H
#define TOOLS_COMMON_ESCAPED_H

#include <string>
#include <string_view>

#include "qxapi/log_text.h"

namespace rdm::tools {

/// escaped returns a text with control characters as \n, \r, \t or \x1b, so that it cannot control a terminal and stays
/// on one line.
inline std::string escaped(std::string_view text) {
  std::string line;
  for (const char c : text) line += EscapedChar(c, Escaping::controls).text();
  return line;
}

}  // namespace rdm::tools

#endif
