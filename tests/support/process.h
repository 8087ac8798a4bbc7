// SPDX-License-Identifier: MIT
/// Runs programs.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace rdm::support {

/// The result of a program. `status` is its exit status, or 128 plus the number of the signal that ended it.
struct Finished {
  int status;
  std::string out, errors;
};

/// run runs a program with these bytes as standard input, until it ends.
Finished run(const std::vector<std::string> &arguments, const std::string &input = "");

/// as_owner returns the arguments of a run without the superuser's capabilities to bypass file permissions.
std::vector<std::string> as_owner(std::vector<std::string> arguments);

/// start runs a program with files as standard streams and returns its process id; wait_for waits for its end and
/// returns the status.
pid_t start(const std::vector<std::string> &arguments, const std::string &input, const std::string &out,
            const std::string &errors);
int wait_for(pid_t child);

/// start_and_kill starts a program like start, kills it after a while and waits for its end.
void start_and_kill(const std::vector<std::string> &arguments, const std::string &input, const std::string &out,
                    const std::string &errors, std::chrono::microseconds delay);

}  // namespace rdm::support

#endif
