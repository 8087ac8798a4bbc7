// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_id.h"

#include <array>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

constexpr char digits[] = "0123456789abcdefghjkmnpqrstvwxyz";

std::string new_id() {
  std::string id;
  rdmd::renew_request_id(id);
  return id;
}

TEST(RequestId, HasTwentySixDigits) {
  for (int i = 0; i < 100; ++i) {
    const std::string id = new_id();
    EXPECT_EQ(id.size(), 26u);
    EXPECT_EQ(id.find_first_not_of(digits), std::string::npos) << id;
  }
}

TEST(RequestId, IsNeverRepeatedOnAnyThread) {
  constexpr int count = 5000;
  std::array<std::set<std::string>, 4> ids;
  {
    std::array<std::jthread, 4> threads;
    for (std::size_t i = 0; i < ids.size(); ++i)
      threads[i] = std::jthread([&mine = ids[i]] {
        for (int n = 0; n < count; ++n) mine.insert(new_id());
      });
  }
  std::set<std::string> all;
  for (const auto &mine : ids) all.insert(mine.begin(), mine.end());
  EXPECT_EQ(all.size(), ids.size() * count);
}

/// Each of the 26 digits takes all 32 values equally often: a value misses 4000 draws with a probability of e^-127.
TEST(RequestId, UsesAllDigitsAtEveryPlace) {
  std::array<std::set<char>, rdmd::request_id_length> seen;
  for (int n = 0; n < 4000; ++n) {
    const std::string id = new_id();
    for (std::size_t place = 0; place < seen.size(); ++place) seen[place].insert(id[place]);
  }
  for (const auto &values : seen) EXPECT_EQ(values.size(), 32u);
}

}  // namespace
