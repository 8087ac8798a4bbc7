// SPDX-License-Identifier: MIT
#include "qxapi/sip_hash.h"

#include <string>
#include <utility>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

/// The vectors that implementations of SipHash-1-3 share: key and text are the bytes 0, 1, 2, ...
TEST(SipHash, GivesThePublishedHashes) {
  const SipKey key{0x0706050403020100, 0x0f0e0d0c0b0a0908};
  const std::pair<size_t, uint64_t> vectors[] = {
      {0, 0xabac0158050fc4dc}, {1, 0xc9f49bf37d57ca93}, {2, 0x82cb9b024dc7d44d}, {7, 0xd3927d989bb11140},
      {8, 0x369095118d299a8e}, {9, 0x25a48eb36c063de4}, {15, 0xd320d86d2a519956}};
  for (const auto &[length, hash] : vectors) {
    std::string text;
    while (text.size() < length) text.push_back(static_cast<char>(text.size()));
    EXPECT_EQ(sip_hash(key, text), hash) << length;
  }
}

TEST(SipHash, DependsOnTheKey) {
  EXPECT_NE(sip_hash({1, 2}, "text"), sip_hash({1, 3}, "text"));
  EXPECT_NE(sip_hash({1, 2}, "text"), sip_hash({2, 2}, "text"));
}

TEST(SipHash, TheKeyOfAProcessStays) {
  const SipKey one = process_sip_key(), other = process_sip_key();
  EXPECT_EQ(one.low, other.low);
  EXPECT_EQ(one.high, other.high);
  EXPECT_NE(one.low | one.high, 0u) << "the system has random bytes";
}

}  // namespace
