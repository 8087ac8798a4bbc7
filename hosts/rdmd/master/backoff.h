// SPDX-License-Identifier: MIT
/// Growing pauses between attempts.
#ifndef HOSTS_RDMD_MASTER_BACKOFF_H
#define HOSTS_RDMD_MASTER_BACKOFF_H

#include <algorithm>
#include <chrono>
#include <utility>

namespace rdm::rdmd {

class Backoff {
 public:
  using Pause = std::chrono::milliseconds;
  static constexpr Pause shortest{100}, longest{10'000};

  /// next returns the pause before the next attempt: each is twice as long as the one before, within the limits.
  Pause next() { return std::exchange(pause_, std::min(pause_ * 2, longest)); }
  /// reset begins again, after a success.
  void reset() { pause_ = shortest; }

 private:
  Pause pause_ = shortest;
};

}  // namespace rdm::rdmd

#endif
