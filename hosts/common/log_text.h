/// Text of others in a log of ours.
#ifndef HOSTS_COMMON_LOG_TEXT_H
#define HOSTS_COMMON_LOG_TEXT_H

#include <string>
#include <string_view>

namespace hosts {

/// log_text returns a text for one line or one quoted field of a log: its last newline is left out; a quote, a
/// backslash, a control character and a byte beyond ASCII are written as escapes (\", \\, \n, \r, \t, \x7f).
std::string log_text(std::string_view text);

}  // namespace hosts

#endif
