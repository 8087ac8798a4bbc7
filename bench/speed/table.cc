// SPDX-License-Identifier: MIT
#include "speed/table.h"

#include <cmath>
#include <cstdio>

namespace rdm::bench {
namespace {

std::string ratio(std::optional<double> value) { return value ? number(*value) : ""; }

std::string limits_of(const Row &row) {
  std::string text;
  for (const Limit &limit : row.limits) text += (text.empty() ? "" : ", ") + limit.text;
  return text;
}

std::string verdict(const Row &row) {
  const std::optional<bool> within = is_within(row);
  return !within ? "" : *within ? "yes" : "**no**";
}

std::string line(const std::vector<std::string> &cells) {
  std::string text = "|";
  for (const std::string &cell : cells) text += cell.empty() ? " |" : " " + cell + " |";
  return text + "\n";
}

}  // namespace

Limit at_most(std::optional<double> value, double limit, const std::string &unit) {
  return {"at most " + number(limit) + unit, value ? std::optional(*value <= limit) : std::nullopt};
}

Limit at_least(std::optional<double> value, double limit, const std::string &unit) {
  return {"at least " + number(limit) + unit, value ? std::optional(*value >= limit) : std::nullopt};
}

std::optional<bool> is_within(const Row &row) {
  std::optional<bool> within;
  for (const Limit &limit : row.limits)
    if (limit.within) within = within.value_or(true) && *limit.within;
  return within;
}

std::string table_head(const std::string &title) {
  return "### " + title + "\n\n" + line({"", "measured", "x raw", "x nginx", "x slapd", "limit", "within"}) +
         "|---|---|---|---|---|---|---|\n";
}

std::string table_rows(const std::vector<Row> &rows) {
  std::string text;
  for (const Row &row : rows)
    text += line(
        {row.name, row.measured, ratio(row.raw), ratio(row.nginx), ratio(row.slapd), limits_of(row), verdict(row)});
  return text;
}

std::string number(double value) {
  const double size = std::fabs(value);
  const int digits = size >= 100 || size == 0 ? 0 : size >= 10 ? 1 : size >= 0.1 ? 2 : 3;
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  std::string shortened = text;
  if (shortened.find('.') != std::string::npos) shortened.erase(shortened.find_last_not_of('0') + 1);
  if (shortened.ends_with('.')) shortened.pop_back();
  return shortened;
}

std::string duration(double seconds) {
  if (seconds < 1e-3) return number(seconds * 1e6) + " us";
  return seconds < 1 ? number(seconds * 1e3) + " ms" : number(seconds) + " s";
}

std::string bytes(double value) {
  static constexpr const char *units[] = {" bytes", " KiB", " MiB", " GiB"};
  std::size_t unit = 0;
  for (; std::fabs(value) >= 1024 && unit + 1 < std::size(units); ++unit) value /= 1024;
  return number(value) + units[unit];
}

std::string count(std::uint64_t value) {
  std::string text = std::to_string(value);
  for (std::size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

}  // namespace rdm::bench
