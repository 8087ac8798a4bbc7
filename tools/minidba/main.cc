// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <iostream>

#include "tools/common/program.h"
#include "tools/minidba/command_line.h"

using namespace rdm;

namespace {

using minidba::Command;
using minidba::Console;

int run(int argc, char **argv) {
  const std::optional<Command> command = minidba::read_command_line(argc, argv, std::cout);
  if (!command) return tools::exit_done;
  const bool watched = !command->options.quiet && ::isatty(STDERR_FILENO) != 0;
  return command->verb(command->options,
                       Console{STDIN_FILENO, std::cout, std::cerr, watched, ::isatty(STDOUT_FILENO) != 0});
}

}  // namespace

int main(int argc, char **argv) {
  return tools::run_program("minidba", [=] { return run(argc, argv); });
}
