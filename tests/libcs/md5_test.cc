// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/cs.h>

namespace {

struct Row {
  std::string data;
  const char *digest;
};

constexpr char nothing[] = "d41d8cd98f00b204e9800998ecf8427e";

/// The examples of RFC 1321, and lengths around the 64-byte block.
std::vector<Row> rows() {
  return {
      {"", nothing},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
      {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
      {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
      {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
      {std::string(1000, 'x'), "398533d48111e9f664b1f64cb10c4b63"},
      {std::string("a\0b\xff\n", 5), "5d668aed7d2adca9095b3ba50c34881a"},
  };
}

std::string hexadecimal(const unsigned char *bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < 16; ++i) text += {digits[bytes[i] >> 4], digits[bytes[i] & 15]};
  return text;
}

TEST(Md5, StoresTheSixteenBytesOfTheDigest) {
  for (const Row &row : rows()) {
    unsigned char out[18];
    std::memset(out, '?', sizeof out);
    EXPECT_EQ(cs_mem2md5(row.data.data(), static_cast<int32_t>(row.data.size()), out + 1), out + 1);
    EXPECT_EQ(hexadecimal(out + 1), row.digest);
    EXPECT_EQ(out[0], '?');
    EXPECT_EQ(out[17], '?');
  }
}

TEST(Md5, WritesThirtyTwoDigitsAndReturnsTheLengthOfTheLastByte) {
  for (const Row &row : rows()) {
    char out[34];
    std::memset(out, '?', sizeof out);
    EXPECT_EQ(cs_mem2md5str(row.data.data(), static_cast<int32_t>(row.data.size()), out), 2);
    EXPECT_STREQ(out, row.digest);
    EXPECT_EQ(std::strlen(out), 32u);
    EXPECT_EQ(out[33], '?');
  }
}

TEST(Md5, ALengthBelowOneIsTheDigestOfNothing) {
  for (const int32_t length : {0, -1, INT32_MIN}) {
    char text[33];
    unsigned char bytes[16];
    cs_mem2md5str(nullptr, length, text);
    EXPECT_STREQ(text, nothing);
    cs_mem2md5(nullptr, length, bytes);
    EXPECT_EQ(hexadecimal(bytes), nothing);
  }
}

}  // namespace
