// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "qxapi/posix.h"
#include "qxapi/uninterrupted.h"

namespace rdm::posix_host {
namespace {

constexpr mode_t shared_file = 0644;
constexpr mode_t private_file = 0600;

/// open_file opens a file with O_CLOEXEC and retries on EINTR.
host_fd open_file(const char *path, int flags, mode_t mode = 0) {
  return uninterrupted([&] { return ::open(path, flags | O_CLOEXEC, mode); });
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
    const auto wanted = static_cast<size_t>(n - total);
    const ssize_t got = uninterrupted([&] { return ::read(fd, static_cast<char *>(buffer) + total, wanted); });
    if (got < 0) return -1;
    if (got == 0) break;
    total += static_cast<int32_t>(got);
  }
  return total;
}

int write_bytes(host_fd fd, const void *bytes, int32_t n) {
  for (int32_t done = 0; done < n;) {
    const auto rest = static_cast<size_t>(n - done);
    const ssize_t put = uninterrupted([&] { return ::write(fd, static_cast<const char *>(bytes) + done, rest); });
    if (put <= 0) return 0;
    done += static_cast<int32_t>(put);
  }
  return 1;
}

int write_log(host_fd fd, const void *bytes, int32_t n) {
  return uninterrupted([&] { return ::write(fd, bytes, static_cast<size_t>(n)); }) == n ? 1 : 0;
}

int64_t seek(host_fd fd, int64_t offset, int whence) { return ::lseek(fd, offset, whence); }
int close_file(host_fd fd) { return ::close(fd); }
int file_status(const char *path, struct stat *st) { return ::stat(path, st); }
int remove_file(const char *path) { return ::unlink(path); }

}  // namespace rdm::posix_host
