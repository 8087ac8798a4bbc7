// SPDX-License-Identifier: MIT
#include <cctype>
#include <random>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "libcs/extra/time_zone.h"

using namespace rdm;

namespace {

using support::TimeZone;

constexpr time_t minute = 60;
constexpr time_t hour = 60 * minute;
constexpr time_t day = 24 * hour;
constexpr time_t nov_16 = 1794787200;                           // 2026-11-16 00:00:00 UTC
constexpr time_t moment = nov_16 + 3 * hour + 41 * minute + 7;  // 03:41:07

struct ParsedRow {
  const char *text;
  time_t instant;
};

time_t parse(const std::string &text) { return ZAN_ParseTimeString(text.c_str(), 1); }

template <size_t n>
void expect_rows(const ParsedRow (&rows)[n]) {
  for (const char *name : support::time_zones) {
    const TimeZone zone(name);
    for (const ParsedRow &row : rows) EXPECT_EQ(parse(row.text), row.instant) << '"' << row.text << "\" in " << name;
  }
}

std::string in_capitals(std::string text) {
  for (char &c : text) c = static_cast<char>(std::toupper(c));
  return text;
}

std::string in_small_letters(std::string text) {
  for (char &c : text) c = static_cast<char>(std::tolower(c));
  return text;
}

/// spellings returns a word in mixed, upper and lower case.
std::vector<std::string> spellings(const std::string &word) {
  return {word, in_capitals(word), in_small_letters(word)};
}

TEST(TimeParse, ReadsTheUsualFormsOfDates) {
  expect_rows({
      {"Mon, 16 Nov 2026 03:41:07 GMT", moment},
      {"Monday, 16-Nov-26 03:41:07 GMT", moment},
      {"Mon Nov 16 03:41:07 2026", moment},
      {"Mon Nov 16 03:41:07 GMT 2026", moment},
      {"16 Nov 2026", nov_16},
      {"16-Nov-2026", nov_16},
      {"16/Nov/2026 03:41:07", moment},
      {"Nov 16, 2026", nov_16},
      {"November 16th 16, 2026", nov_16},
      {"2026 Nov 16 03:41", moment - 7},
      {"(16) [Nov];2026\t03:41:07", moment},
      {"Mon, 16 Nov 2026 03:41:07 +0000", moment},
      {"Mon, 16 Nov 2026 03:41:07 +0000 (GMT)", moment},
      {"  Mon,16,Nov,2026,03:41:07  ", moment},
  });
}

TEST(TimeParse, FindsNoDateInTextsThatLackAPart) {
  expect_rows({
      {"", 0},
      {"   ,;/()[]-  ", 0},
      {"nothing to read", 0},
      {"16 Nov", 0},
      {"Nov 2026", 0},
      {"16 2026", 0},
      {"03:41:07 GMT", 0},
      {"Mon", 0},
      {"1794800467", 0},
  });
}

TEST(TimeParse, NumericMonthsAreNotUnderstood) {
  expect_rows({
      {"2026-11-16 03:41:07", 0},  // -11 and -16 after the year are zone offsets
      {"2026-11-16T03:41:07Z", 0},
      {"2026/11/16 03:41:07", 0},  // 11 is the day
      {"11/16/26 03:41:07", 0},
      {"20261116", 0},
      {"11/16/26 Nov", 1478822400},  // day 11, year 2016
  });
}

TEST(TimeParse, AColonAfterTheYearHidesIt) { expect_rows({{"16/Nov/2026:03:41:07 +0000", 0}}); }

TEST(TimeParse, RecognisesEveryMonth) {
  const struct {
    const char *name;
    time_t first;
  } rows[] = {
      {"January", 1767225600},   {"February", 1769904000}, {"March", 1772323200},    {"April", 1775001600},
      {"May", 1777593600},       {"June", 1780272000},     {"July", 1782864000},     {"August", 1785542400},
      {"September", 1788220800}, {"October", 1790812800},  {"November", 1793491200}, {"December", 1796083200},
  };
  for (const auto &row : rows)
    for (const std::string &word : spellings(row.name)) {
      EXPECT_EQ(parse("1 " + word.substr(0, 3) + " 2026"), row.first) << word;
      EXPECT_EQ(parse("1 " + word + " 2026"), row.first) << word;
      EXPECT_EQ(parse("1 " + word.substr(0, 2) + " 2026"), 0) << word;
    }
}

TEST(TimeParse, PassesOverEveryWeekday) {
  for (const char *name : {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"})
    for (const std::string &word : spellings(name))
      for (const std::string &weekday : {word, word.substr(0, 3)}) {
        EXPECT_EQ(parse(weekday + ", 16 Nov 2026 03:41:07 GMT"), moment) << weekday;
        EXPECT_EQ(parse("Mon " + weekday + " 16 Nov 2026 03:41:07 GMT"), moment) << weekday;
      }
}

TEST(TimeParse, RecognisesEveryZone) {
  const struct {
    const char *name;
    int minutes;
  } rows[] = {{"PST", -480}, {"PDT", -420}, {"MST", -420}, {"MDT", -360}, {"CST", -360}, {"CDT", -300},
              {"EST", -300}, {"EDT", -240}, {"AST", -240}, {"NST", -210}, {"GMT", 0},    {"UT", 0},
              {"BST", 60},   {"MET", 60},   {"EET", 120},  {"JST", 540}};
  for (const char *name : support::time_zones) {
    const TimeZone zone(name);
    for (const auto &row : rows)
      for (const std::string &word : spellings(row.name))
        for (const int flag : {0, 1}) {
          const std::string text = "16 Nov 2026 03:41:07 " + word;
          EXPECT_EQ(ZAN_ParseTimeString(text.c_str(), flag), moment - row.minutes * minute) << text << " in " << name;
        }
  }
}

TEST(TimeParse, PassesOverTheRestOfAName) {
  expect_rows({
      {"16 Novembro 2026", nov_16},
      {"16 NovXYZ.!? 2026", nov_16},
      {"16 Nov17 2026", nov_16},
      {"16 Mayor 2026", 1778889600},
      {"16 Nov 2026 03:41:07 PSTish", moment + 480 * minute},
      {"16 Nov 2026 03:41:07 METZ", moment - 60 * minute},
  });
}

TEST(TimeParse, TakesUtOnlyBeforeANonLetter) {
  const TimeZone zone("JST-9");
  const struct {
    const char *word;
    bool is_utc;
  } rows[] = {{"UT", true},   {"ut", true},   {"UT.", true},  {"UT1", true},  {"(UT)", true}, {"UT+", true},
              {"UTC", false}, {"utc", false}, {"UTX", false}, {"UT0Z", true}, {"U", false},   {"Z", false}};
  for (const auto &row : rows) {
    const std::string text = std::string("16 Nov 2026 03:41:07 ") + row.word;
    EXPECT_EQ(ZAN_ParseTimeString(text.c_str(), 0), row.is_utc ? moment : moment - 9 * hour) << text;
  }
}

TEST(TimeParse, TheFirstOfAKindCounts) {
  expect_rows({
      {"16 Nov Dec 2026", nov_16},
      {"16 Nov 2026 2027", nov_16},
      {"16 Nov 2026 27", nov_16},
      {"16 Nov 26 2027", nov_16},
      {"16 17 Nov 2026", 1510790400},  // 17 is the year 2017
      {"16 Nov 2026 03:41:07 04:00:00", moment},
      {"16 Nov 2026 03:41:07 PST EST", moment + 480 * minute},
      {"16 Nov 2026 03:41:07 PST GMT", moment + 480 * minute},
      {"16 Nov 2026 03:41:07 GMT PST", moment},
      {"16 Nov 2026 03:41:07 +0100 PST", moment - 60 * minute},
  });
}

TEST(TimeParse, ReadsAZoneOffsetByTheCountOfItsDigits) {
  expect_rows({
      {"16 Nov 2026 03:41:07 +0230", moment - 150 * minute},
      {"16 Nov 2026 03:41:07 -0230", moment + 150 * minute},
      {"16 Nov 2026 03:41:07 +02", moment - 120 * minute},
      {"16 Nov 2026 03:41:07 -02", moment + 120 * minute},
      {"16 Nov 2026 03:41:07 +2", moment - 120 * minute},
      {"16 Nov 2026 03:41:07 -2", moment + 120 * minute},
      {"16 Nov 2026 03:41:07 +", moment},
      {"16 Nov 2026 03:41:07 +PST", moment},
      {"16 Nov 2026 03:41:07 +023", moment},
      {"16 Nov 2026 03:41:07 -023", moment},
      {"16 Nov 2026 03:41:07 +02300", moment},
      {"16 Nov 2026 03:41:07 -02300", moment},
      {"16 Nov 2026 03:41:07 +0299", moment - (120 + 99) * minute},
      {"16 Nov 2026 03:41:07 +9999", moment - (99 * hour + 99 * minute)},
      {"16 Nov 2026 03:41:07 +02:30", moment - 120 * minute},  // the minutes after a colon are ignored
      {"16 Nov 2026 03:41:07 +02x", moment - 120 * minute},
      {"+0230 16 Nov 2026 03:41:07", moment - 150 * minute},
      {"16 Nov 2026 03:41:07+0230", moment - 150 * minute},
      {"16 Nov 2026 03:41:07-0230", moment + 150 * minute},
      {"16-Nov-2026-0230 03:41:07", moment + 150 * minute},
      {"16 Nov 2026 03:41:07 ++0230", moment - 150 * minute},
  });
}

TEST(TimeParse, AnOffsetMakesTheDateUtcWhateverTheFlag) {
  const TimeZone zone("JST-9");
  EXPECT_EQ(ZAN_ParseTimeString("16 Nov 2026 03:41:07 +0230", 0), moment - 150 * minute);
  EXPECT_EQ(ZAN_ParseTimeString("16 Nov 2026 03:41:07 -0001", 0), moment);
  EXPECT_EQ(ZAN_ParseTimeString("16 Nov 2026 03:41:07 +023", 0), moment - 9 * hour);
}

TEST(TimeParse, AnOffsetCountsWithNoZoneOrUtc) {
  expect_rows({
      {"16 Nov 2026 03:41:07 GMT+0200", moment - 120 * minute},
      {"16 Nov 2026 03:41:07 GMT-0200", moment + 120 * minute},
      {"16 Nov 2026 03:41:07 UT+0200", moment - 120 * minute},
      {"16 Nov 2026 03:41:07 UTC+0200", moment - 120 * minute},
      {"16 Nov 2026 03:41:07 PST+0200", moment + 480 * minute},
      {"16 Nov 2026 03:41:07 PST-0200", moment + 480 * minute},
      {"16 Nov 2026 03:41:07 BST +0200", moment - 60 * minute},
  });
}

TEST(TimeParse, AFurtherOffsetReplacesOneWestOfUtcOnly) {
  expect_rows({
      {"16 Nov 2026 03:41:07 -0200 -0300", moment + 180 * minute},
      {"16 Nov 2026 03:41:07 -0200 +0300", moment - 180 * minute},
      {"16 Nov 2026 03:41:07 -0200 +0300 -0100", moment - 180 * minute},
      {"16 Nov 2026 03:41:07 +0200 +0300", moment - 120 * minute},
      {"16 Nov 2026 03:41:07 +0200 -0300", moment - 120 * minute},
      {"16 Nov 2026 03:41:07 +0000 -0300", moment},
      {"16 Nov 2026 03:41:07 -0000 -0300", moment},
  });
}

TEST(TimeParse, AnOffsetOfMinusOneMinuteIsIgnored) {
  expect_rows({
      {"16 Nov 2026 03:41:07 -0001", moment},
      {"16 Nov 2026 03:41:07 -0002", moment + 120},
      {"16 Nov 2026 03:41:07 +0001", moment - 60},
      {"16 Nov 2026 03:41:07 -0001 +0300", moment - 180 * minute},
      {"16 Nov 2026 03:41:07 -0001 PST", moment},
  });
}

TEST(TimeParse, ADashIsASignOnlyAfterTheYearAndBeforeADigit) {
  expect_rows({
      {"16-Nov-26", nov_16},
      {"-16-Nov-2026-", nov_16},
      {"16 Nov - 2026 - 03:41:07", moment},
      {"2026-Nov-16", 0},  // -16 is an offset, so the day is missing
      {"2026-Nov- 16", nov_16},
      {"16 Nov -0200 2026", 0},  // before the year the dash separates: 0200 is the year
      {"16 Nov 2026 --0200", nov_16 + 120 * minute},
      {"16 Nov 2026-03:41:07", nov_16 + 180 * minute},
  });
}

TEST(TimeParse, ReadsTheTimeOfDay) {
  expect_rows({
      {"16 Nov 2026 0:0", nov_16},
      {"16 Nov 2026 3:41:7", moment},
      {"16 Nov 2026 03:41", moment - 7},
      {"16 Nov 2026 23:59:59", nov_16 + day - 1},
      {"16 Nov 2026 23:59:60", nov_16 + day},
      {"03:41:07 16 Nov 2026", moment},
  });
}

TEST(TimeParse, PassesOverTimesOutOfRangeOrShape) {
  for (const char *time :
       {"24:00", "00:60", "00:00:61", "003:41", "03:041", "03:41:007", "03:", ":03:41", "03::41",
        "03:41:", "03:41:07:", "03:41:07:09", "03:41x", "03:41:07Z", "03:41:07.5", "03.41", "99:99:99", "3:x"})
    EXPECT_EQ(parse(std::string("16 Nov 2026 ") + time), nov_16) << time;
  expect_rows({{"16 Nov 2026 24:00 03:41:07", moment}});
}

TEST(TimeParse, TellsDaysFromYearsByTheirDigits) {
  expect_rows({
      {"1 Nov 2026", nov_16 - 15 * day},
      {"01 Nov 2026", nov_16 - 15 * day},
      {"31 Oct 2026", nov_16 - 16 * day},
      {"16 Nov 26", nov_16},
      {"16 Nov 00", 974332800},
      {"16 Nov 69", 3151785600},
      {"16 Nov 70", 27561600},
      {"16 Nov 99", 942710400},
      {"99 Nov 16", 942710400},  // above 31, so it is the year
      {"32 Nov 16", 1984176000},
      {"00 Nov 16", 974332800},
      {"26 Nov 16", 1480118400},  // the day comes first: 26 November 2016
      {"16 Nov 6", 0},            // one digit cannot be a year
      {"0 16 Nov 2026", nov_16},
      {"016 16 Nov 2026", nov_16},
      {"16 Nov 02026", 0},
      {"16 Nov 2026.", 0},
      {"16th Nov 2026", 0},
      {"16 Nov 20x26", 0},
      {"16 Nov 2026\n", 0},  // a newline is part of a word
  });
}

TEST(TimeParse, PassesOverWordsThatBeginWithOtherCharacters) {
  expect_rows({
      {"*Dec !16 \"17 #2025 16 Nov 2026 03:41:07 &PST", moment},
      {"xDec yDec zDec {Dec |Dec ~Dec 16 Nov 2026", nov_16},
      {"\x80"
       "Dec \xff"
       "Dec 16 Nov 2026",
       nov_16},
      {".Dec :Dec <Dec =Dec >Dec ?Dec @Dec ^Dec _Dec `Dec \\Dec 16 Nov 2026", nov_16},
  });
}

TEST(TimeParse, DaysPastTheEndOfAMonthRunOn) {
  expect_rows({
      {"29 Feb 2024", 1709164800},
      {"29 Feb 2026", 1772323200},  // 1 March
      {"31 Feb 2026", 1772323200 + 2 * day},
      {"31 Apr 2026", 1777593600},
      {"29 Feb 2000", 951782400},
      {"29 Feb 2100", 4107542400},
  });
}

TEST(TimeParse, TimesBefore1970AreZero) {
  expect_rows({
      {"01 Jan 1970 00:00:00 GMT", 0},
      {"01 Jan 1970 00:00:01 GMT", 1},
      {"31 Dec 1969 23:59:59 GMT", 0},
      {"01 Jan 1970 00:00:00 +0100", 0},
      {"01 Jan 1970 01:00:00 +0100", 0},
      {"01 Jan 1970 01:00:01 +0100", 1},
      {"31 Dec 1969 23:59:59 -0100", 3599},
      {"01 Jan 1970 PST", 8 * hour},
      {"16 Nov 0000", 0},
      {"16 Nov 0001", 0},
      {"16 Nov 1492 03:41:07", 0},
  });
}

TEST(TimeParse, ReadsTimesAfter2038) {
  expect_rows({
      {"Tue, 19 Jan 2038 03:14:08 GMT", 2147483648},
      {"Sun, 07 Feb 2106 06:28:16 GMT", 4294967296},
      {"Fri, 31 Dec 9999 23:59:59 GMT", 253402300799},
  });
}

TEST(TimeParse, WithoutAZoneTheFlagChoosesUtcOrLocalTime) {
  const struct {
    const char *zone;
    const char *text;
    time_t local;
  } rows[] = {
      {"UTC0", "16 Nov 2026 03:41:07", moment},
      {"IST-5:30", "16 Nov 2026 03:41:07", moment - 330 * minute},
      {"PST8PDT,M3.2.0,M11.1.0", "16 Nov 2026 03:41:07", moment + 480 * minute},
      // Summer times are read as standard time.
      {"PST8PDT,M3.2.0,M11.1.0", "15 Jul 2026 12:00", 1784116800 + 480 * minute},
      {"IST-5:30", "1 Jan 1970 05:29:59", 0},
      {"IST-5:30", "1 Jan 1970 05:30:01", 1},
      {"PST8", "31 Dec 1969 16:00:01", 1},
      {"PST8", "31 Dec 1969 15:59:59", 0},
      {"UTC0", "31 Feb 2026", 1772323200 + 2 * day},
  };
  for (const auto &row : rows) {
    const TimeZone zone(row.zone);
    EXPECT_EQ(ZAN_ParseTimeString(row.text, 0), row.local) << row.text << " in " << row.zone;
  }
  for (const char *name : support::time_zones) {
    const TimeZone zone(name);
    for (const int flag : {1, -1, 7}) EXPECT_EQ(ZAN_ParseTimeString("16 Nov 2026 03:41:07", flag), moment) << name;
  }
}

TEST(TimeParse, StoresAndReturnsTheTimeInUtcUnlessItHasAZone) {
  const TimeZone zone("JST-9");
  time_t out = 5;
  EXPECT_EQ(cs_str2time("16 Nov 2026 03:41:07", &out), moment);
  EXPECT_EQ(out, moment);
  EXPECT_EQ(cs_str2time("no date", &out), 0);
  EXPECT_EQ(out, 0);
}

TEST(TimeParse, ReportsANullText) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(ZAN_ParseTimeString(nullptr, 1), 0);
  const std::string report = testing::internal::GetCapturedStderr();
  EXPECT_THAT(report, testing::MatchesRegex("extra:[0-9]+: assertion failed: string\n"));
}

std::vector<time_t> instants(unsigned seed) {
  std::vector<time_t> all = {0,          1,          59,         day - 1,     day,        951782399,
                             951782400,  951868799,  1709164800, 2147483647,  2147483648, 4107542399,
                             4107542400, 4294967295, 4294967296, 253402300799};
  std::mt19937_64 random(seed);
  for (int i = 0; i < 2000; ++i) all.push_back(static_cast<time_t>(random() % 253402300800));
  // Every hour of the changes to and from daylight-saving time in 2026, and the turn of that year.
  for (const time_t start : {1772841600, 1774656000, 1775174400, 1790380800, 1792800000, 1793404800, 1798675200})
    for (time_t t = start; t < start + 3 * day; t += 1800) all.push_back(t);
  return all;
}

TEST(TimeParse, ReadsTheFormattersTextBackInEveryTimeZone) {
  const std::vector<time_t> all = instants(1970);
  for (const char *name : support::time_zones) {
    const TimeZone zone(name);
    for (const time_t instant : all) {
      char text[30];
      ASSERT_EQ(cs_time2str(instant, text, sizeof text), 29);
      time_t out = -1;
      ASSERT_EQ(cs_str2time(text, &out), instant) << text << " in " << name;
      ASSERT_EQ(out, instant);
      ASSERT_EQ(ZAN_ParseTimeString(text, 0), instant) << text << " in " << name;
    }
  }
}

TEST(TimeParse, SurvivesArbitraryText) {
  constexpr char alphabet[] = "0123456789:+-/,; .()JanNovGMTUPSxz\x80\n";
  for (unsigned seed = 1; seed <= 20000; ++seed) {
    std::minstd_rand random(seed);
    std::string text(random() % 40, ' ');
    for (char &c : text) c = alphabet[random() % (sizeof alphabet - 1)];
    const time_t t = parse(text);
    EXPECT_GE(t, 0) << text;
    EXPECT_LT(t, 253402300800 + 100 * day) << text;
  }
}

}  // namespace
