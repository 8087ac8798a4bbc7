// SPDX-License-Identifier: MIT
/// A directory into which gatherers put submissions.
#ifndef RDMCTL_SPOOL_H
#define RDMCTL_SPOOL_H

#include <sys/stat.h>

#include <string>
#include <vector>

#include "qxapi/guard.h"

namespace rdm::rdmctl {

/// Spool holds an exclusive flock on the directory, so that one process at a time takes files from it.
class Spool {
 public:
  static constexpr char done[] = "done", rejected[] = "rejected";

  /// Throws a Failure if the directory cannot be opened, or if another process takes files from it.
  explicit Spool(std::string directory);

  /// files returns the names of the finished files in byte order: regular files whose names do not begin with "." or
  /// end with ".tmp" or ".part". Throws a Failure if the directory cannot be read.
  std::vector<std::string> files() const;
  std::string path(const std::string &name) const { return directory_ + "/" + name; }
  /// make_subdirectories makes what is missing of the directories for files that are done. Throws a Failure if one
  /// cannot be made or written, or is on another file system: a file that cannot be moved would be taken again.
  void make_subdirectories() const;
  /// move moves a file into a subdirectory. If the name is taken there, it appends "~1" or the next free number. A file
  /// that has replaced the one with the status `taken` stays. Throws a SystemFailure.
  void move(const std::string &name, const struct stat &taken, const std::string &subdirectory) const;

 private:
  std::string directory_;
  HostFileGuard lock_;
};

}  // namespace rdm::rdmctl

#endif
