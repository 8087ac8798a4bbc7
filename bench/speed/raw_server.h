// SPDX-License-Identifier: MIT
/// The measure of harvests: a process that reads records with the hash library and sends them.
#ifndef BENCH_SPEED_RAW_SERVER_H
#define BENCH_SPEED_RAW_SERVER_H

#include <sys/types.h>

#include <string>

namespace rdm::bench {

/// RawServer is a process that answers the request for "/N" with the records of the index from entry N on. For each
/// request it opens the database, reads every record by its key with the hash library (libdb1) and sends it, collected
/// in pieces of 64 KiB. It serves one connection after the other, knows the index from its start on, and ends with
/// its scope. Create it while the program has one thread.
class RawServer {
 public:
  RawServer(const std::string &database, const std::string &index);
  RawServer(const RawServer &) = delete;
  RawServer &operator=(const RawServer &) = delete;
  ~RawServer();

  int port() const { return port_; }
  pid_t pid() const { return process_; }

 private:
  int port_ = 0;
  pid_t process_ = -1;
};

}  // namespace rdm::bench

#endif
