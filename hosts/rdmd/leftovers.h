/// Temporary files that servers left when they were killed.
#ifndef HOSTS_RDMD_LEFTOVERS_H
#define HOSTS_RDMD_LEFTOVERS_H

#include <cstddef>
#include <string>

namespace rdmd {

/// temporary_folder returns the folder that temporary files are made in: that of TMPDIR, which the service sets from
/// its configuration, or the system's.
std::string temporary_folder();

/// remove_leftovers removes the files of CSIO buffers in a folder that belong to this user and whose process has ended
/// (qxapi/temporary_owner.h), and returns how many. On a network file system it removes nothing, since locks of other
/// machines may not be seen there.
std::size_t remove_leftovers(const std::string &folder);

}  // namespace rdmd

#endif
