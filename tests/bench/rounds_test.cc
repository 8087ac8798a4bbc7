// SPDX-License-Identifier: MIT
#include "speed/rounds.h"

#include <gtest/gtest.h>

#include "median.h"

using namespace rdm::bench;

namespace {

TEST(Median, IsTheValueInTheMiddle) {
  EXPECT_EQ(median({3, 9, 1}), 3);
  EXPECT_EQ(median({4, 3, 9, 1}), 4);
  EXPECT_EQ(median({}), 0);
}

TEST(Rounds, VariantsTakeTurns) {
  std::string turns;
  Rounds rounds;
  for (const char *name : {"a", "b"})
    rounds.add(name, [&turns, name] {
      turns += name;
      return Cost{};
    });
  rounds.run(3);
  EXPECT_EQ(turns, "ababab");
}

/// Slowing costs of two variants: the second is twice the first in every round but one.
struct Slowing {
  Rounds rounds;
  double round = 0;
  Slowing() {
    rounds.add("base", [this] {
      ++round;
      return Cost{round, 10 * round};
    });
    rounds.add("double", [this] { return Cost{2 * round, round == 2 ? 200 : 30 * round}; });
  }
};

TEST(Rounds, RatiosAreWithinARound) {
  Slowing slowing;
  slowing.rounds.run(3);
  EXPECT_EQ(slowing.rounds.seconds("base"), 2);
  EXPECT_EQ(slowing.rounds.cpu("double"), 90);
  EXPECT_EQ(slowing.rounds.ratio("double", "base"), 2);
  EXPECT_EQ(slowing.rounds.ratio("double", "base", &Cost::cpu), 3);
}

TEST(Rounds, HaveNothingForVariantsThatAreNotThere) {
  Slowing slowing;
  slowing.rounds.run(1);
  EXPECT_EQ(slowing.rounds.seconds("nginx"), std::nullopt);
  EXPECT_EQ(slowing.rounds.ratio("base", "nginx"), std::nullopt);
}

TEST(Rounds, AVariantOfTheSameNameIsMeasuredOnce) {
  Slowing slowing;
  slowing.rounds.add("base", [] { return Cost{100, 100}; });
  slowing.rounds.run(1);
  EXPECT_EQ(slowing.rounds.seconds("base"), 1);
}

}  // namespace
