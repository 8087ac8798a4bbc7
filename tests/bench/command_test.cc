// SPDX-License-Identifier: MIT
#include "speed/command.h"

#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace rdm::bench;

namespace {

TEST(Command, CostsTheCpuTimeOfItsChildren) {
  const Cost cost = cost_of("/bin/sh -c 'i=0; while [ $i -lt 20000 ]; do i=$((i+1)); done'; sleep 0.2");
  EXPECT_GT(cost.cpu, 0.001);
  EXPECT_GT(cost.seconds, 0.2);
}

TEST(Command, FailsWithItsMessage) {
  try {
    cost_of("echo the reason >&2; exit 3");
    FAIL() << "it counts as done";
  } catch (const std::runtime_error &error) {
    EXPECT_THAT(error.what(), testing::HasSubstr(": the reason"));
  }
}

TEST(Command, SystemCallsAreTheTotalOfTheSummary) {
  EXPECT_EQ(total_calls("% time     seconds  usecs/call     calls    errors syscall\n"
                        "------ ----------- ----------- --------- --------- ----------------\n"
                        " 60.00    0.000120           1       120         3 read\n"
                        "100.00    0.000200           1       217        30 total\n"),
            217);
  EXPECT_EQ(total_calls("strace: no such file\n"), 0);
}

}  // namespace
