// SPDX-License-Identifier: MIT
#include "speed/options.h"

#include <sstream>

#include <gtest/gtest.h>

#include "cli/command_line.h"

using namespace rdm;
using namespace rdm::bench;

namespace {

std::optional<Options> parse(std::vector<std::string> words) {
  std::vector<char *> argv;
  for (std::string &word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  std::ostringstream out;
  return parse_options(static_cast<int>(words.size()), argv.data(), out);
}

TEST(SpeedTableOptions, MeasureAllRowsOfOneCatalogByDefault) {
  const Options options = *parse({"speed_table"});
  EXPECT_EQ(options.records, std::vector<std::size_t>{20'000});
  EXPECT_EQ(options.rounds, 9);
  for (const char *row : row_names) EXPECT_TRUE(options.wants(row)) << row;
  EXPECT_FALSE(options.check);
}

TEST(SpeedTableOptions, ChooseSizesAndRows) {
  const Options options = *parse({"speed_table", "--records", "1000,20000", "--rows=load,status", "--check"});
  EXPECT_EQ(options.records, (std::vector<std::size_t>{1000, 20'000}));
  EXPECT_TRUE(options.wants("load"));
  EXPECT_FALSE(options.wants("harvest"));
  EXPECT_TRUE(options.check);
}

TEST(SpeedTableOptions, RefuseOtherRowsAndCatalogsOfLessThan200) {
  EXPECT_THROW(parse({"speed_table", "--rows", "speed"}), cli::Misuse);
  EXPECT_THROW(parse({"speed_table", "--records", "199"}), cli::Misuse);
  EXPECT_THROW(parse({"speed_table", "20000"}), cli::Misuse);
}

TEST(SpeedTableOptions, HelpMeasuresNothing) { EXPECT_EQ(parse({"speed_table", "--help"}), std::nullopt); }

}  // namespace
