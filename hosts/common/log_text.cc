// SPDX-License-Identifier: MIT
#include "hosts/common/log_text.h"

namespace rdm::hosts {

std::string log_text(std::string_view text, Escaping level) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  std::string line;
  line.reserve(text.size());
  for (const char c : text) line.append(EscapedChar(c, level).text());
  return line;
}

}  // namespace rdm::hosts
