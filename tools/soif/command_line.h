// SPDX-License-Identifier: MIT
/// The command line of soif.
#ifndef SOIF_COMMAND_LINE_H
#define SOIF_COMMAND_LINE_H

#include <iosfwd>
#include <optional>

#include "tools/soif/options.h"

namespace rdm::soif_tool {

struct Command {
  Verb verb = nullptr;
  Options options;
};

/// read_command_line parses a command line. Returns std::nullopt if the command line asks for help, the version or the
/// completion of a shell, which it then writes to `out`. Throws a cli::Misuse for a mistake.
std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out);

}  // namespace rdm::soif_tool

#endif
