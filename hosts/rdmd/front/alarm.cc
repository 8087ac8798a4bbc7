// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/alarm.h"

#include <utility>

namespace rdm::rdmd {

void Alarm::arm(Duration time, const std::shared_ptr<void> &owner, Step step) {
  due_ = io::Clock::now() + time;
  step_ = std::move(step);
  const auto begun = wait_.lock();
  if (!begun || wakes_ > due_) return wait(owner);
  begun->owner = owner;
}

void Alarm::disarm() {
  step_ = nullptr;
  if (const auto begun = wait_.lock()) begun->owner.reset();
}

/// wait replaces a wait that would end later.
void Alarm::wait(std::shared_ptr<void> owner) {
  std::weak_ptr<void> weak = owner;
  const auto begun = std::make_shared<Wait>(Wait{std::move(owner), std::move(weak)});
  wait_ = begun;
  wakes_ = due_;
  timer_.expires_at(due_);
  timer_.async_wait([this, begun](const boost::system::error_code &error) {
    // The owner, and this alarm with it, may be gone.
    const auto alive = begun->weak_owner.lock();
    if (alive && !error) wake(*begun);
  });
}

void Alarm::wake(Wait &begun) {
  // The timer was set again after its former wait had ended, but before this call.
  if (wait_.lock().get() != &begun) return;
  wait_.reset();
  if (!is_armed()) return;
  if (io::Clock::now() < due_) return wait(std::move(begun.owner));
  std::exchange(step_, nullptr)();
}

}  // namespace rdm::rdmd
