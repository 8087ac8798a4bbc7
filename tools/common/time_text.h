// SPDX-License-Identifier: MIT
/// Times on a command line.
#ifndef TOOLS_COMMON_TIME_TEXT_H
#define TOOLS_COMMON_TIME_TEXT_H

#include <ctime>
#include <string>

namespace rdm::tools {

/// read_time parses a time and returns it in seconds since 1970. Without a zone, the time is in UTC. The forms:
///   2026-11-01, 2026-11-01T12:00:00Z, 2026-11-01 12:00+01:00    ISO 8601
///   Sun, 01 Nov 2026 12:00:00 GMT; 1 Nov 2026                   as in descriptions, in any order
///   @1793534400                                                 seconds since 1970
///   now, today, yesterday, 3 days ago                           relative to `now`; a day begins at 00:00 UTC
/// Throws a Failure for a text of another form, with a list of the forms, and for a time that does not exist, as 31
/// February.
time_t read_time(const std::string &text, time_t now);

}  // namespace rdm::tools

#endif
