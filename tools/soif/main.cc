// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <iostream>

#include "tools/common/program.h"
#include "tools/soif/command_line.h"

using namespace rdm;

namespace {

int run(int argc, char **argv) {
  const std::optional<soif_tool::Command> command = soif_tool::read_command_line(argc, argv, std::cout);
  if (!command) return tools::exit_done;
  const bool watched = !command->options.quiet && ::isatty(STDERR_FILENO) != 0;
  return command->verb(command->options, {STDIN_FILENO, std::cout, std::cerr, watched});
}

}  // namespace

int main(int argc, char **argv) {
  return tools::run_program("soif", [=] { return run(argc, argv); });
}
