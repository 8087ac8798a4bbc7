// SPDX-License-Identifier: MIT
/// The command line.
#ifndef HOSTS_RDMD_OPTIONS_H
#define HOSTS_RDMD_OPTIONS_H

#include <optional>

#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// parse_options reads the command line and the file that --options names. Nothing when the program is to end at once,
/// with `exit_code`: 0 after --help and --version, 2 after a mistake, which is described on standard error. A caller
/// sets it to 0.
std::optional<Settings> parse_options(int argc, char **argv, int &exit_code);

}  // namespace rdm::rdmd

#endif
