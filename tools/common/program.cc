// SPDX-License-Identifier: MIT
#include "tools/common/program.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <system_error>

#include "qxapi/escaped.h"
#include "qxapi/standard_descriptors.h"

namespace rdm::tools {
namespace {

void prepare_streams() {
  if (!take_standard_descriptors()) std::_Exit(exit_failure);
  // A write to a closed pipe fails with EPIPE. SIGPIPE would end a verb before it has removed its temporary files.
  std::signal(SIGPIPE, SIG_IGN);
  std::ios::sync_with_stdio(false);
  // If std::cerr were tied, reporting a failure of std::cout would flush std::cout and throw again.
  std::cerr.tie(nullptr);
  std::cout.exceptions(std::ios::failbit | std::ios::badbit);
}

int fail(const char *name, const std::string &text) {
  std::cerr << name << ": " << escaped(text) << '\n';
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
    if (error == EPIPE) return exit_broken_pipe;
    return fail(name, "cannot write to standard output: " + std::generic_category().message(error));
  } catch (const std::exception &error) {
    return fail(name, error.what());
  }
}

}  // namespace rdm::tools
