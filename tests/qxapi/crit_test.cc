// SPDX-License-Identifier: MIT
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "qxapi/guard.h"

using namespace rdm;

namespace {

host_crit *section() {
  static host_crit *const shared = qxapi_posix_host()->crit_create();  // sections live as long as the process
  return shared;
}

TEST(CriticalSection, HoldsOneThreadAtATime) {
  ASSERT_NE(section(), nullptr);
  long counter = 0;  // not atomic: the section orders the threads
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 10000; ++i) {
        const CritGuard inside(section());
        ++counter;
      }
    });
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(counter, 80000);
}

TEST(CriticalSection, EnteringWaitsForTheExit) {
  std::atomic<bool> entered = false;
  host_crit_enter(section());
  std::thread second([&] {
    host_crit_enter(section());
    entered = true;
    host_crit_exit(section());
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(entered);
  host_crit_exit(section());
  second.join();
  EXPECT_TRUE(entered);
}

void print(void *text) { std::fprintf(stderr, "%s.", static_cast<const char *>(text)); }

char first[] = "first", second[] = "second", third[] = "third", late[] = "late";

void print_and_register(void *text) {
  print(text);
  host_register_exit(print, late);
}

TEST(RegisterExitDeathTest, FunctionsRunInTheOrderOfRegistration) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        for (char *text : {first, second, third}) host_register_exit(print, text);
        std::exit(3);
      },
      ::testing::ExitedWithCode(3), "^first\\.second\\.third\\.$");
}

TEST(RegisterExitDeathTest, FunctionsRegisteredAtExitRunToo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        host_register_exit(print_and_register, first);
        host_register_exit(print, second);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "^first\\.second\\.late\\.$");
  EXPECT_EXIT(
      {
        host_register_exit(print, second);
        host_register_exit(print_and_register, first);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "^second\\.first\\.late\\.$");
}

TEST(RegisterExitDeathTest, NothingRunsWithoutAnOrderlyExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        host_register_exit(print, first);
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "^$");
}

}  // namespace
