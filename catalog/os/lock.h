// SPDX-License-Identifier: MIT
/// The lock of a catalog: an exclusive flock on DATABASE.lock, which every writer holds.
#ifndef CATALOG_OS_LOCK_H
#define CATALOG_OS_LOCK_H

#include <functional>
#include <string>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// Lock holds the lock of a catalog for its lifetime. The lock file stays, unless this Lock has created it and, when it
/// ends, there is no database or withdraw was called.
class Lock {
 public:
  /// path_for returns the path of the lock file of a database.
  static std::string path_for(const std::string &database) { return database + ".lock"; }
  /// Lock waits up to `seconds` for another writer, without limit if that is below zero, and then throws a Failure.
  /// Before it waits, `message` receives a text that names the process that holds the lock. Permission to read the lock
  /// file is enough. Temporary files beside the database that killed writers have left are removed. Throws a
  /// SystemFailure if the file cannot be opened or locked.
  using Message = std::function<void(const std::string &text)>;
  explicit Lock(
      const std::string &database, double seconds = -1, const Message &message = [](const std::string &) {});
  Lock(Lock &&) = default;
  Lock &operator=(Lock &&) = delete;
  ~Lock();

  /// withdraw says that the database cannot be opened: it may be a file of another kind, beside which no lock file is
  /// to stay.
  void withdraw() { is_withdrawn_ = true; }

 private:
  void open();
  void wait(double seconds, const Message &message) const;

  std::string database_;
  HostFileGuard file_;
  bool is_created_ = false, is_withdrawn_ = false;
};

}  // namespace rdm::catalog

#endif
