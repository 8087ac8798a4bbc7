// SPDX-License-Identifier: MIT
/// The directory in which one import keeps its temporary files.
#ifndef RDMCTL_TEMPORARY_DIRECTORY_H
#define RDMCTL_TEMPORARY_DIRECTORY_H

#include <sys/types.h>

#include <string>

#include "qxapi/guard.h"

namespace rdm::rdmctl {

/// TemporaryDirectory is made in the directory for temporary files, takes its place in TMPDIR, and is removed at the
/// end of its scope with all that is in it, also what a command left there that was killed. The process that made it
/// holds a lock on it: directories of processes that were killed are removed by the next, which knows them by a file in
/// them.
class TemporaryDirectory {
 public:
  /// Throws a Failure when there can be no directory.
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
  /// In a child of the process that made the directory nothing is removed.
  ~TemporaryDirectory();

 private:
  pid_t maker_;
  std::string path_;
  HostFileGuard lock_;
};

}  // namespace rdm::rdmctl

#endif
