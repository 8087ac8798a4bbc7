// SPDX-License-Identifier: MIT
/// The processes that the master starts.
#ifndef HOSTS_RDMD_MASTER_CHILDREN_H
#define HOSTS_RDMD_MASTER_CHILDREN_H

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "qxapi/guard.h"

namespace rdm::rdmd {

/// Child is a child process and the master's end of its socket.
struct Child {
  pid_t pid = -1;
  HostFileGuard socket;
};

/// start_child forks. The child has the given name, of at most 15 bytes, in lists of processes. It ends the process
/// with the status that `run` returns for its end of the socket. It keeps no other descriptor of the master but those
/// in `kept`, ignores the signals of terminals and service managers, because the master tells it what to do, and reacts
/// to the others as a new program does. If the master ends first, SIGALRM ends the child after `grace`, in whole
/// seconds. Call it from the thread that lives as long as the master. Throws std::system_error, or std::bad_alloc
/// before there is a child.
Child start_child(const char *name, std::chrono::milliseconds grace,
                  const std::function<int(HostFileGuard socket)> &run, const std::vector<host_fd> &kept = {});

/// describe_end returns how a process ended by its wait status, such as "was killed by signal 11 (Segmentation fault)"
/// or "exited with status 1".
std::string describe_end(int wait_status);

}  // namespace rdm::rdmd

#endif
