// SPDX-License-Identifier: MIT
/// Pauses between attempts to start a process.
#ifndef HOSTS_RDMD_MASTER_BACKOFF_H
#define HOSTS_RDMD_MASTER_BACKOFF_H

#include <algorithm>
#include <chrono>
#include <utility>

namespace rdm::rdmd {

/// Backoff is for processes that end before they are ready.
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

/// CrashBudget is for processes that were ready and have ended. It is a token bucket: a process that has lived for
/// `young` costs nothing, and a younger one a token. The bucket holds `burst` tokens and gains one for each place in
/// each `interval`. So one request that crashes a worker now and then, or `burst` of them in a row, make nobody wait,
/// and if every process ends as soon as it is ready, each place is filled once in an interval.
class CrashBudget {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::seconds young{1}, interval{1};
  static constexpr int burst = 10;

  /// `places` is the number of processes that run at a time.
  explicit CrashBudget(int places) : token_(Clock::duration(interval) / places) {}

  /// next returns the pause before a process that was ready at `ready` and has ended `now` is replaced.
  Clock::duration next(Clock::time_point ready, Clock::time_point now) {
    if (now - ready >= young) return Clock::duration::zero();
    full_ = std::max(full_, now) + token_;
    return std::max(full_ - now - burst * token_, Clock::duration::zero());
  }

 private:
  Clock::duration token_;     // the time in which the bucket gains one
  Clock::time_point full_{};  // when the bucket will be full
};

}  // namespace rdm::rdmd

#endif
