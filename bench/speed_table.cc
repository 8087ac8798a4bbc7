// SPDX-License-Identifier: MIT
/// The table of speed: what harvests, small requests and changes of a catalog cost, beside a process that reads every
/// record with the hash library ("raw") and, where they are installed, beside nginx with the same bytes in files and
/// slapd with the same descriptions. Medians of rounds in which all take turns; compare ratios, because the machine and
/// its other work change the rest.
///
/// Usage: speed_table [--records N,...] [--rounds N] [--rows NAME,...] [--workers N] [--readers N] [--check]
#include <algorithm>
#include <exception>
#include <iostream>

#include <gtest/gtest.h>

#include "cli/command_line.h"
#include "speed/options.h"
#include "speed/sections.h"

using namespace rdm;
using namespace rdm::bench;

namespace {

void append(std::vector<Row> &all, std::vector<Row> rows) {
  for (Row &row : rows) all.push_back(std::move(row));
}

/// rows_of measures a catalog of this size. The section that changes the catalog is the last.
std::vector<Row> rows_of(std::size_t records, const Options &options, Sizes &sizes) {
  const Stage stage(records, options);
  std::vector<Row> all;
  append(all, reading_rows(stage, sizes));
  append(all, request_rows(stage, sizes));
  append(all, load_rows(stage));
  append(all, memory_rows(stage));
  append(all, change_rows(stage, sizes));
  return all;
}

bool all_within(const std::vector<Row> &rows) {
  return std::all_of(rows.begin(), rows.end(), [](const Row &row) { return is_within(row).value_or(true); });
}

bool measure(const Options &options) {
  use_all_files();
  Sizes sizes;
  bool good = true;
  for (const std::size_t records : options.records) {
    const std::vector<Row> rows = rows_of(records, options, sizes);
    std::cout << markdown(count(records) + " RDs", rows) << std::endl;
    good = good && all_within(rows);
  }
  return good || !options.check;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest();
  try {
    const std::optional<Options> options = parse_options(argc, argv, std::cout);
    return !options || measure(*options) ? 0 : 1;
  } catch (const cli::Misuse &mistake) {
    std::cerr << "speed_table: " << mistake.what() << '\n';
    return cli::exit_misuse;
  } catch (const std::exception &error) {
    std::cerr << "speed_table: " << error.what() << '\n';
    return 1;
  }
}
