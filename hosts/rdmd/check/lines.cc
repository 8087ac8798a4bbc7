// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/lines.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

#include "qxapi/ascii.h"
#include "qxapi/config_line.h"
#include "qxapi/log_text.h"

namespace rdm::check {
namespace {

constexpr std::size_t line_limit = 8191;

std::string unescape(std::string_view value) {
  std::string result(value.size(), '\0');
  result.resize(config_line::unescape(value, result.data()));
  return result;
}

std::string unreadable() { return std::string("cannot be read: ") + std::strerror(errno); }

}  // namespace

std::optional<std::string> read_bytes(Report &report, std::size_t limit) {
  struct stat status {};
  // stat() before open(): opening a named pipe would block, and opening a device may have effects.
  const bool found = ::stat(report.file().c_str(), &status) == 0;
  if (found && !S_ISREG(status.st_mode)) {
    report.error(0, "is not a file");
    return std::nullopt;
  }
  std::ifstream file;
  if (found) file.open(report.file(), std::ios::binary);
  if (!file.is_open()) {
    report.error(0, unreadable());
    return std::nullopt;
  }
  std::string text(std::min(limit, static_cast<std::size_t>(status.st_size)), '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

std::vector<Line> split_lines(std::string_view text, Report &report) {
  std::vector<Line> lines;
  int number = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    Line line{++number, std::string(text.substr(at, end - at))};
    at = end + 1;
    if (line.text.size() > line_limit) {
      report.error(number, "the line is truncated after 8191 bytes");
      line.text.resize(line_limit);
    } else if (!line.text.empty() && line.text.back() == '\r') {
      line.text.pop_back();
    }
    if (!line.text.empty() && line.text.front() != '#') lines.push_back(std::move(line));
  }
  return lines;
}

std::optional<std::vector<Line>> read_lines(Report &report) {
  const std::optional<std::string> text = read_bytes(report);
  return text ? std::optional(split_lines(*text, report)) : std::nullopt;
}

std::vector<Pair> parse_pairs(const Line &line, Report &report) {
  std::vector<Pair> pairs;
  // Report only the first word of a line that is not a pair, since a misplaced remark has many.
  bool is_reported = false;
  std::string_view rest = line.text;
  while (const std::optional<config_line::Word> word = config_line::take_word(rest)) {
    Pair pair{std::string(word->name), unescape(word->value), line.number};
    if (!word->is_closed) report.error(line.number, "the quote after " + pair.name + "= is not closed");
    if (word->is_pair && !pair.name.empty())
      pairs.push_back(std::move(pair));
    else if (!std::exchange(is_reported, true))
      report.error(line.number, word->is_pair ? "the value " + quote(pair.value) + " has no name"
                                              : quote(pair.name) + " is not a name=\"value\" pair");
  }
  return pairs;
}

void Settings::add(const Pair &pair, Report &report) {
  const auto [place, fresh] = pairs_.emplace(pair.name, pair);
  if (fresh) return;
  report.warning(pair.line, quote(pair.name) + " was given in line " + std::to_string(place->second.line) +
                                "; this value is ignored");
}

const Pair *Settings::find(const std::string &name) const {
  const auto found = pairs_.find(name);
  return found == pairs_.end() ? nullptr : &found->second;
}

std::string escape(std::string_view text) {
  std::string result;
  for (const char c : text)
    if (ascii::is_control(c))
      result.append(EscapedChar::number(c).text());
    else
      result.push_back(c);
  return result;
}

std::string quote(std::string_view text) { return '"' + std::string(text) + '"'; }

}  // namespace rdm::check
