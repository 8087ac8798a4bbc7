// SPDX-License-Identifier: MIT
/// What the server needs of the limits of its process (setrlimit(2)).
#ifndef HOSTS_RDMD_RESOURCE_LIMITS_H
#define HOSTS_RDMD_RESOURCE_LIMITS_H

#include <cstddef>

#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// allow_descriptors raises the limit of open files to its hard limit and returns it.
std::size_t allow_descriptors();

/// descriptors_for returns how many `connections` connections may need: each needs one for its socket and, while it is
/// answered, one for a file.
std::size_t descriptors_for(std::size_t connections);

/// reserved_descriptors returns how many the process that owns the connections needs for everything else: logs,
/// listening sockets, the catalogs that stay open, the files of one request, and the sockets of the workers.
std::size_t reserved_descriptors(const Settings &settings);

/// require_limits raises the limit of open files, and throws std::runtime_error, with the number that is needed, if not
/// even one client could be served within it, or if the limit of address space is below 48 MiB, plus a stack and 4 MiB
/// for each of the threads.
void require_limits(const Settings &settings);

}  // namespace rdm::rdmd

#endif
