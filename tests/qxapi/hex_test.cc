// SPDX-License-Identifier: MIT
#include "qxapi/hex.h"

#include <cctype>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(Hex, DigitsHaveTheirValuesInEitherCase) {
  for (int c = -128; c < 256; ++c) {
    const bool is_digit = c >= 0 && c < 128 && std::isxdigit(c) != 0;
    const std::string text(1, static_cast<char>(c));
    EXPECT_EQ(hex::value_of(text[0]), is_digit ? std::strtol(text.c_str(), nullptr, 16) : -1) << c;
  }
  for (int value = 0; value < 16; ++value) EXPECT_EQ(hex::value_of(hex::digits[value]), value);
}

TEST(Hex, AnEscapeIsPercentAndTwoDigits) {
  const struct {
    const char *text;
    int byte;
  } cases[] = {
      {"%41", 'A'}, {"%7e rest", '~'}, {"%7E", '~'}, {"%00", 0},   {"%fF", 255}, {"", -1},     {"%", -1},
      {"%4", -1},   {"%4g", -1},       {"%g4", -1},  {"%%41", -1}, {"41", -1},   {"x%41", -1}, {"% 1", -1},
  };
  for (const auto &row : cases) EXPECT_EQ(hex::escaped_byte(row.text), row.byte) << row.text;
}

}  // namespace
