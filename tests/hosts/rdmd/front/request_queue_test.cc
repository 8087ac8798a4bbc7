// SPDX-License-Identifier: MIT
/// The order in which waiting requests are served.

#include "hosts/rdmd/front/request_queue.h"

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include <gtest/gtest.h>

using namespace rdm::rdmd;
using namespace std::chrono_literals;

namespace {

class RequestQueueTest : public ::testing::Test {
 protected:
  /// push queues a job named by its body. Returns true if there was room.
  bool push(const std::string &name, const std::string &client = "192.0.2.1", bool prompt = true) {
    auto job = std::make_unique<Job>();
    job->request.body = name;
    job->client = *ClientKey::parse(client);
    job->prompt = prompt;
    job->queued_at = now_ += 1s;
    job->wanted = [this, name] { return gone_.find(name) == std::string::npos; };
    return queue_.push(std::move(job)) == nullptr;
  }
  bool push_harvest(const std::string &name, const std::string &client = "192.0.2.1") {
    return push(name, client, false);
  }

  /// order pops all jobs and returns their names.
  std::string order(bool harvests = true) {
    std::string names;
    while (const JobPtr job = queue_.pop(harvests)) names += job->request.body;
    return names;
  }

  static std::string names_of(const std::vector<JobPtr> &jobs) {
    std::string names;
    for (const JobPtr &job : jobs) names += job->request.body;
    return names;
  }

  RequestQueue queue_{20};
  std::string gone_;
  io::Clock::time_point now_{};
};

using RequestQueue = RequestQueueTest;

TEST_F(RequestQueue, ServesAClientInOrder) {
  for (const char *name : {"a", "b", "c"}) push(name);
  EXPECT_EQ(order(), "abc");
}

TEST_F(RequestQueue, ClientsTakeTurns) {
  for (const char *name : {"a", "b", "c", "d"}) push(name, "192.0.2.1");
  push("x", "192.0.2.2");
  push("y", "192.0.2.2");
  EXPECT_EQ(order(), "axbycd");
}

TEST_F(RequestQueue, AClientWithManyConnectionsGetsNoMoreTurnsThanOneThatComesLater) {
  for (const char *name : {"a", "b", "c"}) push(name, "192.0.2.1");
  EXPECT_EQ(queue_.pop(true)->request.body, "a");
  push("x", "192.0.2.2");
  EXPECT_EQ(order(), "bxc");
}

TEST_F(RequestQueue, AddressesOfOneIpv6NetworkAreOneClient) {
  push("a", "2001:db8::1");
  push("b", "2001:db8::2");
  push("x", "2001:db8:1::1");
  EXPECT_EQ(order(), "axb");
}

TEST_F(RequestQueue, PromptRequestsOvertakeHarvestsWithinALimit) {
  push_harvest("H");
  push_harvest("I");
  for (int i = 0; i < 18; ++i) push("p");
  EXPECT_EQ(order(), "ppppppppHppppppppIpp");
}

TEST_F(RequestQueue, HarvestsWaitWhileTheyMayNotBeServed) {
  push_harvest("H");
  for (int i = 0; i < 12; ++i) push("p");
  EXPECT_EQ(order(false), "pppppppppppp");
  EXPECT_EQ(queue_.size(), 1u);
  push("p");
  EXPECT_EQ(order(), "pH");
}

TEST_F(RequestQueue, RefusesJobsBeyondItsLimit) {
  for (int i = 0; i < 20; ++i) EXPECT_TRUE(push("p"));
  EXPECT_FALSE(push("q"));
  queue_.pop(true);
  EXPECT_TRUE(push("r"));
}

TEST_F(RequestQueue, JobsAheadOfItCountTowardsItsLimit) {
  auto job = std::make_unique<Job>();
  EXPECT_TRUE(queue_.push(std::move(job), 20));
  push("a");
  EXPECT_FALSE(queue_.push(std::make_unique<Job>(), 18));
}

TEST_F(RequestQueue, WhatIsPutBackComesBeforeTheOthersOfItsClientAndFitsAlways) {
  for (int i = 0; i < 20; ++i) push(std::string(1, static_cast<char>('a' + i)));
  JobPtr job = queue_.pop(true);
  push("z");
  queue_.put_back(std::move(job));
  EXPECT_EQ(queue_.size(), 21u);
  EXPECT_EQ(order(), "abcdefghijklmnopqrstz");
}

TEST_F(RequestQueue, WhatIsPutBackIsAsOldAsBefore) {
  push("a", "192.0.2.1");
  push("b", "192.0.2.2");
  push("c", "192.0.2.2");
  JobPtr a = queue_.pop(true), b = queue_.pop(true);
  queue_.put_back(std::move(b));
  queue_.put_back(std::move(a));
  EXPECT_EQ(names_of(queue_.take_older(io::Clock::time_point(3s))), "ab");
}

TEST_F(RequestQueue, GivesUpWhatIsTooOld) {
  push("a", "192.0.2.1");
  push_harvest("B", "192.0.2.2");
  push("c", "192.0.2.1");
  EXPECT_EQ(names_of(queue_.take_older(io::Clock::time_point(1s))), "");
  EXPECT_EQ(names_of(queue_.take_older(io::Clock::time_point(3s))), "aB");
  EXPECT_EQ(queue_.size(), 1u);
  EXPECT_EQ(order(), "c");
}

TEST_F(RequestQueue, GivesUpWhatHasNoClientAnyMore) {
  for (const char *name : {"a", "b", "c", "d"}) push(name);
  gone_ = "bd";
  EXPECT_EQ(names_of(queue_.take_unwanted()), "bd");
  EXPECT_EQ(order(), "ac");
}

TEST_F(RequestQueue, GivesUpEverything) {
  push("a");
  push_harvest("B");
  EXPECT_EQ(names_of(queue_.take_all()), "aB");
  EXPECT_TRUE(queue_.empty());
}

TEST_F(RequestQueue, DestroysWhatIsLeft) {
  push("a");
  push_harvest("B");
}

}  // namespace
