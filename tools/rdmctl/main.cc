// SPDX-License-Identifier: MIT
#include <iostream>

#include "tools/common/program.h"
#include "tools/rdmctl/command_line.h"

using namespace rdm;

int main(int argc, char **argv) {
  return tools::run_program("rdmctl", [=] {
    const auto command = rdmctl::read_command_line(argc, argv, std::cout);
    return command ? command->verb(command->options, std::cout, std::cerr) : tools::exit_done;
  });
}
