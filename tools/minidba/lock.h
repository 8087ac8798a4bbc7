/// The lock that lets one writer of a catalog work at a time.
#ifndef MINIDBA_LOCK_H
#define MINIDBA_LOCK_H

#include <string>

#include "tools/minidba/files.h"

namespace minidba {

/// Lock is held by one writer of a catalog at a time; others wait. The file beside the database stays. Whoever gets the
/// lock removes what writers of this database that were killed have left beside it.
class Lock {
 public:
  static std::string path_for(const std::string &database) { return database + ".lock"; }
  /// Permission to read the lock's file is enough.
  explicit Lock(const std::string &database);

 private:
  file_guard file_;
};

}  // namespace minidba

#endif
