// SPDX-License-Identifier: MIT
/// Places outside the configuration's files: directories, logs and addresses.
///
/// Nothing here changes a file. One that a check makes is removed before it returns.
#ifndef HOSTS_RDMD_CHECK_PLACES_H
#define HOSTS_RDMD_CHECK_PLACES_H

#include <string>

#include "hosts/rdmd/check_lines.h"

namespace rdm::check {

/// check_programs requires a directory with an executable minidba.
void check_programs(const Pair &directory, Report &report);

/// check_temporary requires a directory in which files can be made.
void check_temporary(const Pair &directory, Report &report);

/// check_log requires a file that the server can open at its start: one that can be appended to, or that can be made.
void check_log(const Pair &log, Report &report);

/// check_listen requires that a server can listen on "HOST:PORT": the name must be known, the address must be one of
/// this machine, and the port must be allowed to the caller. A port in use is no error: the server itself may use it.
/// The ports are bound for a moment, but nothing listens.
void check_listen(const std::string &address, Report &report);

}  // namespace rdm::check

#endif
