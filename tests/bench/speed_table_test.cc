// SPDX-License-Identifier: MIT
#include <regex>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/process.h"

using namespace rdm;

namespace {

/// without_figures replaces what differs from run to run, and between machines with other peers.
std::string without_figures(const std::string &table) {
  std::string text;
  const std::regex row(R"(\| ([^|]*) \| [^|]+\|[^|]*\|[^|]*\|[^|]*\| ?([^|]*)\|[^|]*\|\n)");
  std::regex_replace(std::back_inserter(text), table.begin(), table.end(), row, "$1: $2\n");
  return text;
}

TEST(SpeedTable, MeasuresASmallCatalogOnce) {
  const auto finished =
      support::run({support::in_build("bench/speed_table"), "--records", "200", "--rounds", "1", "--readers", "5"});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.errors, "");
  EXPECT_EQ(without_figures(finished.out),
            "### 200 RDs\n"
            "\n"
            "| | measured | x raw | x nginx | x slapd | limit | within |\n"
            "|---|---|---|---|---|---|---|\n"
            "whole harvest, first after a change: at most 0.5 x raw \n"
            "whole harvest, unchanged: at most 0.25 x raw, at most 1.3 x nginx \n"
            "since, newest 1 %, first after a change: at most 1.1 x raw \n"
            "since, newest 1 %, unchanged: at most 0.5 x raw \n"
            "one attribute of twelve, first after a change: at most 0.35 x raw \n"
            "one attribute of twelve, unchanged: at most 0.25 x raw \n"
            "eight clients at once, an answer: at most 0.3 x raw \n"
            "one RD, rate: at least 0.75 of status \n"
            "status, rate: \n"
            "status, CPU a request: at most 20 us, at most 1.2 x nginx \n"
            "status, allocations a request: at most 40 \n"
            "status, two workers, rate: \n"
            "status, two workers, CPU a request: \n"
            "load + index, one delivery: at most 0.6 x slapd \n"
            "load + index, system calls a record: at most 2 \n"
            "memory of harvests over idle: at most 16 MiB \n"
            "5 stalled readers of a harvest, files: less than 1 MiB \n"
            "5 stalled readers of a harvest, memory each: at most 64 KiB \n"
            "update of 2: at most 1.3 x (cp + sync) \n"
            "first status after a change: \n"
            "first single RD after a change: \n"
            "\n");
}

TEST(SpeedTable, FailsForAMistakeInTheCommandLine) {
  const auto finished = support::run({support::in_build("bench/speed_table"), "--round", "1"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_THAT(finished.errors,
              testing::StartsWith("speed_table: unknown option \"--round\" (did you mean \"--rounds\"?)"));
}

}  // namespace
