// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/send_rate.h"

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using namespace std::chrono_literals;
using rdmd::SendRate;

constexpr std::size_t rate = 1000;
constexpr rdmd::Duration slack = 150s;

/// at returns a point in time.
rdmd::io::Clock::time_point at(std::chrono::seconds time) { return rdmd::io::Clock::time_point{10h} + time; }

/// cut_at returns when a client that acknowledges `bytes` every `pause` is cut off, or 0 if it is not within six hours.
std::chrono::seconds cut_at(std::int64_t bytes, std::chrono::seconds pause) {
  SendRate client(rate, slack);
  client.begin(0, 0, at(0s));
  for (std::chrono::seconds now = 1s; now < 6h; now += 1s)
    if (client.too_slow(bytes * (now / pause), at(now))) return now;
  return 0s;
}

TEST(SendRates, KeepAClientThatTakesTheRateOnAverage) {
  EXPECT_EQ(cut_at(1000, 1s), 0s);
  EXPECT_EQ(cut_at(30'000, 30s), 0s);
  EXPECT_EQ(cut_at(150'000, 150s), 0s) << "a pause as long as the slack";
  EXPECT_EQ(cut_at(100'000'000, 60s), 0s);
}

TEST(SendRates, CutOffAClientThatTakesLess) {
  EXPECT_EQ(cut_at(0, 1s), 151s);
  EXPECT_EQ(cut_at(500, 1s), 301s);
  EXPECT_EQ(cut_at(900, 1s), 1501s);
  EXPECT_EQ(cut_at(1, 50s), 151s) << "a byte now and then keeps no connection";
}

TEST(SendRates, ABurstGivesNoCredit) {
  EXPECT_EQ(cut_at(1'000'000'000, 200s), 151s);
  SendRate client(rate, slack);
  client.begin(0, 0, at(0s));
  EXPECT_FALSE(client.too_slow(1'000'000'000, at(1s)));
  EXPECT_FALSE(client.too_slow(1'000'000'000, at(151s)));
  EXPECT_TRUE(client.too_slow(1'000'000'000, at(152s)));
}

TEST(SendRates, AnAnswerToAClientThatHasEverythingStartsOver) {
  SendRate client(rate, slack);
  client.begin(0, 0, at(0s));
  EXPECT_FALSE(client.too_slow(1, at(140s)));
  client.begin(100, 100, at(1000s));
  EXPECT_FALSE(client.too_slow(100, at(1150s)));
  EXPECT_TRUE(client.too_slow(100, at(1151s)));
}

TEST(SendRates, FurtherAnswersGiveNoMoreTimeToAClientThatIsBehind) {
  SendRate client(rate, slack);
  client.begin(0, 100, at(0s));
  for (auto now = 10s; now < 150s; now += 10s) client.begin(1, 200, at(now));
  EXPECT_TRUE(client.too_slow(1, at(152s)));
}

TEST(SendRates, ARateOfZeroIsNoLimit) {
  SendRate client(0, slack);
  client.begin(0, 100, at(0s));
  EXPECT_FALSE(client.too_slow(0, at(1'000'000s)));
}

}  // namespace
