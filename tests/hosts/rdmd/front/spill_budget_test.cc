// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/spill_budget.h"

#include <unistd.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/front/moments.h"
#include "support/files.h"
#include "support/slices.h"

using namespace rdm;

namespace {

using rdmd::SpillBudget;
using support::client;

TEST(SpillBudgets, RefuseWhatExceedsTheLimitInAll) {
  SpillBudget budget(100, 0);
  SpillBudget::Share one = budget.open(client(1)), other = budget.open(client(2));
  EXPECT_TRUE(one.grow(60));
  EXPECT_FALSE(other.grow(41));
  EXPECT_TRUE(other.grow(40));
  EXPECT_FALSE(one.grow(1));
  EXPECT_TRUE(one.grow(0));
  EXPECT_EQ(budget.used(), 100);
}

TEST(SpillBudgets, RefuseWhatExceedsTheLimitOfAClient) {
  SpillBudget budget(100, 50);
  SpillBudget::Share one = budget.open(client(1)), more = budget.open(client(1)), other = budget.open(client(2));
  EXPECT_TRUE(one.grow(30));
  EXPECT_FALSE(more.grow(21));
  EXPECT_TRUE(more.grow(20));
  EXPECT_TRUE(other.grow(50));
  EXPECT_EQ(budget.clients(), 2U);
}

TEST(SpillBudgets, GetBackWhatAShareHadTaken) {
  SpillBudget budget(100, 100);
  {
    SpillBudget::Share share = budget.open(client(1));
    EXPECT_TRUE(share.grow(60));
    EXPECT_TRUE(share.grow(40));
    EXPECT_FALSE(share.grow(1));
  }
  EXPECT_EQ(budget.used(), 0);
  EXPECT_EQ(budget.clients(), 0U);
}

TEST(SpillBudgets, AMovedShareGivesBackOnce) {
  SpillBudget budget(100, 0);
  {
    SpillBudget::Share share = budget.open(client(1)), replaced = budget.open(client(2));
    EXPECT_TRUE(share.grow(60));
    EXPECT_TRUE(replaced.grow(40));
    SpillBudget::Share moved = std::move(share);
    EXPECT_EQ(budget.used(), 100);
    replaced = std::move(moved);
    EXPECT_FALSE(replaced.grow(100));
  }
  EXPECT_EQ(budget.used(), 0);
  EXPECT_EQ(budget.clients(), 0U);
}

TEST(SpillBudgets, AShareWithoutAKeyHasNoLimitOfAClient) {
  SpillBudget budget(100, 10);
  SpillBudget::Share share = budget.open(std::nullopt);
  EXPECT_TRUE(share.grow(100));
  EXPECT_FALSE(share.grow(1));
  EXPECT_EQ(budget.clients(), 0U);
}

TEST(SpillBudgets, AShareWithoutABudgetHasNoLimit) {
  SpillBudget::Share share;
  EXPECT_TRUE(share.grow(std::int64_t{1} << 60));
}

TEST(SpillBudgets, ALimitOfZeroIsNone) {
  SpillBudget budget(0, 0);
  SpillBudget::Share share = budget.open(client(1));
  EXPECT_TRUE(share.grow(std::int64_t{1} << 60));
  EXPECT_EQ(budget.used(), std::int64_t{1} << 60);
}

TEST(SpillBudgets, AreSharedByThreads) {
  SpillBudget budget(1000, 0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([&budget, i] {
      for (int j = 0; j < 1000; ++j) {
        SpillBudget::Share share = budget.open(client(i % 2));
        EXPECT_TRUE(share.grow(250));
      }
    });
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(budget.used(), 0);
  EXPECT_EQ(budget.clients(), 0U);
}

TEST(TemporaryBytes, AreThoseOfFilesWithoutAName) {
  const support::TemporaryDirectory directory;
  const std::string kept = directory.write("kept", "12345"), removed = directory.write("removed", "12345");
  const auto piece = [](const std::string &path, std::int64_t length) {
    return hosts::Piece{"", std::make_shared<const HostFileGuard>(host_open_read(path.c_str())), 0, length};
  };
  const std::vector<hosts::Piece> pieces = {
      {"bytes", nullptr, 0, 5}, piece(kept, 5), piece(removed, 3), piece(removed, 2)};
  EXPECT_EQ(rdmd::temporary_bytes(pieces), 0);
  ASSERT_EQ(::unlink(removed.c_str()), 0);
  EXPECT_EQ(rdmd::temporary_bytes(pieces), 5);
  EXPECT_EQ(rdmd::temporary_bytes({}), 0);
}

TEST(TemporaryBytes, SlicesTakeNoRoom) {
  const support::TemporaryDirectory directory;
  const support::SliceFiles files(directory.path("records"), "0123456789", {{5, 2, 0}});
  const std::vector<hosts::Piece> pieces = {{"", nullptr, 0, 2, hosts::RecordSlice::of(files.all())}};
  ASSERT_EQ(::unlink(files.path().c_str()), 0);
  EXPECT_EQ(rdmd::temporary_bytes(pieces), 0) << "nor if the database was replaced";
}

}  // namespace
