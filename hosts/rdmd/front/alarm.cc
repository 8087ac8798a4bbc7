// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/alarm.h"

#include <utility>

namespace rdm::rdmd {

void Alarm::arm(Duration time, std::shared_ptr<void> owner, Step step) {
  armed_ = true;
  timer_.expires_after(time);
  timer_.async_wait(
      [owner = std::move(owner), this, epoch = ++epoch_, step = std::move(step)](const boost::system::error_code &) {
        if (epoch != epoch_) return;
        armed_ = false;
        step();
      });
}

void Alarm::disarm() {
  ++epoch_;
  if (std::exchange(armed_, false)) timer_.cancel();
}

}  // namespace rdm::rdmd
