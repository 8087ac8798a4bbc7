// SPDX-License-Identifier: MIT
/// The command line of speed_table.
#ifndef BENCH_SPEED_OPTIONS_H
#define BENCH_SPEED_OPTIONS_H

#include <array>
#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace rdm::bench {

/// The groups of rows, in the order of the table.
inline constexpr std::array row_names{"harvest", "eight",  "since",   "attribute", "one",   "status",
                                      "load",    "memory", "stalled", "update",    "change"};

struct Options {
  std::vector<std::size_t> records{20'000};
  unsigned rounds = 9;
  std::vector<std::string> rows{row_names.begin(), row_names.end()};
  std::string workers = "0";
  std::size_t readers = 500;
  bool check = false;

  /// wants returns true if the table shall have these rows.
  bool wants(std::string_view row) const;
};

/// parse_options returns nothing if the command line asked for help or the version, which are then written to `out`.
/// Throws cli::Misuse for a mistake.
std::optional<Options> parse_options(int argc, char **argv, std::ostream &out);

}  // namespace rdm::bench

#endif
