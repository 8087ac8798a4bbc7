// SPDX-License-Identifier: MIT
/// Programs that tests run.
#ifndef TESTS_SUPPORT_PROCESS_H
#define TESTS_SUPPORT_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace rdm::support {

/// What a program left behind. `status` is its exit status, or 128 and the number of the signal that ended it.
struct Finished {
  int status;
  std::string out, errors;
};

/// run runs a program to its end with these bytes as its standard input.
Finished run(const std::vector<std::string> &arguments, const std::string &input = "");

/// as_owner returns the arguments of a run in which the superuser, too, may only do what files allow to their owner.
std::vector<std::string> as_owner(std::vector<std::string> arguments);

/// start runs a program with files as its standard streams and returns its process id; wait_for ends the waiting.
pid_t start(const std::vector<std::string> &arguments, const std::string &input, const std::string &out,
            const std::string &errors);
int wait_for(pid_t child);

/// start_and_kill starts a program as start does, kills it after a while and waits for its end.
void start_and_kill(const std::vector<std::string> &arguments, const std::string &input, const std::string &out,
                    const std::string &errors, std::chrono::microseconds delay);

}  // namespace rdm::support

#endif
