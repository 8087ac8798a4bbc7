// SPDX-License-Identifier: MIT
#include "cli/similar.h"

#include <ctime>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(Similar, CountsTheLettersThatDiffer) {
  const struct {
    const char *a, *b;
    size_t distance;
  } rows[] = {
      {"", "", 0},           {"", "abc", 3},           {"abc", "", 3},     {"abc", "abc", 0}, {"ABC", "abc", 0},
      {"abc", "acb", 1},     {"abc", "ab", 1},         {"abc", "abcd", 1}, {"abc", "axc", 1}, {"abcd", "badc", 2},
      {"index", "idnex", 1}, {"kitten", "sitting", 3}, {"ca", "abc", 3},
  };
  for (const auto &row : rows) EXPECT_EQ(cli::distance(row.a, row.b), row.distance) << row.a << ' ' << row.b;
}

TEST(Similar, NamesTheNearestKnownWord) {
  const std::vector<std::string> verbs{"update", "expire", "export", "get", "list", "delete"};
  const struct {
    const char *word, *meant;
  } rows[] = {
      {"updaet", "update"},
      {"exprot", "export"},
      {"UPDATE", "update"},
      {"expor", "export"},
      {"lst", "list"},
      {"gte", "get"},
      {"explode", ""},
      {"l", ""},
      {"", ""},
      {"remove", ""},
  };
  for (const auto &row : rows) EXPECT_EQ(cli::nearest(row.word, verbs), row.meant) << row.word;
}

TEST(Similar, TakesTheFirstOfEquallyNearWords) {
  const char *const words[] = {"--cold", "--bold"};
  EXPECT_EQ(cli::nearest("--fold", words), "--cold");
}

TEST(Similar, WordsTheGuessAsAQuestion) {
  const std::string_view keys[] = {"catalog-database", "alias-file"};
  EXPECT_EQ(cli::did_you_mean("catalog-databse", keys), " (did you mean \"catalog-database\"?)");
  EXPECT_EQ(cli::did_you_mean("colour", keys), "");
}

// A line of a configuration file may hold a word of any length; a comparison takes time for its letters squared.
TEST(Similar, ALongWordIsNotCompared) {
  std::string word;
  word.resize(10'000'000, 'x');
  const std::string_view keys[] = {"catalog-database"};
  const std::clock_t start = std::clock();
  EXPECT_EQ(cli::nearest(word, keys), "");
  EXPECT_LT(std::clock() - start, 5 * CLOCKS_PER_SEC);
}

}  // namespace
