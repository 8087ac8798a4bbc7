// SPDX-License-Identifier: MIT
#include "catalog/number_set.h"

#include <gtest/gtest.h>

using rdm::catalog::NumberSet;

namespace {

TEST(NumberSet, TellsWhatChangesIt) {
  NumberSet set;
  for (const uint32_t number : {0U, 1U, 4095U, 4096U, UINT32_MAX}) {
    EXPECT_FALSE(set.erase(number));
    EXPECT_TRUE(set.insert(number)) << number;
    EXPECT_FALSE(set.insert(number)) << number;
  }
  EXPECT_TRUE(set.erase(4096));
  EXPECT_FALSE(set.insert(4095));
  EXPECT_TRUE(set.insert(4096));
}

}  // namespace
