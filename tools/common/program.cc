#include "tools/common/program.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>

namespace tools {
namespace {

/// take_standard_descriptors makes sure that no file of a catalog is opened as a standard stream. One that was closed
/// becomes a stream that cannot be used in its direction.
void take_standard_descriptors() {
  for (int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(fd, F_GETFD) == -1 && ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd)
      std::_Exit(exit_failure);
}

void prepare_streams() {
  take_standard_descriptors();
  // A reader that has gone is an output that cannot be written, not the end in the midst of a work.
  std::signal(SIGPIPE, SIG_IGN);
  std::ios::sync_with_stdio(false);
  // Tied, it would meet the failure of standard output again while it reports it.
  std::cerr.tie(nullptr);
  std::cout.exceptions(std::ios::failbit | std::ios::badbit);
}

int fail(const char *name, const std::string &text) {
  std::cerr << name << ": " << text.substr(0, text.find('\n')) << '\n';
  return exit_failure;
}

}  // namespace

int run_program(const char *name, const std::function<int()> &work) {
  prepare_streams();
  try {
    const int status = work();
    std::cout.flush();
    return status;
  } catch (const std::ios::failure &) {
    const int error = errno;
    return fail(name, "cannot write to standard output: " + std::generic_category().message(error));
  } catch (const std::exception &error) {
    return fail(name, error.what());
  }
}

}  // namespace tools
