// SPDX-License-Identifier: MIT
/// The three standard file descriptors.
#ifndef QXAPI_STANDARD_DESCRIPTORS_H
#define QXAPI_STANDARD_DESCRIPTORS_H

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

namespace rdm {

/// take_standard_descriptors opens /dev/null on each standard descriptor that is closed, so that no file opened later
/// becomes a standard stream. The direction is reversed: using such a stream fails with EBADF. Returns false if open()
/// fails. Call it before anything is opened.
inline bool take_standard_descriptors() {
  constexpr int descriptors[] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
  return std::all_of(std::begin(descriptors), std::end(descriptors), [](int fd) {
    return ::fcntl(fd, F_GETFD) != -1 || ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) == fd;
  });
}

}  // namespace rdm

#endif
