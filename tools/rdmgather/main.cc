// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <iostream>

#include "tools/common/program.h"
#include "tools/rdmgather/command_line.h"
#include "tools/rdmgather/gathering.h"

using namespace rdm;

namespace {

int run(int argc, char **argv) {
  const std::optional<gather::Options> options = gather::read_command_line(argc, argv, std::cout);
  if (!options) return tools::exit_done;
  const bool is_watched = !options->quiet && ::isatty(STDERR_FILENO) != 0;
  return gather::gather(*options, {STDOUT_FILENO, std::cout, std::cerr, is_watched});
}

}  // namespace

int main(int argc, char **argv) {
  return tools::run_program("rdmgather", [=] { return run(argc, argv); });
}
