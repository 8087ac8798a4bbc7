// SPDX-License-Identifier: MIT
/// The command line of minidba.
#ifndef MINIDBA_COMMAND_LINE_H
#define MINIDBA_COMMAND_LINE_H

#include <iosfwd>
#include <optional>

#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {

struct Command {
  Verb verb = nullptr;
  Options options;
};

/// read_command_line parses a command line. Returns std::nullopt if the command line asks for help or the version,
/// which it then writes to `out`. Throws a cli::Misuse for a mistake, and a Failure if one file is named for two
/// purposes or a link leads nowhere.
std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out);

}  // namespace rdm::minidba

#endif
