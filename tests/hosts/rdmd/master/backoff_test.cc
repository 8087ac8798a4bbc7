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

/// Crashes is a server with `places` workers, of which one ends at each call of pause.
class Crashes {
 public:
  explicit Crashes(int places) : budget_(places) {}
  /// pause returns how long the place of a worker stays empty that has lived for `life`. That time passes.
  rdm::rdmd::CrashBudget::Clock::duration pause(std::chrono::milliseconds life) {
    const auto ready = now_;
    now_ += life;
    const auto pause = budget_.next(ready, now_);
    now_ += pause;
    return pause;
  }

 private:
  rdm::rdmd::CrashBudget budget_;
  rdm::rdmd::CrashBudget::Clock::time_point now_{10h};
};

TEST(CrashBudget, AWorkerThatHasLivedASecondIsReplacedAtOnceHoweverOften) {
  Crashes crashes(1);
  for (int crash = 0; crash < 100; ++crash) EXPECT_EQ(crashes.pause(1s), 0s) << crash;
}

TEST(CrashBudget, TheFirstTenThatEndYoungAreReplacedAtOnceAndThenOneASecond) {
  Crashes crashes(1);
  for (int crash = 0; crash < 10; ++crash) EXPECT_EQ(crashes.pause(0s), 0s) << crash;
  for (int crash = 0; crash < 10; ++crash) EXPECT_EQ(crashes.pause(0s), 1s) << crash;
}

TEST(CrashBudget, APlaceIsEmptyForAtMostASecondHoweverManyThereAre) {
  rdm::rdmd::CrashBudget budget(4);
  const rdm::rdmd::CrashBudget::Clock::time_point now{10h};
  for (int crash = 0; crash < 10; ++crash) EXPECT_EQ(budget.next(now, now), 0s) << crash;
  for (const auto pause : {250ms, 500ms, 750ms, 1000ms}) EXPECT_EQ(budget.next(now, now), pause);
}

TEST(CrashBudget, AQuietTimeRestoresIt) {
  Crashes crashes(1);
  for (int crash = 0; crash < 11; ++crash) crashes.pause(0s);
  crashes.pause(10s);
  for (int crash = 0; crash < 10; ++crash) EXPECT_EQ(crashes.pause(0s), 0s) << crash;
  EXPECT_EQ(crashes.pause(0s), 1s);
}

}  // namespace
