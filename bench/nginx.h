// SPDX-License-Identifier: MIT
/// nginx, which serves the files of a directory for comparison.
#ifndef BENCH_NGINX_H
#define BENCH_NGINX_H

#include <sys/types.h>

#include <string>

#include "support/files.h"

namespace rdm::bench {

/// Nginx serves the files of `files` in its own temporary directory, without an access log as rdmd does, until the end
/// of its scope.
class Nginx {
 public:
  /// installed returns true if the machine has nginx.
  static bool installed();

  explicit Nginx(const std::string &workers);
  Nginx(const Nginx &) = delete;
  Nginx &operator=(const Nginx &) = delete;
  ~Nginx();

  int port() const { return port_; }
  pid_t pid() const { return process_; }
  /// file returns the path of the file that is served as /NAME.
  std::string file(const std::string &name) const { return directory_.path("files/" + name); }

 private:
  support::TemporaryDirectory directory_;
  int port_;
  pid_t process_ = -1;
};

}  // namespace rdm::bench

#endif
