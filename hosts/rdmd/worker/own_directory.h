// SPDX-License-Identifier: MIT
/// The directory in which one worker makes its temporary files.
///
/// The worker holds a lock (flock) on it. A directory without a lock belongs to a worker that has ended.
#ifndef HOSTS_RDMD_WORKER_OWN_DIRECTORY_H
#define HOSTS_RDMD_WORKER_OWN_DIRECTORY_H

#include <string>

#include "qxapi/guard.h"

namespace rdm::rdmd {

/// OwnDirectory is removed with its contents at the end of its scope.
class OwnDirectory {
 public:
  /// Makes a directory of mode 0700 in `parent` and locks it. Throws std::system_error.
  explicit OwnDirectory(const std::string &parent);
  OwnDirectory(const OwnDirectory &) = delete;
  OwnDirectory &operator=(const OwnDirectory &) = delete;
  ~OwnDirectory();

  const std::string &path() const { return path_; }

 private:
  std::string path_;
  HostFileGuard lock_;
};

/// remove_own_directory removes the directory of a worker that has ended. It does nothing for another path.
void remove_own_directory(const std::string &path);

/// remove_unused_directories removes the directories in `parent` whose workers have ended and that belong to this user.
void remove_unused_directories(const std::string &parent);

}  // namespace rdm::rdmd

#endif
