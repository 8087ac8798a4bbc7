// SPDX-License-Identifier: MIT
/// The frame of every tool's main procedure: standard streams, errors and the exit status.
#ifndef TOOLS_COMMON_PROGRAM_H
#define TOOLS_COMMON_PROGRAM_H

#include <functional>

namespace rdm::tools {

constexpr int exit_done = 0;
constexpr int exit_failure = 2;
constexpr int exit_broken_pipe = 141;  // the reader of standard output has closed the pipe

/// run_program calls `work` and returns its exit status. If `work` throws or standard output cannot be written, it
/// writes "NAME: reason" to standard error and returns exit_failure. During `work`, std::cout throws on failure,
/// SIGPIPE is ignored, and all three standard descriptors are open.
///
/// If writing to standard output fails with EPIPE, as in `list | head`, it writes no message and returns
/// exit_broken_pipe, the status that shells report for a program that SIGPIPE has killed.
int run_program(const char *name, const std::function<int()> &work);

}  // namespace rdm::tools

#endif
