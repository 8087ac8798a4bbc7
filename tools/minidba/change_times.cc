#include "tools/minidba/change_times.h"

#include <algorithm>

#include "tools/minidba/record.h"

namespace minidba {

time_t believed_change(const SOIF *object) {
  const time_t time = change_time(object);
  return time > 0 && time <= latest_change ? time : 0;
}

time_t next_change(time_t newest, time_t clock) { return std::max(newest + 1, std::min(clock, latest_change)); }

}  // namespace minidba
