// SPDX-License-Identifier: MIT
/// The lock that lets one writer of a catalog work at a time.
#ifndef CATALOG_OS_LOCK_H
#define CATALOG_OS_LOCK_H

#include <functional>
#include <string>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// Lock is held by one writer of a catalog at a time; others wait. The file beside the database stays, unless this lock
/// has created it and there is no database at the end. Whoever gets the lock removes what writers of this database that
/// were killed have left beside it.
class Lock {
 public:
  static std::string path_for(const std::string &database) { return database + ".lock"; }
  /// Waits at most `seconds` for another writer, for ever when that is below zero, and then throws a Failure. When it
  /// has to wait, `say` gets a text that names the process that holds the lock. Permission to read the lock's file is
  /// enough.
  using Message = std::function<void(const std::string &text)>;
  explicit Lock(
      const std::string &database, double seconds = -1, const Message &message = [](const std::string &) {});
  Lock(Lock &&) = default;
  Lock &operator=(Lock &&) = delete;
  ~Lock();

 private:
  void open();
  void wait(double seconds, const Message &message) const;

  std::string database_;
  HostFileGuard file_;
  bool is_created_ = false;
};

}  // namespace rdm::catalog

#endif
