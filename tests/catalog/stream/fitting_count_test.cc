// SPDX-License-Identifier: MIT
#include "catalog/stream/fitting_count.h"

#include <ctime>
#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using catalog::fitting_count;

TEST(FittingCount, IsFollowedByTheRestOfTheObject) {
  const struct {
    const char *what;
    std::string rest;
    std::optional<size_t> count;
  } rows[] = {
      {"the last value", "Two\n}\n", 3},
      {"an empty value", "\n}\n", 0},
      {"another attribute follows", "Two\nauthor{1}:\tA\n}\n", 3},
      {"a value of several lines", "one\ntwo\n}\n", 7},
      {"a line that looks like the end", "one\n}\ntwo\n}\n\n", 9},
      {"a line that looks like an attribute", "one\nx{9}:\ttwo\nauthor{1}:\tA\n}\n", 13},
      {"the next count is wrong too", "Two\nauthor{9}:\tA\n}\n", 16},
      {"no end", "Two", std::nullopt},
      {"no end after a line", "Two\nand more\n", std::nullopt},
      {"nothing", "", std::nullopt},
      {"a brace that belongs to text", "Two\n} and more\n", std::nullopt},
  };
  for (const auto &row : rows) EXPECT_EQ(fitting_count(row.rest), row.count) << row.what;
}

// The time for an object that reaches to the end of a large file must not grow with the square of its size.
TEST(FittingCount, GivesUpInTime) {
  std::string lines, attributes;
  for (int i = 0; i < 200'000; ++i) lines += "}\n", attributes += "a{0}:\t\n";
  const std::clock_t start = std::clock();
  EXPECT_EQ(fitting_count(lines + "x"), std::nullopt);
  EXPECT_EQ(fitting_count("x\n" + attributes), 1u) << "as many attributes as are followed fit";
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

}  // namespace
