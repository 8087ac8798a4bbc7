// SPDX-License-Identifier: MIT
/// Running a program for its output.
#ifndef RDMGATHER_CHILD_H
#define RDMGATHER_CHILD_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace rdm::gather {

struct Limits {
  std::chrono::milliseconds time;
  size_t output;  // bytes
};

/// output_of runs a program of PATH, without a shell, with a descriptor as standard input, and returns what it writes
/// to standard output; its messages are dropped. With more output than the limit, the first bytes are returned. Returns
/// std::nullopt if the program is not installed, cannot be started, fails or exceeds its time. No process of the
/// program's group is left.
std::optional<std::string> output_of(std::vector<std::string> words, int input, const Limits &limits);

}  // namespace rdm::gather

#endif
