// SPDX-License-Identifier: MIT
#include <climits>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "libcs/extra/time_zone.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::TimeZone;

using Formatter = int (*)(time_t, char *, int);

std::string format(Formatter formatter, time_t t) {
  char buffer[64];
  const int length = formatter(t, buffer, sizeof buffer);
  EXPECT_EQ(static_cast<size_t>(length), std::strlen(buffer));
  return buffer;
}

struct Row {
  Formatter formatter;
  time_t instant;
  const char *text;
};

constexpr Formatter formatters[] = {cs_time2str, cs_time2str_simple_dateonly, cs_time2str_simple_datetimeonly,
                                    cs_time2informix};

constexpr time_t after_2038 = 4102444799;     // 2099-12-31 23:59:59
constexpr time_t leap_day = 951786123;        // 2000-02-29 01:02:03
constexpr time_t last_second = 253402300799;  // 9999-12-31 23:59:59

TEST(TimeFormat, WritesUtcInEveryTimeZone) {
  const Row rows[] = {
      {cs_time2str, 0, "Thu, 01 Jan 1970 00:00:00 GMT"},
      {cs_time2str, leap_day, "Tue, 29 Feb 2000 01:02:03 GMT"},
      {cs_time2str, 2147483648, "Tue, 19 Jan 2038 03:14:08 GMT"},
      {cs_time2str, after_2038, "Thu, 31 Dec 2099 23:59:59 GMT"},
      {cs_time2str, last_second, "Fri, 31 Dec 9999 23:59:59 GMT"},
      {cs_time2str, -1, "Wed, 31 Dec 1969 23:59:59 GMT"},
      {cs_time2str_simple_dateonly, 0, "01/01/70"},
      {cs_time2str_simple_dateonly, leap_day, "02/29/00"},
      {cs_time2str_simple_dateonly, after_2038, "12/31/99"},
      {cs_time2str_simple_datetimeonly, 0, "01/01/70 00:00:00"},
      {cs_time2str_simple_datetimeonly, leap_day, "02/29/00 01:02:03"},
      {cs_time2str_simple_datetimeonly, after_2038, "12/31/99 23:59:59"},
  };
  for (const char *name : support::time_zones) {
    const TimeZone zone(name);
    for (const Row &row : rows) EXPECT_EQ(format(row.formatter, row.instant), row.text) << name;
  }
}

TEST(TimeFormat, WritesTheDatabaseFormInLocalTime) {
  const struct {
    const char *zone;
    time_t instant;
    const char *text;
  } rows[] = {
      {"UTC0", 0, "1970-01-01 00:00:00"},
      {"IST-5:30", 0, "1970-01-01 05:30:00"},
      {"PST8PDT,M3.2.0,M11.1.0", 0, "1969-12-31 16:00:00"},
      {"PST8PDT,M3.2.0,M11.1.0", 1784116800, "2026-07-15 05:00:00"},
      {"CET-1CEST,M3.5.0,M10.5.0/3", after_2038, "2100-01-01 00:59:59"},
  };
  for (const auto &row : rows) {
    const TimeZone zone(row.zone);
    EXPECT_EQ(format(cs_time2informix, row.instant), row.text) << row.zone;
  }
}

TEST(TimeFormat, FollowsAChangeOfTheZoneVariable) {
  const TimeZone before("UTC0");
  setenv("TZ", "JST-9", 1);
  EXPECT_EQ(format(cs_time2informix, 0), "1970-01-01 09:00:00");
}

TEST(TimeFormat, LeavesAnEmptyTextWhenItDoesNotFit) {
  const TimeZone zone("UTC0");
  const struct {
    Formatter formatter;
    int enough;
  } rows[] = {{cs_time2str, 30},
              {cs_time2str_simple_dateonly, 9},
              {cs_time2str_simple_datetimeonly, 18},
              {cs_time2informix, 20}};
  for (const auto &row : rows)
    for (int size = 1; size <= row.enough + 1; ++size) {
      std::vector<char> buffer(static_cast<size_t>(size), '?');
      const int length = row.formatter(0, buffer.data(), size);
      EXPECT_EQ(length, size < row.enough ? 0 : row.enough - 1) << size;
      EXPECT_EQ(static_cast<int>(std::strlen(buffer.data())), length) << size;
    }
}

TEST(TimeFormat, StoresNothingInABufferOfNoSize) {
  for (const Formatter formatter : formatters)
    for (const int size : {0, -1, INT_MIN}) {
      char guard = '?';
      EXPECT_EQ(formatter(0, &guard, size), 0);
      EXPECT_EQ(guard, '?');
      EXPECT_EQ(formatter(0, nullptr, size), 0);
    }
}

TEST(TimeFormat, ATimeWithoutAYearLeavesAnEmptyText) {
  for (const Formatter formatter : formatters)
    for (const time_t instant : {std::numeric_limits<time_t>::max(), std::numeric_limits<time_t>::min()})
      EXPECT_EQ(format(formatter, instant), "");
}

/// A host that records the calls of format_time and gmtime.
struct AskedHost : ::testing::Test {
  AskedHost() {
    qxapi_host host = *qxapi_posix_host();
    host.format_time = [](char *buffer, size_t size, const char *pattern, const struct tm *fields) {
      asked += std::string(pattern) + "\n";
      return qxapi_posix_host()->format_time(buffer, size, pattern, fields);
    };
    host.gmtime = [](const time_t *t, struct tm *out) {
      asked += "gmtime ";
      return qxapi_posix_host()->gmtime(t, out);
    };
    asked.clear();
    qxapi_bind(&host);
  }
  ~AskedHost() override { qxapi_bind(nullptr); }
  static inline std::string asked;
};

using TimeFormatOfTheHost = AskedHost;

TEST_F(TimeFormatOfTheHost, DoesNotDependOnTheLocaleOfTheProgram) {
  for (const Formatter formatter : formatters) format(formatter, 0);
  EXPECT_EQ(asked,
            "gmtime %a, %d %h %Y %H:%M:%S GMT\n"
            "gmtime %m/%d/%y\n"
            "gmtime %m/%d/%y %H:%M:%S\n"
            "%Y-%m-%d %T\n");
}

}  // namespace
