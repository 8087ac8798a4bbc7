// SPDX-License-Identifier: MIT
#include "qxapi/words.h"

#include <string_view>
#include <vector>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(Words, TrimmedTextsHaveNoBlanksAtTheirEnds) {
  const struct {
    std::string_view text, blanks, expected;
  } cases[] = {
      {"", " ", ""},         {"  ", " ", ""},         {"a", " ", "a"},
      {" a b ", " ", "a b"}, {"\ta\t", " ", "\ta\t"}, {" \t a \r", " \t\r", "a"},
  };
  for (const auto &row : cases) EXPECT_EQ(trim(row.text, row.blanks), row.expected) << row.text;
}

TEST(Words, AreSeparatedByTheGivenCharacters) {
  using List = std::vector<std::string_view>;
  EXPECT_EQ(words_of("", " "), List());
  EXPECT_EQ(words_of(" \t ", " \t"), List());
  EXPECT_EQ(words_of("one", " "), List({"one"}));
  EXPECT_EQ(words_of(" one  two\tthree,", " \t"), List({"one", "two", "three,"}));
  EXPECT_EQ(words_of("1,2;3", ",;"), List({"1", "2", "3"}));
}

}  // namespace
