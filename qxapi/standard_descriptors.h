// SPDX-License-Identifier: MIT
/// The three standard file descriptors.
#ifndef QXAPI_STANDARD_DESCRIPTORS_H
#define QXAPI_STANDARD_DESCRIPTORS_H

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace rdm {

/// take_standard_descriptors opens /dev/null on each standard descriptor that is closed, so that no file opened later
/// becomes a standard stream. The direction is reversed: using such a stream fails with EBADF. Returns false if open()
/// fails. Call it before anything is opened.
inline bool take_standard_descriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(fd, F_GETFD) == -1 && ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd) return false;
  return true;
}

}  // namespace rdm

#endif
