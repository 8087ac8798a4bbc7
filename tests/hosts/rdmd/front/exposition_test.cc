// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/exposition.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using rdmd::decimal_seconds;
using rdmd::Exposition;

TEST(MetricsText, HasTwoLinesForAFamilyAndOneForEachSample) {
  Exposition text;
  text.family("a_total", "counter", "Things.");
  text.sample({}, 0);
  text.sample({{"kind", "x"}, {"state", "y"}}, UINT64_MAX);
  text.family("b_seconds", "histogram", "Times.");
  text.sample({{"le", "+Inf"}}, 3, "_bucket");
  text.seconds({}, 2'500'000, "_sum");
  EXPECT_EQ(text.text(),
            "# HELP a_total Things.\n"
            "# TYPE a_total counter\n"
            "a_total 0\n"
            "a_total{kind=\"x\",state=\"y\"} 18446744073709551615\n"
            "# HELP b_seconds Times.\n"
            "# TYPE b_seconds histogram\n"
            "b_seconds_bucket{le=\"+Inf\"} 3\n"
            "b_seconds_sum 0.0025\n");
}

TEST(MetricsText, EscapesTheValuesOfLabels) {
  Exposition text;
  text.family("a", "gauge", "A.");
  text.sample({{"catalog", "a\"b\\c\nd"}}, 1);
  EXPECT_TRUE(text.text().ends_with("\na{catalog=\"a\\\"b\\\\c\\nd\"} 1\n")) << text.text();
}

TEST(MetricsText, SecondsAreExactAndWithoutTrailingZeros) {
  const std::pair<std::int64_t, const char *> rows[] = {
      {0, "0"},
      {1, "0.000000001"},
      {100'000, "0.0001"},
      {2'500'000'000, "2.5"},
      {60'000'000'000, "60"},
      {-1'500'000'000, "-1.5"},
      {1'794'800'467'042'000'000, "1794800467.042"},
  };
  for (const auto &[nanoseconds, text] : rows) EXPECT_EQ(decimal_seconds(nanoseconds), text);
}

}  // namespace
