#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

#include "tools/rdmctl/command_line.h"

namespace {

int fail(const std::string &text) {
  std::cerr << "rdmctl: " << text << '\n';
  return rdmctl::exit_failure;
}

int run(int argc, char **argv) {
  const auto command = rdmctl::read_command_line(argc, argv, std::cout);
  const int status =
      command ? command->verb(command->options, std::cout, std::cerr) : static_cast<int>(rdmctl::exit_done);
  std::cout.flush();
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  std::signal(SIGPIPE, SIG_IGN);
  std::ios::sync_with_stdio(false);
  // Tied, it would meet the failure of standard output again while it reports it.
  std::cerr.tie(nullptr);
  std::cout.exceptions(std::ios::failbit | std::ios::badbit);
  try {
    return run(argc, argv);
  } catch (const std::ios::failure &) {
    const int error = errno;
    return fail("cannot write to standard output: " + std::generic_category().message(error));
  } catch (const std::exception &error) {
    return fail(error.what());
  }
}
