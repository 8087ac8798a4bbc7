// SPDX-License-Identifier: MIT
/// Parts of the command line that all programs share: help, version, completion, and messages about mistakes.
#ifndef CLI_COMMAND_LINE_H
#define CLI_COMMAND_LINE_H

#include <iosfwd>
#include <stdexcept>
#include <string>

#include <CLI/CLI.hpp>

namespace rdm::cli {

/// exit_misuse is the exit status of every program after a mistake in its command line.
constexpr int exit_misuse = 2;

/// Misuse is a mistake in a command line. Its text is one line without the program's name, and ends with the command
/// that shows the help: `unknown option "--indx" (did you mean "--index"?); see "minidba index --help"`.
class Misuse : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// misuse returns a Misuse with this reason. It names the help of the chosen verb or, without one, of the program.
Misuse misuse(const CLI::App &app, const std::string &reason);

/// declare_program adds the flags for help and version.
void declare_program(CLI::App &app);

/// declare_verbs adds the verbs "help" and "completion" and allows at most one verb. Call it after all verbs are
/// declared. The help names the manual page of the program in this section.
void declare_verbs(CLI::App &app, int manual_section = 8);

/// is_seconds accepts a number that is not below zero.
CLI::Validator is_seconds();

/// parse parses the command line into the declared options. Returns false if the command line asked for help, the
/// version or the completion of a shell, which is then written to `out`. A program without verbs prints its completion
/// for the first words "completion SHELL". Throws a Misuse for a mistake, or if a verb is declared and none is given.
bool parse(CLI::App &app, int argc, char **argv, std::ostream &out);

}  // namespace rdm::cli

#endif
