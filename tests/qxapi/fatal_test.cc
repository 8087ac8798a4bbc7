// SPDX-License-Identifier: MIT
#include "qxapi/fatal.h"

#include <csignal>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(FatalDeathTest, NamesModuleLineAndConditionAndAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(qx_fatal("rds", 42, "entry != NULL"), ::testing::KilledBySignal(SIGABRT),
              "^rds:42: assertion failed: entry != NULL\n$");
}

TEST(FatalDeathTest, RequireAbortsOnlyWhenTheConditionFails) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  QX_REQUIRE(1 + 1 == 2, "rds", "arithmetic");
  EXPECT_EXIT(QX_REQUIRE(1 + 1 == 3, "rds", "arithmetic"), ::testing::KilledBySignal(SIGABRT),
              "^rds:[0-9]+: assertion failed: arithmetic\n$");
}

}  // namespace
