// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/write_deadline.h"

namespace rdm::rdmd {

void WriteDeadline::begin(std::int64_t acknowledged, std::int64_t sent, io::Clock::time_point now) {
  if (acknowledged >= sent)
    restart(acknowledged, now);
  else
    expired(acknowledged, now);
}

void WriteDeadline::restart(std::int64_t acknowledged, io::Clock::time_point now) {
  acknowledged_ = acknowledged;
  since_ = now;
}

bool WriteDeadline::expired(std::int64_t acknowledged, io::Clock::time_point now) {
  const auto stall = now - since_;
  if (acknowledged <= acknowledged_) return stall >= timeout_;
  restart(acknowledged, now);
  // Measured with clients that read 1 KB per second into default buffers: a stall lasts up to four times the previous
  // one.
  timeout_ = std::max(timeout_, std::min<io::Clock::duration>(stall * 9 / 2, limit_ * 5));
  return false;
}

}  // namespace rdm::rdmd
