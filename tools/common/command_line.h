/// What the command lines of all tools have in common.
#ifndef TOOLS_COMMON_COMMAND_LINE_H
#define TOOLS_COMMON_COMMAND_LINE_H

#include <CLI/CLI.hpp>
#include <iosfwd>

namespace tools {

/// declare_program gives a tool its flags for help and version, and lets the command line name one verb.
void declare_program(CLI::App &app);

/// parse reads the command line into what was declared. False when it asked for help or the version, which then went to
/// `out`. Throws the CLI::ParseError of a command line that is not understood.
bool parse(CLI::App &app, int argc, char **argv, std::ostream &out);

}  // namespace tools

#endif
