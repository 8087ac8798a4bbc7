// SPDX-License-Identifier: MIT
/// The three standard descriptors of a program.
#ifndef QXAPI_STANDARD_DESCRIPTORS_H
#define QXAPI_STANDARD_DESCRIPTORS_H

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace rdm {

/// take_standard_descriptors makes sure that no file that the program opens becomes one of its standard streams. One
/// that was closed becomes a stream that cannot be used in its direction. False when that cannot be done. To be called
/// before anything is opened.
inline bool take_standard_descriptors() {
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(fd, F_GETFD) == -1 && ::open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY) != fd) return false;
  return true;
}

}  // namespace rdm

#endif
