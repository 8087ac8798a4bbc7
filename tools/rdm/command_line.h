// SPDX-License-Identifier: MIT
/// The command line of rdm.
#ifndef TOOLS_RDM_COMMAND_LINE_H
#define TOOLS_RDM_COMMAND_LINE_H

#include <iosfwd>
#include <optional>

#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {

struct Command {
  Verb verb = nullptr;
  Options options;
};

/// read_command_line parses a command line. Returns std::nullopt if the command line asks for help, the version or a
/// completion, which it then writes to `out`. Throws a cli::Misuse for a mistake.
std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out);

}  // namespace rdm::client

#endif
