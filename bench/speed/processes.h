// SPDX-License-Identifier: MIT
/// What the processes of a server take, as /proc tells it.
#ifndef BENCH_SPEED_PROCESSES_H
#define BENCH_SPEED_PROCESSES_H

#include <sys/types.h>

#include <cstdint>
#include <string_view>
#include <vector>

namespace rdm::bench {

/// processes_of returns a process and all that descend from it.
std::vector<pid_t> processes_of(pid_t root);

/// cpu_time returns the CPU time of all threads of these processes in seconds, from schedstat. The time of threads that
/// have ended is not in it.
double cpu_time(const std::vector<pid_t> &processes);

/// own_memory returns RssAnon and RssShmem of these processes in bytes: what they hold beside pages of files.
std::uint64_t own_memory(const std::vector<pid_t> &processes);

/// unlinked_bytes returns the disk space of files without a name that these processes have open, each file once.
std::uint64_t unlinked_bytes(const std::vector<pid_t> &processes);

/// run_time returns the nanoseconds on a CPU in the text of a schedstat file, 0 if it has none.
std::uint64_t run_time(std::string_view schedstat);
/// status_bytes returns the bytes of a field such as "RssAnon" in the text of a status file, 0 if it has none.
std::uint64_t status_bytes(std::string_view status, std::string_view field);

}  // namespace rdm::bench

#endif
