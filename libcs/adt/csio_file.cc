// SPDX-License-Identifier: MIT
#include "libcs/adt/csio_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <libcs/log.h>

#include "qxapi/guard.h"
#include "qxapi/temporary_directory.h"
#include "qxapi/temporary_owner.h"

namespace rdm::csio_file {
namespace {

constexpr int32_t block_size = 4096;

enum class OpenMode { append, read, write };

void open_file(csio &io, OpenMode mode) {
  io.fd = -1;
  if (io.filename == nullptr) return;
  switch (mode) {
    case OpenMode::append:
      io.fd = host_open_append(io.filename);
      break;
    case OpenMode::read:
      io.fd = host_open_read(io.filename);
      break;
    case OpenMode::write:
      io.fd = host_open_write(io.filename);
  }
}

/// Owned is a directory in which this process holds the lock of its token. The descriptor stays open for the life of
/// the process: a file may outlive its buffer's descriptor.
struct Owned {
  int fd;
  dev_t device;
  ino_t inode;
  uint64_t token;
};

constexpr Owned unused{-1, 0, 0, 0};
pthread_mutex_t owned_mutex = PTHREAD_MUTEX_INITIALIZER;
Owned owned_directories[] = {unused, unused, unused, unused};

/// OwnedLock holds the mutex. std::lock_guard is not used, because std::mutex may throw.
struct OwnedLock {
  OwnedLock() noexcept { ::pthread_mutex_lock(&owned_mutex); }
  OwnedLock(const OwnedLock &) = delete;
  OwnedLock &operator=(const OwnedLock &) = delete;
  ~OwnedLock() { ::pthread_mutex_unlock(&owned_mutex); }
};

/// is_free returns true if the slot is unused or its directory was removed.
bool is_free(const Owned &owned) {
  struct stat status;
  return owned.fd == -1 || (::fstat(owned.fd, &status) == 0 && status.st_nlink == 0);
}

/// own locks a new token in an open directory and stores its descriptor in `slot`. Returns false if the lock fails.
bool own(Owned &slot, int fd, const struct stat &status, uint64_t random) {
  const uint64_t token = temporary_owner::token_of(random);
  if (!temporary_owner::hold(fd, token)) return false;
  if (slot.fd != -1) ::close(slot.fd);
  slot = Owned{fd, status.st_dev, status.st_ino, token};
  return true;
}

/// find_owned returns the directory's slot, a free one, or null.
Owned *find_owned(const struct stat &status) {
  Owned *found = nullptr;
  for (Owned &owned : owned_directories) {
    if (owned.fd != -1 && owned.device == status.st_dev && owned.inode == status.st_ino && !is_free(owned))
      return &owned;
    if (found == nullptr && is_free(owned)) found = &owned;
  }
  return found;
}

struct TokenText {
  char text[temporary_owner::digits + 1] = "";
};

/// owner_of returns the token that this process holds in a directory, as text, or an empty text if it cannot be locked.
TokenText owner_of(const char *directory, uint64_t random) {
  TokenText token;
  struct stat status;
  const int fd = ::open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const OwnedLock lock;
  Owned *const slot = fd != -1 && ::fstat(fd, &status) == 0 ? find_owned(status) : nullptr;
  const bool known = slot != nullptr && !is_free(*slot);
  const bool taken = slot != nullptr && !known && own(*slot, fd, status, random);
  if (fd != -1 && !taken) ::close(fd);
  if (known || taken)
    host_format(token.text, sizeof token.text, "%016llx", static_cast<unsigned long long>(slot->token));
  return token;
}

/// temporary_name returns a new path in the temporary directory, or null. Its 64 random bits can be neither guessed nor
/// repeated.
HostText temporary_name() {
  const char *directory = temporary_directory(host_stat);
  unsigned long long random[2] = {};
  char path[PATH_MAX];
  constexpr size_t name_size = sizeof "/csio" + size_t{2} * temporary_owner::digits;
  if (directory == nullptr || std::strlen(directory) + name_size > sizeof path ||
      ::getrandom(random, sizeof random, 0) != sizeof random) {
    CSLOG(CSLOG_ERROR, "adt", "Cannot find temporary filename?\n");
    return nullptr;
  }
  host_format(path, sizeof path, "%s/%s%s%016llx", directory, temporary_owner::prefix,
              owner_of(directory, random[0]).text, random[1]);
  return HostText(host_strdup(path));
}

bool set_temporary_file(csio &io) {
  io.filename = temporary_name().release();
  if (io.filename == nullptr) {
    CSLOG(CSLOG_ERROR, "adt", "csio_append: Cannot set temporary file?\n");
    return false;
  }
  io.remove_file = 1;
  return true;
}

bool make_block(csio &io) {
  if (io.wbuf != nullptr) return true;
  io.wbuf = static_cast<unsigned char *>(host_alloc(block_size));
  if (io.wbuf != nullptr) std::memset(io.wbuf, 0xFF, block_size);
  return io.wbuf != nullptr;
}

int32_t read_at(host_fd fd, uint32_t position, void *destination, int32_t count) {
  return host_seek(fd, position, SEEK_SET) == -1 ? -1 : host_read(fd, destination, count);
}

}  // namespace

bool open_to_append(csio &io) noexcept {
  if (io.filename == nullptr && !set_temporary_file(io)) return false;
  if (io.fd != -1) return true;
  // A file that was open before is not truncated, even if all bytes of the buffer are in the write-behind block.
  const bool was_open = io.length > 0;
  open_file(io, was_open ? OpenMode::append : OpenMode::write);
  if (io.fd == -1) CSLOG(CSLOG_ERROR, "adt", "csio_append: %s: %s\n", io.filename, host_last_error_text());
  return io.fd != -1;
}

int32_t store(csio &io, const unsigned char *bytes, int32_t count) noexcept {
  if (count >= block_size - io.wbuf_len) flush(io);
  if (count >= block_size) return host_write(io.fd, bytes, count) == 1 ? count : 0;
  if (!make_block(io)) return 0;
  std::memcpy(io.wbuf + io.wbuf_len, bytes, static_cast<size_t>(count));
  io.wbuf_len += count;
  return count;
}

void flush(csio &io) noexcept {
  if (io.fd != -1 && io.wbuf != nullptr && io.wbuf_len >= 1) host_write(io.fd, io.wbuf, io.wbuf_len);
  io.wbuf_len = 0;
}

int32_t read(csio &io, void *destination, int32_t count) noexcept {
  if (io.filename == nullptr) return -1;
  if (io.finished == 0) {
    // Read with a second descriptor: the buffer's own stays at the end for the next append. After csio_releasefd, do
    // not flush, which would drop the write-behind block.
    if (io.fd != -1) flush(io);
    const HostFileGuard file(host_open_read(io.filename));
    return read_at(file.get(), io.position, destination, count);
  }
  if (io.fd == -1) open_file(io, OpenMode::read);
  return read_at(io.fd, io.position, destination, count);
}

void close(csio &io) noexcept {
  if (io.fd == -1) return;
  host_close(io.fd);
  io.fd = -1;
}

void discard(csio &io) noexcept {
  close(io);
  if (io.remove_file != 0 && io.filename != nullptr) host_unlink(io.filename);
  host_free(io.filename);
  host_free(io.wbuf);
  io.filename = nullptr;
  io.wbuf = nullptr;
  io.wbuf_len = 0;
  io.remove_file = 0;
}

}  // namespace rdm::csio_file
