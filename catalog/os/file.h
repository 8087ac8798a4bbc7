// SPDX-License-Identifier: MIT
/// Files that are read and written at once, or not at all.
#ifndef CATALOG_OS_FILE_H
#define CATALOG_OS_FILE_H

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "qxapi/guard.h"

namespace rdm::catalog {

/// directory_of returns the directory that a path leads into.
std::string directory_of(const std::string &path);

/// status_of returns the status of a file, or nothing where there is none.
std::optional<struct stat> status_of(const std::string &path);

/// uninterrupted repeats a system call until no signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

/// open_file is open without being interrupted, close-on-exec.
HostFileGuard open_file(const std::string &path, int flags, mode_t mode = 0);

/// File owns an open file. Its operations read or write all that is asked, or throw a Failure that names the file.
class File {
 public:
  File(HostFileGuard file, std::string name) : file_(std::move(file)), name_(std::move(name)) {}
  /// create makes a file that is not there yet, for reading and writing.
  static File create(const std::string &path, mode_t mode = 0644);
  /// open opens an existing file for reading.
  static File open(const std::string &path);

  int descriptor() const { return file_.get(); }
  const std::string &name() const { return name_; }
  struct stat status() const;
  int64_t size() const { return status().st_size; }
  void read_at(int64_t offset, void *bytes, size_t count) const;
  void write_at(int64_t offset, std::string_view bytes) const;
  void resize(int64_t size) const;

 private:
  HostFileGuard file_;
  std::string name_;
};

/// copy_contents makes an empty file the same as another: shared where the file system can share, else copied inside
/// the system, else by reading and writing. Holes stay holes.
void copy_contents(const File &from, const File &to);

/// scratch_mark follows the name of the file that a scratch file is made beside, where it must have a name for a
/// moment.
inline constexpr std::string_view scratch_mark = ".scratch-";

/// ScratchFile is a file without a name that goes with its scope; texts are appended to it and read back.
class ScratchFile {
 public:
  /// The file is made in the directory of `beside`, or where temporary files go when nothing can be written there.
  explicit ScratchFile(const std::string &beside);

  /// append returns the offset of the first byte.
  int64_t append(std::string_view bytes);
  /// write replaces bytes that were appended.
  void write(int64_t offset, std::string_view bytes) const { file_.write_at(offset, bytes); }
  void read(int64_t offset, void *bytes, size_t count) const { file_.read_at(offset, bytes, count); }
  int descriptor() const { return file_.descriptor(); }

 private:
  File file_;
  int64_t size_ = 0;
};

}  // namespace rdm::catalog

#endif
