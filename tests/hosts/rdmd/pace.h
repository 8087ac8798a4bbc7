// SPDX-License-Identifier: MIT
/// Clients that must not pause for as long as a limit of the server, on machines of any speed.
#ifndef TESTS_HOSTS_RDMD_PACE_H
#define TESTS_HOSTS_RDMD_PACE_H

#include <algorithm>
#include <chrono>
#include <mutex>
#include <string>

namespace rdm::support {

/// Pace measures the pauses of clients, which may be longer than intended if the machine is busy.
class Pace {
 public:
  using Clock = std::chrono::steady_clock;

  /// step notes that a client has done something, the last time at `last`, and sets `last` to now. It may be called
  /// from any thread.
  void step(Clock::time_point &last) {
    const auto now = Clock::now();
    const std::lock_guard lock(mutex_);
    longest_ = std::max(longest_, now - last);
    last = now;
  }
  Clock::duration longest() const { return longest_; }

 private:
  std::mutex mutex_;
  Clock::duration longest_{};
};

/// at_pace calls `attempt` with a limit on pauses and a Pace, and returns true if the attempt succeeds. An attempt that
/// fails while a client pauses for nearly the limit says nothing about the server; it is repeated with twice the limit,
/// up to four times.
template <typename Attempt>
bool at_pace(std::chrono::milliseconds limit, Attempt attempt) {
  for (int repeated = 0; repeated < 5; ++repeated, limit *= 2) {
    Pace pace;
    if (attempt(limit, pace)) return true;
    if (pace.longest() < limit * 3 / 4) return false;
  }
  return false;
}

/// in_seconds returns a time as options of the server take it.
inline std::string in_seconds(std::chrono::milliseconds time) {
  return std::to_string(std::chrono::duration<double>(time).count());
}

}  // namespace rdm::support

#endif
