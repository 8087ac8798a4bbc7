// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/connection_rate.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using namespace std::chrono_literals;
using rdmd::ClientKey;
using rdmd::ConnectionRate;

/// at returns a point in time.
rdmd::io::Clock::time_point at(std::chrono::milliseconds time) { return rdmd::io::Clock::time_point{10h} + time; }

ClientKey client(unsigned number) {
  return ClientKey::parse("10." + std::to_string(number >> 16 & 255) + "." + std::to_string(number >> 8 & 255) + "." +
                          std::to_string(number & 255))
      .value();
}

/// taken returns how many of `tries` connections at `now` are within the limit.
int taken(ConnectionRate &rate, const ClientKey &key, rdmd::io::Clock::time_point now, int tries = 1000) {
  int count = 0;
  for (int i = 0; i < tries; ++i) count += rate.take(key, now) ? 1 : 0;
  return count;
}

TEST(ConnectionRates, AllowABurstOfFiveSecondsAndThenTheRate) {
  ConnectionRate rate(4);
  EXPECT_EQ(taken(rate, client(1), at(0s)), 20);
  EXPECT_EQ(taken(rate, client(1), at(249ms)), 0);
  EXPECT_EQ(taken(rate, client(1), at(250ms)), 1);
  EXPECT_EQ(taken(rate, client(1), at(1250ms)), 4);
  EXPECT_EQ(taken(rate, client(1), at(1h)), 20);
}

TEST(ConnectionRates, CountEachClientAlone) {
  ConnectionRate rate(1);
  EXPECT_EQ(taken(rate, client(1), at(0s)), 5);
  EXPECT_EQ(taken(rate, client(2), at(0s)), 5);
  EXPECT_EQ(taken(rate, client(1), at(0s)), 0);
}

TEST(ConnectionRates, MayBeLessThanOnePerSecond) {
  ConnectionRate rate(0.1);
  EXPECT_EQ(taken(rate, client(1), at(0s)), 1);
  EXPECT_EQ(taken(rate, client(1), at(9999ms)), 0);
  EXPECT_EQ(taken(rate, client(1), at(10s)), 1);
}

TEST(ConnectionRates, MayBeAsSmallOrAsLargeAsANumberCanBe) {
  ConnectionRate least(1e-300), most(1e6);
  EXPECT_EQ(taken(least, client(1), at(0s)), 1);
  EXPECT_EQ(taken(least, client(1), at(24h)), 0);
  EXPECT_EQ(taken(most, client(1), at(0s), 10'000), 10'000);
}

TEST(ConnectionRates, ARefusedConnectionTakesNothing) {
  ConnectionRate rate(1);
  EXPECT_EQ(taken(rate, client(1), at(0s)), 5);
  for (auto now = 1ms; now < 1000ms; now += 1ms) EXPECT_FALSE(rate.take(client(1), at(now)));
  EXPECT_TRUE(rate.take(client(1), at(1s)));
}

TEST(ConnectionRates, ForgetClientsWithAFullBucket) {
  ConnectionRate rate(1);
  for (unsigned i = 0; i < 100; ++i) rate.take(client(i), at(std::chrono::milliseconds(i)));
  EXPECT_EQ(rate.clients(), 100U);
  rate.take(client(1000), at(1050ms));
  EXPECT_EQ(rate.clients(), 50U);
  rate.take(client(1000), at(10s));
  EXPECT_EQ(rate.clients(), 1U);
}

TEST(ConnectionRates, KeepABoundedNumberOfClients) {
  ConnectionRate rate(0.001);
  for (unsigned i = 0; i < 100'000; ++i) EXPECT_TRUE(rate.take(client(i), at(0s)));
  EXPECT_LE(rate.clients(), ConnectionRate::most_clients + 1);
  EXPECT_FALSE(rate.take(client(99'999), at(0s)));
  EXPECT_TRUE(rate.take(client(0), at(0s))) << "the least recent client is forgotten";
}

TEST(ConnectionRates, ARateOfZeroIsNoLimit) {
  ConnectionRate rate(0);
  EXPECT_EQ(taken(rate, client(1), at(0s)), 1000);
  EXPECT_EQ(rate.clients(), 0U);
}

}  // namespace
