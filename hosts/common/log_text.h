// SPDX-License-Identifier: MIT
/// Escaping of foreign text for log lines.
#ifndef HOSTS_COMMON_LOG_TEXT_H
#define HOSTS_COMMON_LOG_TEXT_H

#include <string>
#include <string_view>

#include "qxapi/log_text.h"

namespace rdm::hosts {

/// log_text returns `text`, without its last newline, escaped for one line of a log, or with Escaping::quotes for a
/// quoted field of one.
std::string log_text(std::string_view text, Escaping level);

}  // namespace rdm::hosts

#endif
