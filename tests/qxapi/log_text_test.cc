// SPDX-License-Identifier: MIT
#include "qxapi/log_text.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(LogText, EscapesControlCharactersAlone) {
  const struct {
    std::string text, expected;
  } cases[] = {
      {"", ""},
      {"plain text, as it is", "plain text, as it is"},
      {"a\nb\rc\td\n", "a\\nb\\rc\\td\\n"},
      {"say \"this\" and back\\slash", "say \"this\" and back\\slash"},
      {std::string("nul\0byte", 8), "nul\\x00byte"},
      {"\x01\x1b[31m\x1f\x7f", "\\x01\\x1b[31m\\x1f\\x7f"},
      {"\xc3\xa9 \x80\xff", "\xc3\xa9 \x80\xff"},
  };
  for (const auto &row : cases) EXPECT_EQ(LogText(row.text).c_str(), row.expected);
}

TEST(LogText, EscapesOnce) {
  const LogText once("a\nb\\");
  EXPECT_STREQ(LogText(once.c_str()).c_str(), once.c_str());
}

TEST(LogText, IsCutToALineWithWholeEscapes) {
  EXPECT_EQ(LogText(std::string(10000, 'x')).c_str(), std::string(8191, 'x'));
  EXPECT_EQ(LogText(std::string(8188, 'x') + "\x01").c_str(), std::string(8188, 'x'));
  EXPECT_EQ(LogText(std::string(8187, 'x') + "\x01").c_str(), std::string(8187, 'x') + "\\x01");
}

TEST(LogText, IsCutInFrontOfAnEscapeThatDoesNotFit) {
  const struct {
    const char *text;
    std::size_t size;
    const char *expected;
  } cases[] = {
      {"abc", 3, "abc"},          {"abc", 2, "ab"},           {"abc", 0, ""},
      {"a\\x1bc", 5, "a\\x1b"},   {"a\\x1bc", 4, "a"},        {"a\\x1bc", 2, "a"},
      {"a\\nbc", 3, "a\\n"},      {"a\\nbc", 2, "a"},         {"a\\n\\n", 4, "a\\n"},
      {"\\x1b\\x1b", 4, "\\x1b"}, {"\\x1b\\x1b", 7, "\\x1b"},
  };
  for (const auto &row : cases) EXPECT_EQ(cut_text(row.text, row.size), row.expected) << row.text << ' ' << row.size;
}

}  // namespace
