/// Files that are replaced as a whole, and the lock that lets one writer at a time do so.
#ifndef MINIDBA_FILES_H
#define MINIDBA_FILES_H

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "qxapi/guard.h"

namespace minidba {

/// status_of returns the status of a file, or nothing where there is none.
std::optional<struct stat> status_of(const std::string &path);

/// Lock is held by one writer of a catalog at a time; others wait. The file beside the database stays.
class Lock {
 public:
  explicit Lock(const std::string &database);

 private:
  file_guard file_;
};

/// Snapshot is the next state of a file, written beside it and put in its place by commit. Uncommitted, or left behind
/// by a writer that was killed, it is removed.
class Snapshot {
 public:
  explicit Snapshot(std::string target);
  Snapshot(const Snapshot &) = delete;
  Snapshot &operator=(const Snapshot &) = delete;
  ~Snapshot();

  /// path is where the next state is written.
  const std::string &path() const { return path_; }
  /// create writes a whole file at once.
  void create(std::string_view bytes);
  /// sync puts what was written onto the disk, with the permissions of the file it will replace.
  void sync();
  /// commit replaces the file, in one step, and puts the folder onto the disk.
  void commit();

 private:
  std::string target_, path_;
};

/// ScratchFile is a file without a name that goes with its scope; texts are appended to it and read back.
class ScratchFile {
 public:
  /// The file is made in the folder of `beside`, or where temporary files go when that cannot be written.
  explicit ScratchFile(const std::string &beside);

  struct Extent {
    int64_t offset;
    int64_t size;
  };
  Extent append(std::string_view bytes);
  std::string read(Extent extent) const;
  int descriptor() const { return file_.get(); }

 private:
  file_guard file_;
  int64_t size_ = 0;
};

}  // namespace minidba

#endif
