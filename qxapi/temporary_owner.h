// SPDX-License-Identifier: MIT
/// How the temporary files of a process that was killed are told from those in use.
///
/// A process that makes temporary files picks a random number, its token, and holds a lock on that one byte of the
/// directory they are in. Their names begin with the token. The system releases the lock when the process ends, however
/// it ends: files whose token is not locked are left over. The directory as such has no such byte; the lock leaves
/// nothing in it. Unlike a process number, the lock is seen from other containers on the same machine, and no later
/// process inherits it.
#ifndef QXAPI_TEMPORARY_OWNER_H
#define QXAPI_TEMPORARY_OWNER_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

namespace rdm::temporary_owner {

/// The name of a file of the CSIO buffer: the prefix, the token and as many digits that make it unique. Without a lock
/// there is no token, and the file is never taken for a left-over.
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

/// token_of returns the token of a random number: a place of a file is not negative.
inline std::uint64_t token_of(std::uint64_t random) noexcept { return random >> 1; }

/// hold locks the token in a directory, for as long as the descriptor, or a copy of it in a child, is open. False when
/// the file system knows no locks.
inline bool hold(int directory, std::uint64_t token) noexcept {
  struct flock lock = byte_of(token, F_RDLCK);
  return ::fcntl(directory, F_OFD_SETLK, &lock) == 0;
}

/// is_held returns true unless it is certain that no process holds the token in the directory.
inline bool is_held(int directory, std::uint64_t token) noexcept {
  struct flock lock = byte_of(token, F_WRLCK);
  return ::fcntl(directory, F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK;
}

}  // namespace rdm::temporary_owner

#endif
