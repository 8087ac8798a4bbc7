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

/// Alarm is used on one strand, on which the steps run.
class Alarm {
 public:
  explicit Alarm(const io::Executor &strand) : timer_(strand) {}

  /// arm calls `step` after `time`, in place of a step that is pending. `owner` is kept alive until then.
  void arm(Duration time, std::shared_ptr<void> owner, Step step);
  /// disarm drops the pending step.
  void disarm();
  bool is_armed() const { return armed_; }

 private:
  io::Timer timer_;
  std::uint64_t epoch_ = 0;  // incremented by each change; handlers with an older value do nothing
  bool armed_ = false;
};

}  // namespace rdm::rdmd

#endif
