// SPDX-License-Identifier: MIT
/// What the main procedure of every tool does around its work.
#ifndef TOOLS_COMMON_PROGRAM_H
#define TOOLS_COMMON_PROGRAM_H

#include <functional>

namespace rdm::tools {

constexpr int exit_done = 0;
constexpr int exit_failure = 2;        // the work could not be done
constexpr int exit_broken_pipe = 141;  // the reader of standard output has ended

/// run_program calls `work` and returns its exit status. When it throws, or standard output cannot be written, the
/// reason goes to standard error as one line after the program's name, and exit_failure is returned. The work runs with
/// standard output throwing at failures, with SIGPIPE ignored, and with all three standard descriptors taken.
///
/// When standard output fails with EPIPE nothing is said and exit_broken_pipe is returned, the status that shells
/// report for a program that SIGPIPE ended: `list | head` has what it wanted.
int run_program(const char *name, const std::function<int()> &work);

}  // namespace rdm::tools

#endif
