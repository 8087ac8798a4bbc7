// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/service_thread.h"

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using rdmd::ServiceThread;
using namespace std::chrono_literals;

TEST(Service, RunsJobsInOrderOnOneThreadOfItsOwn) {
  ServiceThread service;
  std::vector<int> order;
  std::vector<std::thread::id> threads;
  std::promise<void> done;
  for (int i = 0; i < 100; ++i)
    service.post([&, i] {
      order.push_back(i);
      threads.push_back(std::this_thread::get_id());
      if (i == 99) done.set_value();
    });
  done.get_future().wait();
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
    EXPECT_EQ(threads[static_cast<std::size_t>(i)], threads[0]);
  }
  EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(Service, StoppingWaitsForTheRunningJobAndDropsTheOthers) {
  ServiceThread service;
  std::promise<void> begun;
  std::atomic<int> ran = 0;
  service.post([&] {
    begun.set_value();
    std::this_thread::sleep_for(50ms);
    ++ran;
  });
  service.post([&] { ran += 100; });
  begun.get_future().wait();
  EXPECT_TRUE(service.stop(60s));
  EXPECT_EQ(ran, 1);
  service.post([&] { ran += 1000; });
  EXPECT_TRUE(service.stop(0s));
  EXPECT_EQ(ran, 1);
}

TEST(Service, StoppingSaysWhenAJobDoesNotReturn) {
  std::promise<void> begun, release;
  ServiceThread service;
  service.post([&, released = release.get_future().share()] {
    begun.set_value();
    released.wait();
  });
  begun.get_future().wait();
  EXPECT_FALSE(service.stop(20ms));
  release.set_value();
  EXPECT_TRUE(service.stop(60s));
}

TEST(Service, AJobThatThrowsCostsItselfAlone) {
  // Regression: bad_alloc in one job ended the server with all its connections.
  ServiceThread service;
  const auto held = std::make_shared<int>();
  std::promise<bool> next;
  service.post([held] { throw std::bad_alloc(); });
  service.post([&] { next.set_value(held.use_count() == 1); });
  EXPECT_TRUE(next.get_future().get()) << "what it held is still held";
}

TEST(Service, EndsWithoutAnyJob) { const ServiceThread service; }

}  // namespace
