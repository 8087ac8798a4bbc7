// SPDX-License-Identifier: MIT
#include "catalog/change_times.h"

#include <algorithm>

#include "catalog/record.h"

namespace rdm::catalog {

time_t valid_change_time(const ObjectView &object) { return valid_change_time(change_time(object)); }

time_t valid_change_time(time_t change_time) {
  return change_time > 0 && change_time <= latest_change ? change_time : 0;
}

time_t next_change(time_t newest, time_t clock) { return std::max(newest + 1, std::min(clock, latest_change)); }

}  // namespace rdm::catalog
