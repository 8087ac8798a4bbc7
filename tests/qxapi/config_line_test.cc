// SPDX-License-Identifier: MIT
#include "qxapi/config_line.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

/// written_words returns the words of a line as "[NAME]" or "[NAME|VALUE]"; a value whose quote stays open ends with
/// "...".
std::string written_words(std::string_view line) {
  std::string text;
  while (const auto word = config_line::take_word(line)) {
    text += "[" + std::string(word->name);
    if (word->is_pair) text += "|" + std::string(word->value);
    text += word->is_closed ? "]" : "...]";
  }
  return text;
}

TEST(ConfigLine, IsWordsBetweenBlanks) {
  const struct {
    const char *line, *words;
  } cases[] = {
      {"", ""},
      {" \t\r\n", ""},
      {"a=1 b=2", "[a|1][b|2]"},
      {"\ta=1\r\n", "[a|1]"},
      {"a=\v1", "[a|\v1]"},
      {"a=", "[a|]"},
      {"a= b", "[a|][b]"},
      {"a b=1 c", "[a][b|1][c]"},
      {"=1", "[|1]"},
      {"=", "[|]"},
      {"a==1", "[a|=1]"},
      {"a=1=2", "[a|1=2]"},
      {"url=http://host:80/x?y=z", "[url|http://host:80/x?y=z]"},
      {"\"a b\"=1", "[\"a][b\"|1]"},
  };
  for (const auto &row : cases) EXPECT_EQ(written_words(row.line), row.words) << row.line;
}

TEST(ConfigLine, QuotesHoldBlanksTogether) {
  const struct {
    const char *line, *words;
  } cases[] = {
      {"a=\"b c\" d=1", "[a|b c][d|1]"}, {"a=\"\"", "[a|]"},  {"a=\"b\"c", "[a|b][c]"},  {"a=\"b\"c=1", "[a|b][c|1]"},
      {"a=b\"c d\"", "[a|b\"c][d\"]"},   {"a=\"", "[a|...]"}, {"a=\"b c", "[a|b c...]"}, {"=\"b", "[|b...]"},
  };
  for (const auto &row : cases) EXPECT_EQ(written_words(row.line), row.words) << row.line;
}

TEST(ConfigLine, ABackslashKeepsTheCharacterAfterItInTheValue) {
  const struct {
    const char *line, *words;
  } cases[] = {
      {R"(a=b\ c)", R"([a|b\ c])"},          {R"(a="b\"c" d=1)", R"([a|b\"c][d|1])"},
      {R"(a="b\\" d=1)", R"([a|b\\][d|1])"}, {R"(a="b\")", R"([a|b\"...])"},
      {R"(a="b\)", R"([a|b\...])"},          {R"(a=b\)", R"([a|b\])"},
      {R"(a\ b=1)", R"([a\][b|1])"},         {R"(a=\"b c")", R"([a|\"b][c"])"},
  };
  for (const auto &row : cases) EXPECT_EQ(written_words(row.line), row.words) << row.line;
}

TEST(ConfigLine, UnescapingDropsEachBackslashThatACharacterFollows) {
  const struct {
    std::string_view value, expected;
  } cases[] = {
      {"", ""},         {"plain", "plain"},     {R"(a\ b)", "a b"},
      {R"(\")", "\""},  {R"(a\\b)", R"(a\b)"},  {R"(\\\\)", R"(\\)"},
      {R"(a\n)", "an"}, {R"(end\)", R"(end\)"},
  };
  for (const auto &row : cases) {
    std::string out(row.value.size(), '?');
    out.resize(config_line::unescape(row.value, out.data()));
    EXPECT_EQ(out, row.expected) << row.value;
  }
}

}  // namespace
