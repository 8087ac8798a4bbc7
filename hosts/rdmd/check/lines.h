// SPDX-License-Identifier: MIT
/// Reads configuration files line by line, as the service does.
#ifndef HOSTS_RDMD_CHECK_LINES_H
#define HOSTS_RDMD_CHECK_LINES_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/rdmd/check/check.h"

namespace rdm::check {

/// Report collects the findings of one file.
class Report {
 public:
  Report(std::string file, Findings &findings) : file_(std::move(file)), findings_(findings) {}

  void error(int line, std::string text) { findings_.push_back({Severity::error, file_, line, std::move(text)}); }
  void warning(int line, std::string text) { findings_.push_back({Severity::warning, file_, line, std::move(text)}); }
  /// on returns a report for another file that adds to the same findings.
  Report on(std::string file) const { return {std::move(file), findings_}; }
  const std::string &file() const { return file_; }

 private:
  std::string file_;
  Findings &findings_;
};

/// read_bytes returns the bytes of a file, at most `limit`. Returns std::nullopt, after reporting an error, if it
/// cannot be read.
std::optional<std::string> read_bytes(Report &report, std::size_t limit = std::string::npos);

struct Line {
  int number;
  std::string text;
};

/// split_lines returns the lines of a text that are neither empty nor comments, truncated as the service truncates
/// them. Truncation is reported as an error.
std::vector<Line> split_lines(std::string_view text, Report &report);

/// read_lines applies split_lines to a file. Returns std::nullopt, after reporting an error, if the file cannot be
/// read.
std::optional<std::vector<Line>> read_lines(Report &report);

struct Pair {
  std::string name;
  std::string value;
  int line;
};

/// parse_pairs returns the pairs of a line. It reports words that are not pairs and unclosed quotes as errors.
std::vector<Pair> parse_pairs(const Line &line, Report &report);

/// Settings holds the pairs of one service with their lines. The first of equal names counts.
class Settings {
 public:
  /// add adds a pair, or warns if the name was given before.
  void add(const Pair &pair, Report &report);
  const Pair *find(const std::string &name) const;
  const std::map<std::string, Pair> &all() const { return pairs_; }

 private:
  std::map<std::string, Pair> pairs_;
};

/// escape returns a text with its control characters escaped, so that it fits on a line.
std::string escape(std::string_view text);

/// quote returns a text in double quotes.
std::string quote(std::string_view text);

}  // namespace rdm::check

#endif
