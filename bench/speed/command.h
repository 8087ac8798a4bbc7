// SPDX-License-Identifier: MIT
/// What a command costs.
#ifndef BENCH_SPEED_COMMAND_H
#define BENCH_SPEED_COMMAND_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "speed/rounds.h"

namespace rdm::bench {

/// cost_of runs a shell command, with the CPU time of all its processes. Throws std::runtime_error if it fails.
Cost cost_of(const std::string &command);

/// system_calls returns the number of system calls of a shell command and its children, counted by strace; nothing if
/// that is not installed or may not trace.
std::optional<std::uint64_t> system_calls(const std::string &command);

/// total_calls returns the number of calls in the last line of a summary of strace (option -c), 0 if it has none.
std::uint64_t total_calls(std::string_view summary);

}  // namespace rdm::bench

#endif
