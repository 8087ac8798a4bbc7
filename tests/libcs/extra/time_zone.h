// SPDX-License-Identifier: MIT
/// Setting the time zone of the process.
#ifndef TESTS_LIBCS_EXTRA_TIME_ZONE_H
#define TESTS_LIBCS_EXTRA_TIME_ZONE_H

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace rdm::support {

/// Zones with and without daylight-saving time, east and west of UTC, also by half hours.
inline constexpr const char *time_zones[] = {"UTC0",
                                             "PST8PDT,M3.2.0,M11.1.0",
                                             "CET-1CEST,M3.5.0,M10.5.0/3",
                                             "IST-5:30",
                                             "NZST-12NZDT,M9.5.0,M4.1.0/3",
                                             "<-0930>9:30",
                                             "<+14>-14",
                                             "<-12>12"};

/// TimeZone sets the TZ variable for its lifetime.
class TimeZone {
 public:
  explicit TimeZone(const char *zone) {
    if (const char *old = std::getenv("TZ")) old_ = old;
    setenv("TZ", zone, 1);
    tzset();
  }
  TimeZone(const TimeZone &) = delete;
  TimeZone &operator=(const TimeZone &) = delete;
  ~TimeZone() {
    if (old_)
      setenv("TZ", old_->c_str(), 1);
    else
      unsetenv("TZ");
    tzset();
  }

 private:
  std::optional<std::string> old_;
};

}  // namespace rdm::support

#endif
