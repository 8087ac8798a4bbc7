// SPDX-License-Identifier: MIT
/// The command line of rdmctl.
#ifndef RDMCTL_COMMAND_LINE_H
#define RDMCTL_COMMAND_LINE_H

#include <iosfwd>
#include <optional>

#include "tools/rdmctl/options.h"

namespace rdm::rdmctl {

/// Verb performs a verb and returns the exit status of the program.
using Verb = int (*)(const Options &, std::ostream &out, std::ostream &errors);

struct Command {
  Verb verb = nullptr;
  Options options;
};

/// read_command_line parses a command line. Returns std::nullopt if the command line asks for help or the version,
/// which it then writes to `out`. Throws a cli::Misuse for a mistake.
std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out);

}  // namespace rdm::rdmctl

#endif
