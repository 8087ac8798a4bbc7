// SPDX-License-Identifier: MIT
/// Replacing a file atomically: a new file beside it is written, synced and renamed over it.
#ifndef CATALOG_OS_ATOMIC_FILE_H
#define CATALOG_OS_ATOMIC_FILE_H

#include <optional>
#include <string>
#include <string_view>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// next_state_suffix is appended to the name of a file to name the new file that will replace it.
inline constexpr std::string_view next_state_suffix = ".new";

/// AtomicFile is the new file, TARGET.new. An exclusive flock lets one process at a time write it. The destructor
/// removes it unless it was committed; one that a killed process has left is removed by the next AtomicFile of this
/// target.
class AtomicFile {
 public:
  /// AtomicFile creates an empty new file. If the target does not exist, sync copies owner, group and mode from `like`,
  /// unless that is empty. Throws a Failure if another process is writing the new file, and a SystemFailure if the file
  /// cannot be created or locked.
  explicit AtomicFile(std::string target, std::string like = "");
  AtomicFile(const AtomicFile &) = delete;
  AtomicFile &operator=(const AtomicFile &) = delete;
  ~AtomicFile();

  /// file returns the new file, which belongs to this object. If sync will copy a mode, the mode is 0600 until then.
  const File &file() const { return file_; }
  /// sync copies owner, group and mode from the target, or from `like` if there is no target, and calls fsync. Throws a
  /// SystemFailure if fsync fails, or if the owner or group cannot be copied and other users would gain or lose access.
  void sync();
  /// commit renames the new file over the target and calls fsync for the directory. Call it once, after sync. A Failure
  /// leaves the target as it was, unless its text says that the target is replaced.
  void commit();
  /// replace only renames. The directory is not synced: the commit of another file in it must follow.
  void replace();

 private:
  std::optional<struct stat> model() const;

  std::string target_, like_;
  File file_;
  bool is_committed_ = false;
};

}  // namespace rdm::catalog

#endif
