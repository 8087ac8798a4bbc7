// SPDX-License-Identifier: MIT
#include "qxapi/escaped.h"

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(Escaped, EachLevelEscapesMore) {
  const struct {
    std::string text, controls, non_ascii, quotes;
  } cases[] = {
      {"", "", "", ""},
      {"plain text, as it is", "plain text, as it is", "plain text, as it is", "plain text, as it is"},
      {"a\nb\rc\td\n", "a\\nb\\rc\\td\\n", "a\\nb\\rc\\td\\n", "a\\nb\\rc\\td\\n"},
      {std::string("nul\0byte", 8), "nul\\x00byte", "nul\\x00byte", "nul\\x00byte"},
      {"\x1b[31m\x7f", "\\x1b[31m\\x7f", "\\x1b[31m\\x7f", "\\x1b[31m\\x7f"},
      {"\xc3\xa9", "\xc3\xa9", "\\xc3\\xa9", "\\xc3\\xa9"},
      {"say \"this\" \\", "say \"this\" \\", "say \"this\" \\", "say \\\"this\\\" \\\\"},
  };
  for (const auto &row : cases) {
    EXPECT_EQ(escaped(row.text), row.controls);
    EXPECT_EQ(escaped(row.text, Escaping::non_ascii), row.non_ascii);
    EXPECT_EQ(escaped(row.text, Escaping::quotes), row.quotes);
  }
}

TEST(Escaped, AnyCharacterHasItsNumber) {
  EXPECT_EQ(EscapedChar::number('\n').text(), "\\x0a");
  EXPECT_EQ(EscapedChar::number('A').text(), "\\x41");
  EXPECT_EQ(EscapedChar::number('\xff').text(), "\\xff");
}

TEST(Escaped, ControlCharactersCanBeReplaced) {
  EXPECT_EQ(without_controls(std::string_view("a\0\n\x1f b\x7f\x80\xff", 9), '?'), "a??? b?\x80\xff");
  EXPECT_EQ(without_controls("", ' '), "");
}

}  // namespace
