// SPDX-License-Identifier: MIT
/// A library for LD_PRELOAD that makes one file operation of a program fail.
///
/// IO_FAULT is "PROGRAM CLASS N ERRNO": in the program of this name, the Nth call of the class fails with ERRNO, or, if
/// ERRNO is 0, transfers a single byte. When that happens, the class is appended to the file IO_FAULT_HIT. With the
/// class "count" no call fails, and each call's class and number are appended to that file. A child process goes on
/// with the numbers of its parent, so each of them has its Nth call.
///
/// Calls inside the C library cannot be intercepted. Therefore fopen and fdopen are replaced by streams over functions
/// of this library; fopen and fread have classes of their own without EINTR, because programs use streams only for
/// regular files, which are never interrupted. Standard error and the counter files of a coverage build never fail.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#define EXPORTED extern "C" __attribute__((visibility("default")))
#define REAL(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

namespace {

struct Fault {
  char kind[32] = "";
  long n = 0;
  int error = 0;
  long calls = 0;
};

Fault read_fault() {
  Fault fault;
  char program[64] = "";
  const char *text = std::getenv("IO_FAULT");
  // NOLINTNEXTLINE(cert-err34-c): the variable comes from a test
  if (text == nullptr || std::sscanf(text, "%63s %31s %ld %d", program, fault.kind, &fault.n, &fault.error) != 4 ||
      std::strcmp(program, program_invocation_short_name) != 0)
    return Fault{};
  return fault;
}

Fault &fault() {
  static Fault read = read_fault();
  return read;
}

/// note appends a line by one call, because several processes may do so.
void note(const char *text) {
  const char *path = std::getenv("IO_FAULT_HIT");
  if (path == nullptr) return;
  const long fd = syscall(SYS_openat, AT_FDCWD, path, O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
  if (fd == -1) return;
  char line[80];
  syscall(SYS_write, fd, line, std::snprintf(line, sizeof line, "%s\n", text));
  syscall(SYS_close, fd);
}

/// number_of counts a call of a class.
long number_of(const char *kind) {
  static struct {
    const char *kind;
    long calls;
  } classes[32];
  auto *counted = classes;
  while (counted->kind != nullptr && std::strcmp(counted->kind, kind) != 0) ++counted;
  counted->kind = kind;
  return ++counted->calls;
}

/// note_number notes a call of a class and its number.
void note_number(const char *kind) {
  char text[64];
  std::snprintf(text, sizeof text, "%s %ld", kind, number_of(kind));
  note(text);
}

/// strikes counts a call of a class and returns true if it is the one to fail.
bool strikes(const char *kind) {
  Fault &f = fault();
  const int before = errno;
  if (std::strcmp(f.kind, "count") == 0) note_number(kind);
  errno = before;
  if (std::strcmp(kind, f.kind) != 0 || ++f.calls != f.n) return false;
  note(kind);
  errno = f.error;
  return true;
}

/// The descriptor of the counter file of a coverage build, which has one open at a time, or -1.
int counter_fd = -1;

/// is_counter returns true for the name or the descriptor of a counter file.
bool is_counter(const char *path) {
  const char *suffix = std::strrchr(path, '.');
  return suffix != nullptr && std::strcmp(suffix, ".gcda") == 0;
}

bool is_counter(int fd) { return fd == counter_fd; }

/// transfer makes a read or write call of `count` bytes.
template <typename Call>
ssize_t transfer(const char *kind, int fd, size_t count, Call call) {
  if (count == 0 || is_counter(fd) || !strikes(kind)) return call(count);
  return fault().error == 0 ? call(1) : -1;
}

int descriptor_of(void *cookie) { return static_cast<int>(reinterpret_cast<intptr_t>(cookie)); }

ssize_t read_stream(void *cookie, char *bytes, size_t count) {
  const int fd = descriptor_of(cookie);
  return transfer("fread", fd, count, [&](size_t n) { return REAL(read)(fd, bytes, n); });
}

ssize_t write_stream(void *cookie, const char *bytes, size_t count) {
  const int fd = descriptor_of(cookie);
  return transfer("write", fd, count, [&](size_t n) { return REAL(write)(fd, bytes, n); });
}

int seek_stream(void *cookie, off64_t *offset, int whence) {
  if (!is_counter(descriptor_of(cookie)) && strikes("seek")) return -1;
  *offset = REAL(lseek64)(descriptor_of(cookie), *offset, whence);
  return *offset == -1 ? -1 : 0;
}

int close_file(int fd) {
  const int result = REAL(close)(fd);
  if (!is_counter(fd)) return strikes("close") ? -1 : result;
  counter_fd = -1;
  return result;
}

int close_stream(void *cookie) { return close_file(descriptor_of(cookie)); }

FILE *open_stream(int fd, const char *mode) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the stream's cookie is its descriptor
  return fopencookie(reinterpret_cast<void *>(static_cast<intptr_t>(fd)), mode,
                     {read_stream, write_stream, seek_stream, close_stream});
}

bool takes_mode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's headers have names of their own

EXPORTED int open64(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return strikes("open") ? -1 : REAL(open64)(path, flags, mode);
}

EXPORTED int open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (is_counter(path)) return counter_fd = REAL(open)(path, flags, mode);
  return strikes("open") ? -1 : REAL(open)(path, flags, mode);
}

