// SPDX-License-Identifier: MIT
#include <cstdint>
#include <ctime>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "support/environment.h"
#include "support/locale.h"

using namespace rdm;

namespace {

struct tm fields(time_t t) {
  struct tm out;
  EXPECT_EQ(host_gmtime(&t, &out), &out);
  return out;
}

TEST(Clock, UtcWhateverTheTimeZone) {
  const support::Environment zone("TZ", "XYZ-13:45");
  const struct tm tm = fields(1078462205);  // 2004-03-05 04:50:05 UTC
  EXPECT_EQ(tm.tm_year, 104);
  EXPECT_EQ(tm.tm_mon, 2);
  EXPECT_EQ(tm.tm_mday, 5);
  EXPECT_EQ(tm.tm_hour, 4);
  EXPECT_EQ(tm.tm_min, 50);
  EXPECT_EQ(tm.tm_sec, 5);
  EXPECT_EQ(tm.tm_wday, 5);
  EXPECT_EQ(tm.tm_yday, 64);
}

TEST(Clock, UtcBeforeAndFarAfterTheEpoch) {
  EXPECT_EQ(fields(-1).tm_year, 69);
  EXPECT_EQ(fields(-1).tm_sec, 59);
  EXPECT_EQ(fields(4102444800).tm_year, 200);
}

TEST(Clock, UtcOfAYearThatDoesNotFitIsNull) {
  const time_t t = std::numeric_limits<time_t>::max();
  struct tm out;
  EXPECT_EQ(host_gmtime(&t, &out), nullptr);
}

TEST(Clock, FormatsTime) {
  const struct tm tm = fields(1078462205);
  char text[64];
  EXPECT_EQ(host_format_time(text, sizeof text, "[%d/%b/%Y:%H:%M:%S] %a %A %B", &tm), 39);
  EXPECT_STREQ(text, "[05/Mar/2004:04:50:05] Fri Friday March");
}

TEST(Clock, FormatsTimeInTheCLocaleWhateverIsSet) {
  const support::ForeignLocale foreign;
  const struct tm tm = fields(1078203005);  // a Tuesday in March
  char text[64];
  host_format_time(text, sizeof text, "%a %d %b %Y", &tm);
  EXPECT_STREQ(text, "Tue 02 Mar 2004");
}

TEST(Clock, TimeThatDoesNotFitIsAnEmptyText) {
  const struct tm tm = fields(0);
  char text[5] = "....";
  EXPECT_EQ(host_format_time(text, 4, "%Y", &tm), 0);
  EXPECT_STREQ(text, "");
  EXPECT_EQ(host_format_time(text, 4, "in %Y", &tm), 0) << "the part that fits is not kept";
  EXPECT_STREQ(text, "");
  EXPECT_EQ(host_format_time(text, 5, "%Y", &tm), 4);
  EXPECT_STREQ(text, "1970");
  EXPECT_EQ(host_format_time(text, 5, "", &tm), 0);
  EXPECT_STREQ(text, "");
}

TEST(Clock, TimeIntoNoRoomIsLeftAlone) {
  const struct tm tm = fields(0);
  char text[] = "x";
  EXPECT_EQ(host_format_time(text, 0, "%Y", &tm), 0);
  EXPECT_STREQ(text, "x");
}

}  // namespace
