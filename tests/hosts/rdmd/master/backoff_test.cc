// SPDX-License-Identifier: MIT
#include "hosts/rdmd/master/backoff.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

TEST(Pauses, GrowUpToTheLongest) {
  rdm::rdmd::Backoff backoff;
  for (const auto pause : {100ms, 200ms, 400ms, 800ms, 1600ms, 3200ms, 6400ms, 10'000ms, 10'000ms})
    EXPECT_EQ(backoff.next(), pause);
  backoff.reset();
  EXPECT_EQ(backoff.next(), 100ms);
}

}  // namespace
