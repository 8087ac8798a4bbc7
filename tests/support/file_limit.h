// SPDX-License-Identifier: MIT
/// A limit on the size of files, as if the disk were full.
#ifndef TESTS_SUPPORT_FILE_LIMIT_H
#define TESTS_SUPPORT_FILE_LIMIT_H

#include <signal.h>
#include <sys/resource.h>

namespace rdm::support {

/// FileLimit sets RLIMIT_FSIZE for its lifetime: a write beyond this many bytes of a file fails with EFBIG.
class FileLimit {
 public:
  explicit FileLimit(rlim_t bytes) : handler_(::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const struct rlimit limit { bytes, before_.rlim_max };
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileLimit(const FileLimit &) = delete;
  FileLimit &operator=(const FileLimit &) = delete;
  ~FileLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    ::signal(SIGXFSZ, handler_);
  }

 private:
  struct rlimit before_ {};
  void (*handler_)(int);
};

}  // namespace rdm::support

#endif
