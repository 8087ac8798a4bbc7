// SPDX-License-Identifier: MIT
/// What the command lines of all programs have in common: help, version, and the wording of mistakes.
#ifndef CLI_COMMAND_LINE_H
#define CLI_COMMAND_LINE_H

#include <iosfwd>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace rdm::cli {

/// The exit status of every program after a command line that it does not understand.
constexpr int exit_misuse = 2;

/// Misuse is a mistake in a command line. Its text is one line without the program's name, and ends with the command
/// that shows the help: `unknown option "--indx" (did you mean "--index"?); see "minidba index --help"`.
class Misuse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// misuse returns the Misuse with this reason. The help that it names is that of the chosen verb, if there is one.
Misuse misuse(const CLI::App &app, const std::string &reason);

/// declare_program gives a program its flags for help and version.
void declare_program(CLI::App &app);

/// declare_verbs lets the command line name one of the declared verbs, and adds the verb "help". Call it last.
void declare_verbs(CLI::App &app);

/// parse reads the command line into what was declared. Returns false after a request for help or the version, which
/// it has answered on `out`. Throws a Misuse when the command line is not understood, or names no verb where there are
/// verbs.
bool parse(CLI::App &app, int argc, char **argv, std::ostream &out);

}  // namespace rdm::cli

#endif
