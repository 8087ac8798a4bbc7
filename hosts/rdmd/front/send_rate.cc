// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/send_rate.h"

#include <algorithm>

namespace rdm::rdmd {

void SendRate::begin(std::int64_t acknowledged, std::int64_t sent, io::Clock::time_point now) {
  too_slow(acknowledged, now);
  if (acknowledged >= sent) behind_ = Seconds(0);
}

bool SendRate::too_slow(std::int64_t acknowledged, io::Clock::time_point now) {
  if (rate_ == 0) return false;
  const Seconds passed = now - at_, worth(static_cast<double>(acknowledged - acknowledged_) / rate_);
  behind_ = std::max(behind_ + passed - worth, Seconds(0));
  acknowledged_ = acknowledged;
  at_ = now;
  return behind_ > slack_;
}

}  // namespace rdm::rdmd
