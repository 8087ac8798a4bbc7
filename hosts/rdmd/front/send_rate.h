// SPDX-License-Identifier: MIT
/// Decides whether a client takes its answers at the minimum rate.
///
/// The client falls behind by a second for each second in which it acknowledges nothing of an answer under way, and
/// catches up by a second for each `rate` bytes that it acknowledges. It never gets ahead: a burst gives no credit. It
/// is too slow once it is behind by more than `slack`. So a client that keeps the rate may pause for `slack`, and one
/// that keeps a part p of the rate is cut off after slack / (1 - p).
#ifndef HOSTS_RDMD_FRONT_SEND_RATE_H
#define HOSTS_RDMD_FRONT_SEND_RATE_H

#include <cstdint>

#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class SendRate {
 public:
  /// `rate` is in bytes per second; 0: no minimum.
  SendRate(std::size_t rate, Duration slack) : rate_(static_cast<double>(rate)), slack_(slack) {}

  /// begin notes that more bytes will be sent. If the client has acknowledged all of the `sent` bytes, it is no longer
  /// behind.
  void begin(std::int64_t acknowledged, std::int64_t sent, io::Clock::time_point now);
  /// too_slow returns true if the client is behind by more than the slack at `now`. Call it repeatedly while bytes are
  /// unacknowledged.
  bool too_slow(std::int64_t acknowledged, io::Clock::time_point now);

 private:
  using Seconds = std::chrono::duration<double>;

  double rate_;
  Seconds slack_;
  Seconds behind_{0};
  std::int64_t acknowledged_ = 0;
  io::Clock::time_point at_;  // the time of the last call
};

}  // namespace rdm::rdmd

#endif
