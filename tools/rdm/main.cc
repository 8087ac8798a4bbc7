// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <iostream>

#include "tools/common/program.h"
#include "tools/rdm/command_line.h"
#include "tools/rdm/run.h"

using namespace rdm;

namespace {

int run(int argc, char **argv) {
  const std::optional<client::Command> command = client::read_command_line(argc, argv, std::cout);
  if (!command) return tools::exit_done;
  const bool is_watched = !command->options.quiet && ::isatty(STDERR_FILENO) != 0;
  return client::run(command->verb, command->options, client::Console{std::cout, std::cerr, is_watched});
}

}  // namespace

int main(int argc, char **argv) {
  return tools::run_program("rdm", [=] { return run(argc, argv); });
}
