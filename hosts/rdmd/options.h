// SPDX-License-Identifier: MIT
/// The command line.
#ifndef HOSTS_RDMD_OPTIONS_H
#define HOSTS_RDMD_OPTIONS_H

#include <optional>

#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// parse_options reads the command line and the file named by --options. Returns std::nullopt if the program is to exit
/// at once: after --help or --version, with `exit_code` unchanged, or after a mistake, which it describes on standard
/// error, with `exit_code` 2. The caller initialises `exit_code` to 0.
std::optional<Settings> parse_options(int argc, char **argv, int &exit_code);

}  // namespace rdm::rdmd

#endif
