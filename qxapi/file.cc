// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "qxapi/posix.h"

namespace rdm::posix_host {
namespace {

constexpr mode_t shared_file = 0644;
constexpr mode_t private_file = 0600;

/// open_file opens a file with O_CLOEXEC and retries on EINTR.
host_fd open_file(const char *path, int flags, mode_t mode = 0) {
  host_fd fd = -1;
  do fd = ::open(path, flags | O_CLOEXEC, mode);
  while (fd == -1 && errno == EINTR);
  return fd;
}

}  // namespace

host_fd open_read(const char *path) { return open_file(path, O_RDONLY); }

host_fd open_write(const char *path) {
  constexpr int flags = O_RDWR | O_APPEND | O_CREAT;
  // Try O_EXCL first: open() then follows no symbolic link that an attacker put under this name.
  const host_fd fd = open_file(path, flags | O_EXCL, private_file);
  if (fd != -1 || errno != EEXIST) return fd;
  return open_file(path, flags | O_TRUNC, private_file);
}

host_fd open_append(const char *path) { return open_file(path, O_WRONLY | O_APPEND | O_CREAT, shared_file); }
host_fd open_readwrite(const char *path) { return open_file(path, O_RDWR | O_CREAT, shared_file); }

int32_t read_bytes(host_fd fd, void *buffer, int32_t n) {
  int32_t total = 0;
  while (total < n) {
    const ssize_t got = ::read(fd, static_cast<char *>(buffer) + total, static_cast<size_t>(n - total));
    if (got == 0) break;
    if (got > 0)
      total += static_cast<int32_t>(got);
    else if (errno != EINTR)
      return -1;
  }
  return total;
}

int write_bytes(host_fd fd, const void *bytes, int32_t n) {
  for (int32_t done = 0; done < n;) {
    const ssize_t put = ::write(fd, static_cast<const char *>(bytes) + done, static_cast<size_t>(n - done));
    if (put > 0)
      done += static_cast<int32_t>(put);
    else if (put == 0 || errno != EINTR)
      return 0;
  }
  return 1;
}

int write_log(host_fd fd, const void *bytes, int32_t n) {
  ssize_t put = -1;
  do put = ::write(fd, bytes, static_cast<size_t>(n));
  while (put == -1 && errno == EINTR);
  return put == n ? 1 : 0;
}

int64_t seek(host_fd fd, int64_t offset, int whence) { return ::lseek(fd, offset, whence); }
int close_file(host_fd fd) { return ::close(fd); }
int file_status(const char *path, struct stat *st) { return ::stat(path, st); }
int remove_file(const char *path) { return ::unlink(path); }

}  // namespace rdm::posix_host
