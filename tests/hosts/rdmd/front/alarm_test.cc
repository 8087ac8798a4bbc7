// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/alarm.h"

#include <memory>

#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <gtest/gtest.h>

using namespace rdm;
using namespace std::chrono_literals;

namespace {

/// Sleeper has an alarm as a member, and counts its calls.
struct Sleeper {
  explicit Sleeper(const rdmd::io::Executor &strand) : alarm(strand) {}
  rdmd::Alarm alarm;
  int calls = 0;
};

class AlarmTest : public ::testing::Test {
 protected:
  void arm(rdmd::Duration time) {
    sleeper_->alarm.arm(time, sleeper_, [sleeper = sleeper_.get()] { ++sleeper->calls; });
  }
  /// run_for runs what is due within `time`.
  void run_for(std::chrono::milliseconds time) {
    context_.restart();
    context_.run_for(time);
  }

  boost::asio::io_context context_;
  std::shared_ptr<Sleeper> sleeper_ = std::make_shared<Sleeper>(rdmd::io::Executor(boost::asio::make_strand(context_)));
};

TEST_F(AlarmTest, CallsItsStepOnce) {
  arm(5ms);
  EXPECT_TRUE(sleeper_->alarm.is_armed());
  run_for(10s);
  EXPECT_EQ(sleeper_->calls, 1);
  EXPECT_FALSE(sleeper_->alarm.is_armed());
}

TEST_F(AlarmTest, SetLaterDoesNotCallAtTheFormerTime) {
  arm(5ms);
  arm(10min);
  run_for(100ms);
  EXPECT_EQ(sleeper_->calls, 0);
  EXPECT_TRUE(sleeper_->alarm.is_armed());
}

TEST_F(AlarmTest, SetLaterCallsAtTheLaterTime) {
  const auto begun = std::chrono::steady_clock::now();
  arm(5ms);
  arm(60ms);
  run_for(10s);
  EXPECT_EQ(sleeper_->calls, 1);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 60ms);
}

TEST_F(AlarmTest, SetEarlierCallsAtTheEarlierTime) {
  arm(10min);
  arm(5ms);
  run_for(10s);
  EXPECT_EQ(sleeper_->calls, 1);
}

TEST_F(AlarmTest, DisarmedCallsNothing) {
  arm(5ms);
  sleeper_->alarm.disarm();
  run_for(10s);
  EXPECT_EQ(sleeper_->calls, 0);
}

TEST_F(AlarmTest, DisarmedAndSetAgainDuringItsFormerWaitCalls) {
  arm(5ms);
  sleeper_->alarm.disarm();
  arm(10ms);
  run_for(10s);
  EXPECT_EQ(sleeper_->calls, 1);
}

TEST_F(AlarmTest, KeepsItsOwnerUntilItsStep) {
  arm(5ms);
  const std::weak_ptr<Sleeper> owner = std::exchange(sleeper_, nullptr);
  EXPECT_FALSE(owner.expired());
  run_for(10s);
  EXPECT_TRUE(owner.expired());
}

TEST_F(AlarmTest, DisarmedLetsItsOwnerGo) {
  arm(10min);
  sleeper_->alarm.disarm();
  const std::weak_ptr<Sleeper> owner = std::exchange(sleeper_, nullptr);
  EXPECT_TRUE(owner.expired());
  run_for(100ms);
}

TEST_F(AlarmTest, LetsItsOwnerGoWithTheContext) {
  std::weak_ptr<Sleeper> owner;
  {
    boost::asio::io_context context;
    auto sleeper = std::make_shared<Sleeper>(rdmd::io::Executor(boost::asio::make_strand(context)));
    sleeper->alarm.arm(10min, sleeper, [] {});
    owner = sleeper;
  }
  EXPECT_TRUE(owner.expired());
}

}  // namespace
