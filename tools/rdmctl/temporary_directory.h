// SPDX-License-Identifier: MIT
/// The temporary directory of an import.
#ifndef RDMCTL_TEMPORARY_DIRECTORY_H
#define RDMCTL_TEMPORARY_DIRECTORY_H

#include <sys/types.h>

#include <string>

#include "qxapi/guard.h"

namespace rdm::rdmctl {

/// TemporaryDirectory creates a directory in the one for temporary files and sets TMPDIR to it. The process that has
/// created it holds a flock on it. Directories of killed processes are recognised by a file in them, and removed by the
/// next TemporaryDirectory.
class TemporaryDirectory {
 public:
  /// Throws a SystemFailure if the directory cannot be created.
  TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory &) = delete;
  TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
  /// The destructor removes the directory with its contents, unless it runs in a child of the creating process.
  ~TemporaryDirectory();

 private:
  pid_t maker_;
  std::string path_;
  HostFileGuard lock_;
};

}  // namespace rdm::rdmctl

#endif
