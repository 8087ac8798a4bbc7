// SPDX-License-Identifier: MIT
/// Closing large files.
#ifndef HOSTS_COMMON_CLOSE_ASIDE_H
#define HOSTS_COMMON_CLOSE_ASIDE_H

#include <cstddef>
#include <cstdint>

#include <qxapi/qxapi.h>

namespace rdm::hosts {

/// A mapping of at least so many bytes, or a removed file with so many bytes of blocks, is let go aside.
inline constexpr std::int64_t aside_size = 16 << 20;

/// close_aside closes a descriptor, and unmaps `size` bytes of its mapping before, on a thread of its own, a moment
/// later. To unmap a large file takes milliseconds; to free the blocks of one that has no name any more, such as a
/// replaced database, may take a file system seconds. Returns false, with nothing done, if the mapping is small, and
/// the file is small or has a name; or if the system has no thread or no memory for one.
bool close_aside(host_fd fd, void *mapping = nullptr, std::size_t size = 0);

}  // namespace rdm::hosts

#endif
