// SPDX-License-Identifier: MIT
#include "tools/common/time_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/os/error.h"

using namespace rdm;

namespace {

constexpr time_t now = 1793534400 + 12 * 3600 + 34 * 60 + 56;  // Sun, 01 Nov 2026 12:34:56 GMT

TEST(TimeText, ReadsTheFormsThatPeopleWrite) {
  const struct {
    const char *text;
    time_t time;
  } rows[] = {
      {"2026-11-01", 1793491200},
      {"2026-11-01T12:00:00Z", 1793534400},
      {"2026-11-01t12:00z", 1793534400},
      {"2026-11-01T12:00:00", 1793534400},
      {"2026-11-01 12:00", 1793534400},
      {"2026-11-01T12:00:00.123456Z", 1793534400},
      {"2026-11-01T13:00:00+01:00", 1793534400},
      {"2026-11-01T13:00:00+0100", 1793534400},
      {"2026-11-01T13:00+01", 1793534400},
      {"2026-11-01 04:00 -0800", 1793534400},
      {"2024-02-29", 1709164800},
      {"@1793534400", 1793534400},
      {"@0", 0},
      {"Sun, 01 Nov 2026 12:00:00 GMT", 1793534400},
      {"sunday 1 november 2026 12:00 UTC", 1793534400},
      {"1 Nov 2026", 1793491200},
      {"Nov 1, 2026", 1793491200},
      {"1-Nov-2026", 1793491200},
      {"01/Nov/26 4:00 PST", 1793534400},
      {"1 Nov 2026 14:00 GMT+0200", 1793534400},
      {"1 Nov 2026 14:00 +0200", 1793534400},
      {"1 Nov 2026 04:00 GMT-0800", 1793534400},
  };
  for (const auto &row : rows) EXPECT_EQ(tools::read_time(row.text, now), row.time) << row.text;
}

TEST(TimeText, CountsFromNow) {
  constexpr time_t noon = 1793534400, minute = 60, day = 86400;
  constexpr time_t instant = noon + 34 * minute + 56;
  const struct {
    const char *text;
    time_t time;
  } rows[] = {
      {"now", instant},
      {"today", noon - day / 2},
      {"Yesterday", noon - day / 2 - day},
      {"1 second ago", instant - 1},
      {"90 minutes ago", instant - 5400},
      {"2 hours ago", instant - 7200},
      {"3 days ago", instant - 3 * day},
      {"1 week ago", instant - 7 * day},
      {"1 month ago", instant - 31 * day},
      {"2 years ago", instant - 730 * day},
  };
  for (const auto &row : rows) EXPECT_EQ(tools::read_time(row.text, instant), row.time) << row.text;
  EXPECT_EQ(tools::read_time("1 month ago", tools::read_time("2026-03-31", 0)), tools::read_time("2026-02-28", 0))
      << "a day that the month does not have becomes its last";
}

std::string refusal(const std::string &text) {
  try {
    return "accepted as " + std::to_string(tools::read_time(text, now));
  } catch (const catalog::Failure &failure) {
    return failure.what();
  }
}

// cs_str2time takes 31 February for 3 March, because descriptions of gatherers must be parsed. An operator gets an
// error.
TEST(TimeText, ATimeThatDoesNotExistIsAnError) {
  for (const char *text :
       {"31 Feb 2026", "2026-02-31", "29 Feb 2026", "2026-13-01", "2026-00-10", "2026-11-01T24:00", "2026-11-01T12:60Z",
        "1 Nov 2026 25:00", "1 Nov 2026 12:61", "2026-11-01T12:00+25:00", "31 Nov 2026 12:00 GMT", "1 Jan 1960"})
    EXPECT_EQ(refusal(text), "no such time: " + std::string(text));
}

TEST(TimeText, UnknownWordsAreAnErrorThatListsTheForms) {
  for (const char *text : {"",
                           " ",
                           "soon",
                           "yesterdy",
                           "3 days",
                           "days ago",
                           "three days ago",
                           "3 moons ago",
                           "-3 days ago",
                           "@",
                           "@x",
                           "@12x",
                           "@-1",
                           "2026",
                           "2026-11",
                           "20261101",
                           "2026-11-01X",
                           "2026-11-01T",
                           "2026-11-01T12",
                           "2026-11-01T12:00:00+",
                           "1 Nov",
                           "Nov 2026",
                           "1 Nov 2026 noon",
                           "1 Nov 2026 12:00 XYZ",
                           "1 2 Nov 2026",
                           "1 Nov Dec 2026",
                           "1 Nov 2026 2027",
                           "1 Nov 2026 12:00 13:00",
                           "1 Nov 20266",
                           "99999999999 days ago"})
    EXPECT_EQ(refusal(text), "not a time: " + std::string(text) +
                                 "; write 2026-11-01, 2026-11-01T12:00:00Z, \"1 Nov 2026 12:00:00 GMT\", @1793534400, "
                                 "yesterday or \"3 days ago\"");
}

}  // namespace
