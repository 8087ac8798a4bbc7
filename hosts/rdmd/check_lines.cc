// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check_lines.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

namespace rdm::check {
namespace {

constexpr std::size_t line_limit = 8191;

constexpr bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

/// value_end returns where the value that begins at `at` ends: at its closing quote, at a blank, or with the line.
std::size_t value_end(std::string_view text, std::size_t at, bool quoted) {
  for (; at < text.size(); ++at) {
    if (text[at] == '\\' && at + 1 < text.size())
      ++at;
    else if (quoted ? text[at] == '"' : is_blank(text[at]))
      break;
  }
  return at;
}

std::string unescape(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    result.push_back(text[i]);
  }
  return result;
}

/// PairReader takes a line apart. Only the first word that is no pair is reported: the words of a remark are many.
class PairReader {
 public:
  PairReader(const Line &line, Report &report) : number_(line.number), rest_(line.text), report_(report) {}

  bool at_end() {
    rest_.remove_prefix(
        std::min(rest_.size(), static_cast<std::size_t>(std::distance(
                                   rest_.begin(), std::find_if_not(rest_.begin(), rest_.end(), is_blank)))));
    return rest_.empty();
  }

  std::optional<Pair> next() {
    std::size_t at = 0;
    while (at < rest_.size() && !is_blank(rest_[at]) && rest_[at] != '=') ++at;
    const std::string name(rest_.substr(0, at));
    const bool is_pair = at < rest_.size() && rest_[at] == '=';
    if (!is_pair) {
      rest_.remove_prefix(at);
      no_pair(quote(name) + " is no name=\"value\" pair");
      return std::nullopt;
    }
    Pair pair{name, take_value(name, at + 1), number_};
    if (!name.empty()) return pair;
    no_pair("the value " + quote(pair.value) + " has no name");
    return std::nullopt;
  }

 private:
  std::string take_value(const std::string &name, std::size_t at) {
    const bool quoted = at < rest_.size() && rest_[at] == '"';
    if (quoted) ++at;
    const std::size_t end = value_end(rest_, at, quoted);
    if (quoted && end == rest_.size()) report_.error(number_, "the quote after " + name + "= is not closed");
    std::string value = unescape(rest_.substr(at, end - at));
    rest_.remove_prefix(std::min(rest_.size(), quoted ? end + 1 : end));
    return value;
  }

  void no_pair(std::string text) {
    if (!std::exchange(reported_, true)) report_.error(number_, std::move(text));
  }

  int number_;
  std::string_view rest_;
  Report &report_;
  bool reported_ = false;
};

std::string unreadable() { return std::string("cannot be read: ") + std::strerror(errno); }

}  // namespace

std::optional<std::string> read_bytes(Report &report, std::size_t limit) {
  struct stat status {};
  // Before it is opened: a named pipe would wait for its writer, and a device may do something.
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
      report.error(number, "the line is cut after 8191 bytes");
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
  PairReader reader(line, report);
  while (!reader.at_end())
    if (std::optional<Pair> pair = reader.next()) pairs.push_back(std::move(*pair));
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
  constexpr char digits[] = "0123456789abcdef";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == 0x7f)
      result.append({'\\', 'x', digits[byte >> 4], digits[byte & 15]});
    else
      result.push_back(c);
  }
  return result;
}

std::string quote(std::string_view text) { return '"' + std::string(text) + '"'; }

}  // namespace rdm::check
