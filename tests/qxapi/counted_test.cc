// SPDX-License-Identifier: MIT
#include "qxapi/counted.h"

#include <cstdint>

#include <gtest/gtest.h>

using rdm::counted;

namespace {

TEST(Counted, OnlyOneIsSingular) {
  EXPECT_EQ(counted(0, "fault"), "0 faults");
  EXPECT_EQ(counted(1, "fault"), "1 fault");
  EXPECT_EQ(counted(2, "fault"), "2 faults");
  EXPECT_EQ(counted(int64_t{1}, "entry", "entries"), "1 entry");
  EXPECT_EQ(counted(uint64_t{11}, "entry", "entries"), "11 entries");
}

}  // namespace
