// SPDX-License-Identifier: MIT
#include "hosts/common/log_text.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(LogText, CannotEndALineOrAQuotedField) {
  const struct {
    std::string text;
    const char *expected;
  } cases[] = {
      {"", ""},
      {"plain text, as it is", "plain text, as it is"},
      {"one newline at the end is left out\n", "one newline at the end is left out"},
      {"only one\n\n", "only one\\n"},
      {"a\nb\rc\td", "a\\nb\\rc\\td"},
      {"say \"this\"", "say \\\"this\\\""},
      {"back\\slash", "back\\\\slash"},
      {std::string("nul\0byte", 8), "nul\\x00byte"},
      {"\x1b[31m\x7f", "\\x1b[31m\\x7f"},
      {"\xc3\xa9", "\\xc3\\xa9"},
  };
  for (const auto &row : cases) EXPECT_EQ(hosts::log_text(row.text, Escaping::quotes), row.expected);
}

TEST(LogText, LeavesQuotesOutsideOfFields) {
  const std::string text = "a \"b\" \\c\n\td\xc3\xa9\n";
  EXPECT_EQ(hosts::log_text(text, Escaping::non_ascii), "a \"b\" \\c\\n\\td\\xc3\\xa9");
  EXPECT_EQ(hosts::log_text(text, Escaping::controls), "a \"b\" \\c\\n\\td\xc3\xa9");
}

}  // namespace
