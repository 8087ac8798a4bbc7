// SPDX-License-Identifier: MIT
#include "catalog/change_times.h"

#include <algorithm>

#include "catalog/record.h"

namespace rdm::catalog {

time_t believed_change(const SOIF *object) {
  const time_t time = change_time(object);
  return time > 0 && time <= latest_change ? time : 0;
}

time_t next_change(time_t newest, time_t clock) { return std::max(newest + 1, std::min(clock, latest_change)); }

}  // namespace rdm::catalog
