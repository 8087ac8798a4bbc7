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

/// read_command_line returns what is to be done, or nothing when it was asked for help or the version, which it has
/// then written to `out`. Throws a cli::Misuse when the command line is mistaken, a Failure when
/// it names one file for two purposes.
std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out);

}  // namespace rdm::minidba

#endif
