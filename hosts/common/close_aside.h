// SPDX-License-Identifier: MIT
/// Closing files that have been removed.
#ifndef HOSTS_COMMON_CLOSE_ASIDE_H
#define HOSTS_COMMON_CLOSE_ASIDE_H

#include <cstdint>

#include <qxapi/qxapi.h>

namespace rdm::hosts {

/// A removed file with at least so many bytes of blocks is closed aside.
inline constexpr std::int64_t aside_size = 16 << 20;

/// close_aside closes a descriptor of a large file that has no name any more, such as a replaced database, on a thread
/// of its own: the file system may take seconds to free the blocks. Returns false, and leaves the descriptor open, if
/// the file is small or has a name, or if the system has no thread.
bool close_aside(host_fd fd);

}  // namespace rdm::hosts

#endif
