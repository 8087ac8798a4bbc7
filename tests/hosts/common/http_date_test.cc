// SPDX-License-Identifier: MIT
#include "hosts/common/http_date.h"

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(HttpDates, AreReadInThreeForms) {
  const struct {
    const char *text;
    std::time_t time;
  } cases[] = {
      {"Sun, 06 Nov 1994 08:49:37 GMT", 784111777},  {"Sunday, 06-Nov-94 08:49:37 GMT", 784111777},
      {"Sun Nov  6 08:49:37 1994", 784111777},       {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
      {"Thu, 29 Feb 2024 23:59:59 GMT", 1709251199}, {"Tuesday, 01-Jan-69 00:00:00 GMT", 3124224000},
      {"Thursday, 01-Jan-70 00:00:00 GMT", 0},       {"Fri, 31 Dec 9999 23:59:59 GMT", 253402300799},
      {"Wed, 31 Dec 2008 23:59:60 GMT", 1230768000}, {"Wed, 31 Dec 1969 23:59:59 GMT", -1},
  };
  for (const auto &row : cases) EXPECT_EQ(hosts::parse_http_date(row.text), row.time) << row.text;
}

TEST(HttpDates, AreWrittenAsTheyAreRead) {
  for (const std::time_t time : {0L, 784111777L, 1709251199L, 4102444800L})
    EXPECT_EQ(hosts::parse_http_date(hosts::http_date(time)), time);
  EXPECT_EQ(hosts::http_date(784111777), "Sun, 06 Nov 1994 08:49:37 GMT");
}

TEST(HttpDates, AreRefusedInOtherForms) {
  for (const char *text : {
           "",
           ",",
           "now",
           "784111777",
           "1994-11-06T08:49:37Z",
           "Sun, 06 Nov 1994 08:49:37",
           "Sun, 06 Nov 1994 08:49:37 CET",
           "Sun, 06 Nov 1994 08:49:37 GMT GMT",
           "Sun, 06 Nov 1994 08:49 GMT",
           "Sun, 06 Nov 1994 24:00:00 GMT",
           "Sun, 06 Nov 1994 08:60:00 GMT",
           "Sun, 06 Nov 1994 08:49:61 GMT",
           "Sun, 06 Nov 1994 0x:49:37 GMT",
           "Sun, 06 Nov 1994 08:-9:37 GMT",
           "Sun, 06 Nov 1994 08:49:3  GMT",
           "Sun, 00 Nov 1994 08:49:37 GMT",
           "Sun, 31 Nov 1994 08:49:37 GMT",
           "Sun, 29 Feb 2023 08:49:37 GMT",
           "Sun, 06 Nox 1994 08:49:37 GMT",
           "Sun, 06 nov 1994 08:49:37 GMT",
           "Sun, 06 Nov 19940 08:49:37 GMT",
           "Sun Nov  6 08:49:37 -994",
           "Sun, 99999999999 Nov 1994 08:49:37 GMT",
       })
    EXPECT_EQ(hosts::parse_http_date(text), std::nullopt) << text;
}

}  // namespace
