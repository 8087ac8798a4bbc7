#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <iostream>
#include <system_error>

#include "tools/minidba/command_line.h"
#include "tools/minidba/failure.h"

namespace {

using minidba::Command;
using minidba::Console;

int fail(const std::string &text) {
  std::cerr << "minidba: " << text.substr(0, text.find('\n')) << '\n';
  return minidba::exit_failure;
}

/// take_standard_descriptors makes sure that no file of the catalog is opened as a standard stream. One that was closed
/// becomes a stream that cannot be used in its direction.
void take_standard_descriptors() {
  for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(fd, F_GETFD) == -1 && ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd)
      std::_Exit(minidba::exit_failure);
}

int run(int argc, char **argv) {
  const std::optional<Command> command = minidba::read_command_line(argc, argv, std::cout);
  int status = minidba::exit_done;
  if (command) {
    const bool watched = !command->options.quiet && ::isatty(STDERR_FILENO) != 0;
    status = command->verb(command->options,
                           Console{STDIN_FILENO, std::cout, std::cerr, watched, ::isatty(STDOUT_FILENO) != 0});
  }
  std::cout.flush();
  return status;
}

}  // namespace

int main(int argc, char **argv) {
  take_standard_descriptors();
  // A reader that has gone is an output that cannot be written, not the end in the midst of a work.
  std::signal(SIGPIPE, SIG_IGN);
  std::ios::sync_with_stdio(false);
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
