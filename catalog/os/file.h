// SPDX-License-Identifier: MIT
/// Reading and writing files at offsets, and scratch files.
#ifndef CATALOG_OS_FILE_H
#define CATALOG_OS_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "qxapi/guard.h"
#include "qxapi/uninterrupted.h"

namespace rdm::catalog {

/// directory_of returns the directory part of a path, "." if it has none.
std::string directory_of(const std::string &path);

/// status_of returns the result of stat for a path, or std::nullopt after ENOENT. Throws a SystemFailure after other
/// errors.
std::optional<struct stat> status_of(const std::string &path);

/// require_regular throws a Failure if a path leads to a file that is not regular: open would wait for the writer of a
/// pipe. It leaves a missing file to the caller.
void require_regular(const std::string &path);

/// followed_link returns the target of a path that is a symbolic link, and any other path as it is: a rename would
/// replace the link. Throws a Failure for a dangling link.
std::string followed_link(const std::string &path);

/// open_file calls open with O_CLOEXEC and repeats it after EINTR. On failure the guard is empty and errno is set.
HostFileGuard open_file(const std::string &path, int flags, mode_t mode = 0);

/// File owns an open descriptor. Its procedures transfer all bytes, or throw a SystemFailure that names the file.
class File {
 public:
  /// File takes over an open descriptor. `name` names it in messages.
  File(HostFileGuard file, std::string name) : file_(std::move(file)), name_(std::move(name)) {}
  /// create creates a file (O_EXCL) and opens it for reading and writing.
  static File create(const std::string &path, mode_t mode = 0644);
  /// open opens an existing regular file for reading.
  static File open(const std::string &path);

  /// descriptor returns the descriptor, which stays open as long as this object.
  int descriptor() const { return file_.get(); }
  const std::string &name() const { return name_; }
  /// status returns the result of fstat, size the size in bytes.
  struct stat status() const;
  int64_t size() const { return status().st_size; }
  /// read_at reads `count` bytes at an offset. A file that ends before is a Failure.
  void read_at(int64_t offset, void *bytes, size_t count) const;
  /// write_at writes bytes at an offset; the file grows if it ends before.
  void write_at(int64_t offset, std::string_view bytes) const;
  /// start_writeback has the system begin to put the bytes from `begin` to `end` onto the disk, and does not wait for
  /// that. It ignores errors, which fsync reports.
  void start_writeback(int64_t begin, int64_t end) const;
  /// resize calls ftruncate.
  void resize(int64_t size) const;

 private:
  HostFileGuard file_;
  std::string name_;
};

/// copy_contents copies a file into an empty one, with copy_file_range if the system supports it for these files, which
/// lets file systems share the blocks; otherwise with reads and writes. Holes stay holes. The system begins to put the
/// copy onto the disk.
void copy_contents(const File &from, const File &to);

/// scratch_mark is part of the name of a scratch file on a file system without O_TMPFILE, from its creation to its
/// unlink: NAME.scratch-XXXXXX. NAME is the file that it is created beside.
inline constexpr std::string_view scratch_mark = ".scratch-";

/// ScratchFile is a temporary file without a name, to which bytes are appended. It ends with this object. It keeps the
/// last bytes in memory, 2 MiB at most unless the constructor says otherwise, and writes them together.
class ScratchFile {
 public:
  /// ScratchFile creates the file in the directory of `beside`; if that directory is not writable, in the one for
  /// temporary files. Throws a SystemFailure.
  explicit ScratchFile(const std::string &beside, size_t memory = usual_memory);

  /// append adds bytes at the end and returns the offset of the first. Throws a SystemFailure if bytes cannot be
  /// written, now or before.
  int64_t append(std::string_view bytes);
  /// read reads `count` bytes that were appended.
  void read(int64_t offset, void *bytes, size_t count) const;
  /// size returns the number of bytes that were appended.
  int64_t size() const { return written_ + static_cast<int64_t>(unwritten_.size()); }
  /// descriptor returns the descriptor of the file, after writing all bytes.
  int descriptor();

 private:
  static constexpr size_t usual_memory = 2 << 20;
  void write(std::string_view bytes);
  void flush();

  File file_;
  size_t memory_;
  int64_t written_ = 0;
  std::string unwritten_;
};

}  // namespace rdm::catalog

#endif
