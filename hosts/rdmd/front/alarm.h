// SPDX-License-Identifier: MIT
/// A timer that calls a step once.
#ifndef HOSTS_RDMD_FRONT_ALARM_H
#define HOSTS_RDMD_FRONT_ALARM_H

#include <cstdint>
#include <functional>
#include <memory>

#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

/// Step is something to do later. One that captures at most two pointers takes no memory of its own.
using Step = std::function<void()>;

/// Alarm is used on one strand, on which the steps run. It is armed and disarmed for each request, so both are cheap: a
/// wait that has begun goes on, and its end is compared with the time that the alarm is set to then.
class Alarm {
 public:
  explicit Alarm(const io::Executor &strand) : timer_(strand) {}

  /// arm calls `step` after `time`, in place of a step that is pending. `owner`, which has the alarm as a member, is
  /// kept alive until then.
  void arm(Duration time, const std::shared_ptr<void> &owner, Step step);
  /// disarm drops the pending step.
  void disarm();
  bool is_armed() const { return step_ != nullptr; }

 private:
  /// Wait is a wait of the timer; it keeps the owner alive unless the alarm is disarmed.
  struct Wait {
    std::shared_ptr<void> owner;
    std::weak_ptr<void> weak_owner;
  };

  void wait(std::shared_ptr<void> owner);
  void wake(Wait &begun);

  io::Timer timer_;
  std::weak_ptr<Wait> wait_;           // belongs to the timer; gone when there is none
  io::Clock::time_point due_, wakes_;  // when the step is to run, and when the wait ends
  Step step_;                          // null: not armed
};

}  // namespace rdm::rdmd

#endif
