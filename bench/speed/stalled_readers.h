// SPDX-License-Identifier: MIT
/// Clients that ask and then read nothing.
#ifndef BENCH_SPEED_STALLED_READERS_H
#define BENCH_SPEED_STALLED_READERS_H

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "loopback.h"

namespace rdm::bench {

/// StalledReaders keeps clients with small receive buffers, each of which has asked for the target and reads nothing.
class StalledReaders {
 public:
  /// Throws std::runtime_error if a client cannot connect.
  StalledReaders(int port, const std::string &target, std::size_t count);

  /// await_answers returns when the server has begun every answer. Throws std::runtime_error if one has not begun
  /// within this time.
  void await_answers(std::chrono::seconds time) const;

 private:
  std::vector<Socket> sockets_;
};

}  // namespace rdm::bench

#endif
