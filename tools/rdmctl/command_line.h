// SPDX-License-Identifier: MIT
/// Reading the command line. Nothing else knows how it is written.
#ifndef RDMCTL_COMMAND_LINE_H
#define RDMCTL_COMMAND_LINE_H

#include <iosfwd>
#include <optional>

#include "tools/rdmctl/options.h"

namespace rdm::rdmctl {

using Verb = int (*)(const Options &, std::ostream &out, std::ostream &errors);

struct Command {
  Verb verb = nullptr;
  Options options;
};

/// read_command_line returns what is to be done; nothing when only help was asked for, which then is on `out`. Throws a
/// cli::Misuse that says what is wrong.
std::optional<Command> read_command_line(int argc, char **argv, std::ostream &out);

}  // namespace rdm::rdmctl

#endif
