// SPDX-License-Identifier: MIT
/// The next state of a file, until it takes the file's place.
#ifndef CATALOG_OS_ATOMIC_FILE_H
#define CATALOG_OS_ATOMIC_FILE_H

#include <optional>
#include <string>
#include <string_view>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// next_state_suffix follows the name of a file in that of its next state.
inline constexpr std::string_view next_state_suffix = ".new";

/// AtomicFile is the next state of a file, written beside it and put in its place by commit. It is locked while it is
/// there, so that one process at a time makes the next state of a file. Uncommitted, or left behind by a process that
/// was killed, it is removed.
class AtomicFile {
 public:
  /// The new file is empty. Where there is no old one it will belong to whom the file `like` belongs. Throws a Failure
  /// when another process is writing it.
  explicit AtomicFile(std::string target, std::string like = "");
  AtomicFile(const AtomicFile &) = delete;
  AtomicFile &operator=(const AtomicFile &) = delete;
  ~AtomicFile();

  /// file is what the next state is written to; until sync only its owner may read it.
  const File &file() const { return file_; }
  /// sync puts what was written onto the disk, with the owner, group and permissions of the file it will replace, or of
  /// the one it shall be like.
  /// Throws a Failure where the owner or group cannot be kept and somebody could no longer read the file, or could now.
  void sync();
  /// commit replaces the file, in one step, and puts the directory onto the disk. A Failure says whether the file was
  /// replaced before it.
  void commit();

 private:
  std::optional<struct stat> model() const;

  std::string target_, like_;
  File file_;
  bool is_committed_ = false;
};

}  // namespace rdm::catalog

#endif
