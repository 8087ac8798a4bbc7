// SPDX-License-Identifier: MIT
#include "libcs/extra/zone.h"

#include <limits>
#include <optional>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "libcs/extra/time_zone.h"

using namespace rdm;

namespace {

/// The current time, if a test sets it.
std::optional<time_t> present;

}  // namespace

/// Replaces time() of the C library.
extern "C" time_t time(time_t *timer) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const time_t result = present.value_or(now.tv_sec);
  if (timer != nullptr) *timer = result;
  return result;
}

namespace {

using support::TimeZone;

/// Present sets the current time for its lifetime.
class Present {
 public:
  explicit Present(time_t instant) { present = instant; }
  Present(const Present &) = delete;
  Present &operator=(const Present &) = delete;
  ~Present() { present.reset(); }
};

TEST(LocalZoneOffset, IsTheDistanceFromGreenwichInMinutes) {
  const struct {
    const char *zone;
    int minutes;
  } rows[] = {{"UTC0", 0},       {"IST-5:30", 330},      {"PST8", -480},       {"<+14>-14", 840},
              {"<-12>12", -720}, {"<+1245>-12:45", 765}, {"<-0930>9:30", -570}};
  for (const auto &row : rows) {
    const TimeZone zone(row.zone);
    EXPECT_EQ(ZAN_LocalZoneOffset(), row.minutes) << row.zone;
  }
}

TEST(LocalZoneOffset, FollowsAChangeOfTheZoneVariable) {
  const TimeZone before("UTC0");
  setenv("TZ", "JST-9", 1);
  EXPECT_EQ(ZAN_LocalZoneOffset(), 540);
}

TEST(LocalZoneOffset, HoldsAtEveryHourAcrossTheTurnOfTheYear) {
  // 2023-12-30, 2024-12-30 and 2025-12-30: the turns into a leap year, out of one, and between common years.
  for (const time_t start : {1703894400, 1735516800, 1767052800})
    for (const char *name : support::time_zones) {
      const TimeZone zone(name);
      for (time_t instant = start; instant < start + time_t{4} * 86400; instant += 1800) {
        const Present now(instant);
        struct tm local;
        localtime_r(&instant, &local);
        EXPECT_EQ(ZAN_LocalZoneOffset(), local.tm_gmtoff / 60) << name << " at " << instant;
      }
    }
}

TEST(LocalZoneOffset, IncludesDaylightSavingTimeWhileItIsInForce) {
  const TimeZone zone("CET-1CEST,M3.5.0,M10.5.0/3");
  const struct {
    time_t instant;
    int minutes;
  } rows[] = {{1774746000 - 1, 60}, {1774746000, 120}, {1792890000 - 1, 120}, {1792890000, 60}};
  for (const auto &row : rows) {
    const Present now(row.instant);
    EXPECT_EQ(ZAN_LocalZoneOffset(), row.minutes) << row.instant;
  }
}

TEST(LocalZoneOffset, IsZeroAtATimeWithoutADate) {
  const TimeZone zone("JST-9");
  const Present now(std::numeric_limits<time_t>::max());
  EXPECT_EQ(ZAN_LocalZoneOffset(), 0);
}

TEST(LocalZoneOffset, CountsADayIfLocalAndUtcDatesDiffer) {
  const struct {
    int local_day, local_hour, utc_day, utc_hour, minutes;
  } rows[] = {
      {100, 12, 100, 12, 0},   {100, 16, 101, 0, -480}, {101, 1, 100, 19, 360},  // within a year
      {364, 16, 0, 0, -480},   {365, 16, 0, 0, -480},                            // local 31 December, UTC 1 January
      {0, 1, 364, 19, 360},    {0, 1, 365, 19, 360},                             // and vice versa
      {12, 12, 10, 12, -1440}, {10, 12, 12, 12, 1440},                           // two days apart is taken for New Year
  };
  for (const auto &row : rows) {
    struct tm local {
    }, utc{};
    local.tm_sec = 59, utc.tm_sec = 1;  // seconds are ignored
    local.tm_yday = row.local_day, local.tm_hour = row.local_hour;
    utc.tm_yday = row.utc_day, utc.tm_hour = row.utc_hour;
    EXPECT_EQ(zone::minutes_ahead(local, utc), row.minutes) << row.local_day << " " << row.utc_day;
  }
}

}  // namespace