EXPORTED int openat(int directory, const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = takes_mode(flags) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return strikes("open") ? -1 : REAL(openat)(directory, path, flags, mode);
}

EXPORTED int mkostemp64(char *path, int flags) { return strikes("open") ? -1 : REAL(mkostemp64)(path, flags); }

/// The C library only opens the files of C++ streams; libstdc++ reads and writes them itself.
EXPORTED FILE *fopen64(const char *path, const char *mode) {
  if (strikes("fopen")) return nullptr;
  if (std::strcmp(mode, "re") != 0) return REAL(fopen64)(path, mode);
  const int fd = REAL(open64)(path, O_RDONLY | O_CLOEXEC);
  return fd == -1 ? nullptr : open_stream(fd, "r");
}

EXPORTED FILE *fdopen(int fd, const char *mode) noexcept {
  return !is_counter(fd) && strikes("duplicate") ? nullptr : open_stream(fd, mode);
}

EXPORTED ssize_t read(int fd, void *bytes, size_t count) {
  return transfer("read", fd, count, [&](size_t n) { return REAL(read)(fd, bytes, n); });
}

EXPORTED ssize_t pread64(int fd, void *bytes, size_t count, off64_t offset) {
  return transfer("read", fd, count, [&](size_t n) { return REAL(pread64)(fd, bytes, n, offset); });
}

EXPORTED ssize_t write(int fd, const void *bytes, size_t count) {
  if (fd == STDERR_FILENO) return REAL(write)(fd, bytes, count);
  return transfer("write", fd, count, [&](size_t n) { return REAL(write)(fd, bytes, n); });
}

EXPORTED ssize_t pwrite64(int fd, const void *bytes, size_t count, off64_t offset) {
  return transfer("write", fd, count, [&](size_t n) { return REAL(pwrite64)(fd, bytes, n, offset); });
}

EXPORTED ssize_t writev(int fd, const struct iovec *pieces, int count) {
  if (fd == STDERR_FILENO || !strikes("write")) return REAL(writev)(fd, pieces, count);
  return fault().error == 0 ? REAL(write)(fd, pieces[0].iov_base, 1) : -1;
}

EXPORTED ssize_t copy_file_range(int in, off64_t *from, int out, off64_t *to, size_t count, unsigned flags) {
  return transfer("copy", out, count, [&](size_t n) { return REAL(copy_file_range)(in, from, out, to, n, flags); });
}

EXPORTED off64_t lseek64(int fd, off64_t offset, int whence) noexcept {
  return strikes("seek") ? -1 : REAL(lseek64)(fd, offset, whence);
}

/// The tests never crash the system, so fsync() need not wait for the disk.
EXPORTED int fsync(int) { return strikes("sync") ? -1 : 0; }

EXPORTED int ftruncate64(int fd, off64_t size) noexcept {
  return strikes("truncate") ? -1 : REAL(ftruncate64)(fd, size);
}

/// The descriptor is closed even if close() fails.
EXPORTED int close(int fd) { return close_file(fd); }

EXPORTED int stat64(const char *path, struct stat64 *status) noexcept {
  return strikes("stat") ? -1 : REAL(stat64)(path, status);
}
EXPORTED int stat(const char *path, struct stat *status) noexcept {
  return strikes("stat") ? -1 : REAL(stat)(path, status);
}
EXPORTED int fstat64(int fd, struct stat64 *status) noexcept {
  return strikes("stat") ? -1 : REAL(fstat64)(fd, status);
}
EXPORTED int access(const char *path, int mode) noexcept { return strikes("stat") ? -1 : REAL(access)(path, mode); }

EXPORTED int rename(const char *from, const char *to) noexcept {
  return strikes("rename") ? -1 : REAL(rename)(from, to);
}
EXPORTED int unlink(const char *path) noexcept { return strikes("unlink") ? -1 : REAL(unlink)(path); }
EXPORTED int remove(const char *path) noexcept { return strikes("unlink") ? -1 : REAL(remove)(path); }
EXPORTED int chmod(const char *path, mode_t mode) noexcept { return strikes("chmod") ? -1 : REAL(chmod)(path, mode); }
EXPORTED int flock(int fd, int operation) noexcept { return strikes("lock") ? -1 : REAL(flock)(fd, operation); }

EXPORTED int fcntl64(int fd, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  void *argument = va_arg(arguments, void *);
  va_end(arguments);
  const bool is_duplication = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
  return is_duplication && strikes("duplicate") ? -1 : REAL(fcntl64)(fd, command, argument);
}

EXPORTED struct dirent *readdir(DIR *directory) { return strikes("directory") ? nullptr : REAL(readdir)(directory); }

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
