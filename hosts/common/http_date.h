// SPDX-License-Identifier: MIT
/// Times in header fields (RFC 9110, section 5.6.7).
#ifndef HOSTS_COMMON_HTTP_DATE_H
#define HOSTS_COMMON_HTTP_DATE_H

#include <ctime>
#include <optional>
#include <string>
#include <string_view>

namespace rdm::hosts {

/// http_date returns a time such as "Sun, 06 Nov 1994 08:49:37 GMT", in any locale.
std::string http_date(std::time_t time);

/// parse_http_date reads a time of that form, or of the older ones "Sunday, 06-Nov-94 08:49:37 GMT" and "Sun Nov  6
/// 08:49:37 1994". The day of the week is not checked. Two digits of a year mean 1970 to 2069.
std::optional<std::time_t> parse_http_date(std::string_view text);

}  // namespace rdm::hosts

#endif
