// SPDX-License-Identifier: MIT
/// Configuration files line by line, as the service reads them.
#ifndef HOSTS_RDMD_CHECK_LINES_H
#define HOSTS_RDMD_CHECK_LINES_H

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/rdmd/check.h"

namespace rdm::check {

/// Report gathers what is found in one file.
class Report {
 public:
  Report(std::string file, Findings &findings) : file_(std::move(file)), findings_(findings) {}

  void error(int line, std::string text) { findings_.push_back({Severity::error, file_, line, std::move(text)}); }
  void warning(int line, std::string text) { findings_.push_back({Severity::warning, file_, line, std::move(text)}); }
  /// on returns a report on another file that adds to the same findings.
  Report on(std::string file) const { return {std::move(file), findings_}; }
  const std::string &file() const { return file_; }

 private:
  std::string file_;
  Findings &findings_;
};

/// read_bytes returns the bytes of a file, at most `limit`; nothing, after an error, when it cannot be read.
std::optional<std::string> read_bytes(Report &report, std::size_t limit = std::string::npos);

struct Line {
  int number;
  std::string text;
};

/// split_lines returns the lines of a text that are neither empty nor comments, cut as the service cuts them. Lines
/// that are cut are errors.
std::vector<Line> split_lines(std::string_view text, Report &report);

/// read_lines returns the lines of a file as split_lines does. Nothing, after an error, when the file cannot be read.
std::optional<std::vector<Line>> read_lines(Report &report);

struct Pair {
  std::string name;
  std::string value;
  int line;
};

/// parse_pairs returns the pairs of a line; what is no pair and quotes that are not closed are errors.
std::vector<Pair> parse_pairs(const Line &line, Report &report);

/// Settings are the pairs of one service, each with the place where it was given. Of equal names the first counts.
class Settings {
 public:
  /// add warns where the name was given before.
  void add(const Pair &pair, Report &report);
  const Pair *find(const std::string &name) const;
  const std::map<std::string, Pair> &all() const { return pairs_; }

 private:
  std::map<std::string, Pair> pairs_;
};

/// escape returns a text with its control characters written as escapes, so that it fits on a line.
std::string escape(std::string_view text);

/// quote returns a text between quotes, for a message.
std::string quote(std::string_view text);

}  // namespace rdm::check

#endif
