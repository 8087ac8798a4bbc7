// SPDX-License-Identifier: MIT
/// Temporary files that servers left when they were killed.
#ifndef HOSTS_RDMD_LEFTOVERS_H
#define HOSTS_RDMD_LEFTOVERS_H

#include <cstddef>
#include <string>

namespace rdm::rdmd {

/// temporary_directory returns the directory that temporary files are made in: that of TMPDIR, which the service sets
/// from its configuration, or the system's.
std::string temporary_directory();

/// remove_leftovers removes the files of CSIO buffers in a directory that belong to this user and whose process has
/// ended (qxapi/temporary_owner.h), and returns how many. On a network file system it removes nothing, since locks of
/// other machines may not be seen there.
std::size_t remove_leftovers(const std::string &directory);

}  // namespace rdm::rdmd

#endif
