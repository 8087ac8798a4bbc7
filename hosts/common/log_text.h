// SPDX-License-Identifier: MIT
/// Text of others in a log of ours.
#ifndef HOSTS_COMMON_LOG_TEXT_H
#define HOSTS_COMMON_LOG_TEXT_H

#include <string>
#include <string_view>

#include "qxapi/log_text.h"

namespace rdm::hosts {

/// log_text returns a text for one line of a log, or with Escaping::quotes for a quoted field of one. Its last newline
/// is left out.
std::string log_text(std::string_view text, Escaping level);

}  // namespace rdm::hosts

#endif
