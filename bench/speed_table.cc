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

/// show prints the rows of a section at once, because a large catalog takes long. Returns true if all are within their
/// limits.
bool show(const std::vector<Row> &rows) {
  std::cout << table_rows(rows) << std::flush;
  return std::all_of(rows.begin(), rows.end(), [](const Row &row) { return is_within(row).value_or(true); });
}

/// measure_catalog prints the table of a size. The section that changes the catalog is the last. Returns true if all
/// rows are within their limits.
bool measure_catalog(std::size_t records, const Options &options, Sizes &sizes) {
  const Stage stage(records, options);
  std::cout << table_head(count(records) + " RDs");
  bool good = show(reading_rows(stage, sizes));
  good = show(request_rows(stage, sizes)) && good;
  good = show(load_rows(stage)) && good;
  good = show(memory_rows(stage)) && good;
  good = show(change_rows(stage, sizes)) && good;
  std::cout << std::endl;
  return good;
}

bool measure(const Options &options) {
  use_all_files();
  Sizes sizes;
  bool good = true;
  for (const std::size_t records : options.records) good = measure_catalog(records, options, sizes) && good;
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
