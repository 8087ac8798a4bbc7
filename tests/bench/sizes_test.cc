// SPDX-License-Identifier: MIT
#include "speed/sizes.h"

#include <gtest/gtest.h>

using namespace rdm::bench;

namespace {

TEST(Sizes, LargerCatalogsAreComparedWithTheReference) {
  Sizes sizes;
  EXPECT_EQ(sizes.against_reference("row", 1000, 1), std::nullopt);
  EXPECT_EQ(sizes.against_reference("row", Sizes::reference, 2), std::nullopt);
  EXPECT_EQ(sizes.against_reference("row", 100'000, 3), 2);
  EXPECT_EQ(sizes.against_reference("other", 100'000, 3), std::nullopt);
}

TEST(Sizes, WithoutTheReferenceNothingIsCompared) {
  Sizes sizes;
  EXPECT_EQ(sizes.against_reference("row", 100'000, 3), std::nullopt);
}

}  // namespace
