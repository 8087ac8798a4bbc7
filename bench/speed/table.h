// SPDX-License-Identifier: MIT
/// The table of speed as Markdown: its rows, their limits, and numbers as text.
#ifndef BENCH_SPEED_TABLE_H
#define BENCH_SPEED_TABLE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace rdm::bench {

/// Limit is one condition of a row. Without a value of `within`, what it compares with was not measured.
struct Limit {
  std::string text;
  std::optional<bool> within;
};

/// at_most and at_least return the limit `limit` for `value`, as "at most 0.5 x raw". `unit` begins with a blank if it
/// needs one.
Limit at_most(std::optional<double> value, double limit, const std::string &unit);
Limit at_least(std::optional<double> value, double limit, const std::string &unit);

/// Row is one row. What was measured is text with its unit; the ratios are to the peers, if they were measured.
struct Row {
  std::string name, measured;
  std::optional<double> raw, nginx, slapd;
  std::vector<Limit> limits;
};

/// is_within returns false if a limit is exceeded, true if all that could be judged hold, and nothing if none could.
std::optional<bool> is_within(const Row &row);

/// table_head returns the title and the head of a table, table_rows the rows that follow it.
std::string table_head(const std::string &title);
std::string table_rows(const std::vector<Row> &rows);

/// number returns a number with three digits, such as "0.0512", "2.25" and "1230".
std::string number(double value);
/// duration returns a time with its unit, such as "25.3 us", "71 ms" and "1.32 s".
std::string duration(double seconds);
/// bytes returns a size with its unit: bytes, KiB, MiB or GiB.
std::string bytes(double value);
/// count returns a number with commas between groups of three digits.
std::string count(std::uint64_t value);

}  // namespace rdm::bench

#endif
