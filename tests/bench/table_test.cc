// SPDX-License-Identifier: MIT
#include "speed/table.h"

#include <gtest/gtest.h>

using namespace rdm::bench;

namespace {

TEST(SpeedTable, NumbersHaveThreeDigits) {
  const std::pair<double, const char *> cases[] = {{0, "0"},       {0.0512, "0.051"}, {0.125, "0.12"},
                                                   {0.5, "0.5"},   {2.254, "2.25"},   {25.36, "25.4"},
                                                   {100.4, "100"}, {1230, "1230"},    {-2.5, "-2.5"}};
  for (const auto &[value, text] : cases) EXPECT_EQ(number(value), text);
}

TEST(SpeedTable, TimesAndSizesHaveUnits) {
  EXPECT_EQ(duration(0.0000253), "25.3 us");
  EXPECT_EQ(duration(0.071), "71 ms");
  EXPECT_EQ(duration(1.32), "1.32 s");
  EXPECT_EQ(bytes(700), "700 bytes");
  EXPECT_EQ(bytes(64 * 1024), "64 KiB");
  EXPECT_EQ(bytes(20.5 * 1024 * 1024 * 1024), "20.5 GiB");
  EXPECT_EQ(count(999), "999");
  EXPECT_EQ(count(1'000'000), "1,000,000");
}

TEST(SpeedTable, ARowIsWithinIfAllThatCouldBeJudgedIs) {
  EXPECT_EQ(is_within({"row", "", {}, {}, {}, {}}), std::nullopt);
  EXPECT_EQ(is_within({"row", "", {}, {}, {}, {at_most(std::nullopt, 1, "")}}), std::nullopt);
  EXPECT_EQ(is_within({"row", "", {}, {}, {}, {at_most(1, 1, ""), at_most(std::nullopt, 1, "")}}), true);
  EXPECT_EQ(is_within({"row", "", {}, {}, {}, {at_most(1.1, 1, ""), at_least(1, 1, "")}}), false);
  EXPECT_EQ(is_within({"row", "", {}, {}, {}, {at_least(0.9, 1, "")}}), false);
}

TEST(SpeedTable, IsMarkdown) {
  const std::vector<Row> rows{
      {"harvest", "71 ms", 0.24, 1.5, {}, {at_most(0.24, 0.25, " x raw"), at_most(1.5, 1.3, " x nginx")}},
      {"memory", "1.5 MiB", {}, {}, {}, {at_most(1.5, 16, " MiB")}},
      {"status", "", {}, {}, {}, {}}};
  EXPECT_EQ(table_head("20,000 RDs") + table_rows(rows),
            "### 20,000 RDs\n"
            "\n"
            "| | measured | x raw | x nginx | x slapd | limit | within |\n"
            "|---|---|---|---|---|---|---|\n"
            "| harvest | 71 ms | 0.24 | 1.5 | | at most 0.25 x raw, at most 1.3 x nginx | **no** |\n"
            "| memory | 1.5 MiB | | | | at most 16 MiB | yes |\n"
            "| status | | | | | | |\n");
}

}  // namespace
