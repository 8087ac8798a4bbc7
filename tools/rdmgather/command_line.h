// SPDX-License-Identifier: MIT
/// The command line of rdmgather.
#ifndef RDMGATHER_COMMAND_LINE_H
#define RDMGATHER_COMMAND_LINE_H

#include <iosfwd>
#include <optional>

#include "tools/rdmgather/options.h"

namespace rdm::gather {

/// read_command_line parses a command line. Returns std::nullopt if the command line asks for help, the version or the
/// completion of a shell, which it then writes to `out`. Throws a cli::Misuse for a mistake.
std::optional<Options> read_command_line(int argc, char **argv, std::ostream &out);

}  // namespace rdm::gather

#endif
