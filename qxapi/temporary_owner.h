// SPDX-License-Identifier: MIT
/// Telling temporary files in use from those that a killed process has left.
///
/// A process that makes temporary files draws a random token, puts it into their names, and locks the byte at that
/// offset of their directory. The kernel releases the lock when the process ends: files whose token is not locked are
/// left over. The lock needs no such byte to exist and leaves no trace. Unlike a process id, it works across containers
/// on one machine and is never reused.
#ifndef QXAPI_TEMPORARY_OWNER_H
#define QXAPI_TEMPORARY_OWNER_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

namespace rdm::temporary_owner {

/// A file of the CSIO buffer is named by the prefix, the token and as many random digits. If the directory cannot be
/// locked, the token is omitted, and the file is never removed as a left-over.
inline constexpr char prefix[] = "csio";
inline constexpr int digits = 16;  // hexadecimal, lower case, of either number

inline struct flock byte_of(std::uint64_t token, short type) noexcept {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = static_cast<off_t>(token);
  lock.l_len = 1;
  return lock;
}

/// token_of turns a random number into a token: an offset in a file, which is not negative.
inline std::uint64_t token_of(std::uint64_t random) noexcept { return random >> 1; }

/// hold locks the token in a directory while the descriptor, or a copy of it in a child, is open. Returns false if
/// fcntl() fails.
inline bool hold(int directory, std::uint64_t token) noexcept {
  struct flock lock = byte_of(token, F_RDLCK);
  return ::fcntl(directory, F_OFD_SETLK, &lock) == 0;
}

/// is_held returns false only if fcntl() confirms that no process holds the token in the directory.
inline bool is_held(int directory, std::uint64_t token) noexcept {
  struct flock lock = byte_of(token, F_WRLCK);
  return ::fcntl(directory, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

}  // namespace rdm::temporary_owner

#endif
