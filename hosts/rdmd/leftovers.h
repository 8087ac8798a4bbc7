// SPDX-License-Identifier: MIT
/// Removes temporary files of killed servers.
#ifndef HOSTS_RDMD_LEFTOVERS_H
#define HOSTS_RDMD_LEFTOVERS_H

#include <cstddef>
#include <string>

namespace rdm::rdmd {

/// remove_leftovers removes those temporary files of CSIO buffers in the directory at `path` that belong to this user
/// and whose process has ended (qxapi/temporary_owner.h), and returns how many. It removes no file on a network file
/// system, because locks held by other machines may be invisible there.
std::size_t remove_leftovers(const std::string &path);

}  // namespace rdm::rdmd

#endif
