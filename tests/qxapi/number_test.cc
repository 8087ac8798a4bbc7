// SPDX-License-Identifier: MIT
#include "qxapi/number.h"

#include <cstdint>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(Number, TakesUpTheWholeText) {
  for (const char *text : {"", " ", "x", " 1", "1 ", "+1", "1.", "1e3", "0x10", "-", "--1", "1-"})
    EXPECT_EQ(parse_number<int64_t>(text), std::nullopt) << text;
  EXPECT_EQ(parse_number<int64_t>("12"), 12);
  EXPECT_EQ(parse_number<int64_t>("0000000000000000000000012"), 12);
  EXPECT_EQ(parse_number<int64_t>({}), std::nullopt);
}

TEST(Number, OnlySignedTypesTakeASign) {
  EXPECT_EQ(parse_number<int64_t>("-12"), -12);
  EXPECT_EQ(parse_number<uint32_t>("-12"), std::nullopt);
  EXPECT_EQ(parse_number<uint32_t>("-0"), std::nullopt);
}

TEST(Number, FitsItsType) {
  EXPECT_EQ(parse_number<uint32_t>("4294967295"), 4294967295u);
  EXPECT_EQ(parse_number<uint32_t>("4294967296"), std::nullopt);
  EXPECT_EQ(parse_number<uint16_t>("65535"), 65535);
  EXPECT_EQ(parse_number<uint16_t>("65536"), std::nullopt);
  EXPECT_EQ(parse_number<int64_t>("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(parse_number<int64_t>("9223372036854775808"), std::nullopt);
}

TEST(Number, MayHaveAnotherBase) {
  EXPECT_EQ(parse_number<uint32_t>("00fF", 16), 255u);
  EXPECT_EQ(parse_number<uint32_t>("0x1", 16), std::nullopt);
  EXPECT_EQ(parse_number<uint32_t>("fg", 16), std::nullopt);
}

}  // namespace
