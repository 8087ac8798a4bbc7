/// The folder in which one import keeps its temporary files.
#ifndef RDMCTL_TEMPORARY_FOLDER_H
#define RDMCTL_TEMPORARY_FOLDER_H

#include <sys/types.h>

#include <string>

#include "qxapi/guard.h"

namespace rdmctl {

/// TemporaryFolder is made in the folder for temporary files, takes its place in TMPDIR, and is removed at the end of
/// its scope with all that is in it, also what a command left there that was killed. The process that made it holds a
/// lock on it: folders of processes that were killed are removed by the next, which knows them by a file in them.
class TemporaryFolder {
 public:
  /// Throws a Failure when there can be no folder.
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder &) = delete;
  TemporaryFolder &operator=(const TemporaryFolder &) = delete;
  /// In a child of the process that made the folder nothing is removed.
  ~TemporaryFolder();

 private:
  pid_t maker_;
  std::string path_;
  file_guard lock_;
};

}  // namespace rdmctl

#endif
