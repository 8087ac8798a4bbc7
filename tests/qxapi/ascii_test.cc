// SPDX-License-Identifier: MIT
#include "qxapi/ascii.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(Ascii, ClassesMatchTheCLocale) {
  for (int c = 0; c < 256; ++c) {
    EXPECT_EQ(ascii::is_space(c), std::isspace(c) != 0) << c;
    EXPECT_EQ(ascii::is_digit(c), std::isdigit(c) != 0) << c;
    EXPECT_EQ(ascii::is_upper(c), std::isupper(c) != 0) << c;
    EXPECT_EQ(ascii::is_lower(c), std::islower(c) != 0) << c;
    EXPECT_EQ(ascii::is_alpha(c), std::isalpha(c) != 0) << c;
    EXPECT_EQ(static_cast<unsigned char>(ascii::lower(static_cast<char>(c))), std::tolower(c)) << c;
  }
}

TEST(Ascii, BytesAbove127BelongToNoClass) {
  for (int c = -128; c < 0; ++c) EXPECT_FALSE(ascii::is_space(c) || ascii::is_digit(c) || ascii::is_alpha(c)) << c;
}

struct CompareCase {
  const char *a, *b;
  bool equal, prefix;
};

TEST(Ascii, ComparesWithoutLetterCase) {
  const CompareCase cases[] = {
      {"", "", true, true},           {"abc", "ABC", true, true},     {"abc", "ab", false, true},
      {"ab", "abc", false, false},    {"abc", "", false, true},       {"abc", "abd", false, false},
      {"[", "{", false, false},       {"@", "`", false, false},       {"a_b", "A_B", true, true},
      {"\xC4", "\xE4", false, false}, {"name-1", "NAME", false, true}};
  for (const CompareCase &test : cases) {
    EXPECT_EQ(ascii::iequals(test.a, test.b), test.equal) << test.a << " " << test.b;
    EXPECT_EQ(ascii::istarts_with(test.a, test.b), test.prefix) << test.a << " " << test.b;
  }
}

int sign(int n) { return std::clamp(n, -1, 1); }

TEST(Ascii, OrdersAsStrcasecmpDoes) {
  const char *const words[] = {"", "a", "A", "ab", "aB", "abc", "B", "_", "[", "@", "Z", "z", "\xC4", "\xE4", "1"};
  for (const char *a : words)
    for (const char *b : words) EXPECT_EQ(sign(ascii::icompare(a, b)), sign(::strcasecmp(a, b))) << a << " " << b;
}

TEST(Ascii, ReadsNumbersAsAtoiDoesWithinTheirRange) {
  const std::pair<const char *, int32_t> cases[] = {{"", 0},
                                                    {"0", 0},
                                                    {"42", 42},
                                                    {" \t\r\n\v\f7", 7},
                                                    {"+7", 7},
                                                    {"-7", -7},
                                                    {"- 7", 0},
                                                    {"--7", 0},
                                                    {"+-7", 0},
                                                    {"12ab", 12},
                                                    {"12 34", 12},
                                                    {"ab12", 0},
                                                    {"0x10", 0},
                                                    {"007", 7},
                                                    {"2147483647", INT32_MAX},
                                                    {"2147483648", INT32_MAX},
                                                    {"-2147483647", -INT32_MAX},
                                                    {"-2147483648", INT32_MIN},
                                                    {"-2147483649", INT32_MIN},
                                                    {"99999999999999999999999", INT32_MAX},
                                                    {"-99999999999999999999999", INT32_MIN}};
  for (const auto &[text, number] : cases) EXPECT_EQ(ascii::to_int32(text), number) << text;
}

}  // namespace
