// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/write_deadline.h"

#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/front/moments.h"

using namespace rdm;

namespace {

using namespace std::chrono_literals;
using rdmd::WriteDeadline;
using support::at;

/// Step is a time, and the number of bytes acknowledged by then.
struct Step {
  std::chrono::milliseconds at;
  std::int64_t acknowledged;
};

/// cut_at returns when a client with these steps is cut off at a limit of 30 seconds, or 0 if it is not within an hour.
std::chrono::milliseconds cut_at(const std::vector<Step> &steps) {
  const rdmd::io::Clock::time_point begun{1h};
  WriteDeadline deadline(30s);
  deadline.begin(0, 0, begun);
  std::int64_t acknowledged = 0;
  auto next = steps.begin();
  for (std::chrono::milliseconds now = 0s; now < 1h; now += deadline.interval()) {
    for (; next != steps.end() && next->at <= now; ++next) acknowledged = next->acknowledged;
    if (deadline.expired(acknowledged, begun + now)) return now;
  }
  return 0s;
}

/// regular returns steps at equal intervals for an hour.
std::vector<Step> regular(std::chrono::milliseconds every) {
  std::vector<Step> steps;
  for (std::chrono::milliseconds at = every; at < 1h; at += every)
    steps.push_back({at, static_cast<std::int64_t>(steps.size()) + 1});
  return steps;
}

TEST(WriteDeadline, CutsOffAClientThatTakesNothingWithinTwiceTheLimit) {
  EXPECT_GE(cut_at({}), 30s);
  EXPECT_LE(cut_at({}), 60s);
  // Its receive buffer fills up first.
  EXPECT_LE(cut_at({{10ms, 60'000}, {20ms, 120'000}}), 62s);
  EXPECT_GT(cut_at({{20s, 1}}), 50s);
}

TEST(WriteDeadline, KeepsAClientThatAcknowledgesAnythingInTime) {
  for (const auto every : {1ms, 1000ms, 20'000ms, 29'000ms, 50'000ms})
    EXPECT_EQ(cut_at(regular(every)), 0s) << every.count();
}

TEST(WriteDeadline, AllowsLongerStallsAfterTheFirst) {
  // Measured stalls of a client that reads 1 KB per second.
  const std::vector<Step> slow = {{33'900ms, 31'744}, {68'100ms, 64'488}, {200'500ms, 159'720}, {252'400ms, 207'868}};
  EXPECT_GT(cut_at(slow), 252'400ms);
  // No client gets more than five times the limit.
  EXPECT_LE(cut_at(slow), 252'400ms + 155s);
}

TEST(WriteDeadline, RestartsAtAnAnswerIfAllEarlierBytesAreAcknowledged) {
  WriteDeadline deadline(30s);
  deadline.begin(100, 100, at(0s));
  deadline.begin(200, 200, at(50s));
  EXPECT_FALSE(deadline.expired(200, at(60s)));
  EXPECT_TRUE(deadline.expired(200, at(110s)));
}

// Regression: a client that read nothing but sent requests stayed as long as the kernel took answers: each restarted
// the deadline.
TEST(WriteDeadline, FurtherAnswersGiveNoMoreTimeToAClientThatTakesNothing) {
  WriteDeadline deadline(30s);
  std::int64_t sent = 100;
  deadline.begin(100, sent, at(0s));
  for (auto now = 0ms; now < 60s; now += 500ms) deadline.begin(100, sent += 10, at(now));
  EXPECT_TRUE(deadline.expired(100, at(60s)));
}

TEST(WriteDeadline, BeginNotesAcknowledgementsSinceTheLastCheck) {
  WriteDeadline deadline(30s);
  deadline.begin(0, 0, at(0s));
  deadline.begin(1, 1000, at(40s));
  EXPECT_FALSE(deadline.expired(1, at(80s)));
}

TEST(WriteDeadline, IsCheckedSixteenTimesWithinTheLimit) {
  EXPECT_EQ(WriteDeadline(32s).interval(), 2s);
  EXPECT_EQ(WriteDeadline(1ms).interval(), 1ms);
}

}  // namespace
