// SPDX-License-Identifier: MIT
#include "hosts/common/log_text.h"

#include "qxapi/escaped.h"

namespace rdm::hosts {

std::string log_text(std::string_view text, Escaping level) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  return escaped(text, level);
}

}  // namespace rdm::hosts
