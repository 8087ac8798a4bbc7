// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/alias.h"

#include <algorithm>
#include <map>

#include "libcs/soif/grammar.h"
#include "qxapi/ascii.h"
#include "qxapi/words.h"

namespace rdm::check {
namespace {

bool is_foreign(char c) { return ascii::is_control(c) && !ascii::is_space(c); }

/// foreign_text returns the text that cannot be in a line of an alias file, or an empty string. Names may contain any
/// characters but white space, so only texts that no name would look like count.
std::string foreign_text(const std::string &line) {
  if (std::any_of(line.begin(), line.end(), is_foreign)) return "a control character";
  if (line.find("=\"") != std::string::npos) return "a name=\"value\" pair";
  if (const auto at = line.find_first_not_of(" \t"); at != std::string::npos && line[at] == '<') return "markup";
  if (line.find("\":") != std::string::npos) return "a JSON member";
  if (line.find(soif::size_end) != std::string::npos) return "a SOIF attribute";
  return {};
}

void check_aliases(const std::vector<Line> &lines, Report &report) {
  std::map<std::string, int> lines_of_names;
  for (const Line &line : lines) {
    const std::vector<std::string_view> names = words_of(line.text, " \t");
    for (std::size_t i = 0; i < names.size(); ++i) {
      const auto [place, fresh] = lines_of_names.emplace(names[i], line.number);
      // A parent may begin several lines; only aliases must be unique.
      if (fresh || i == 0) continue;
      report.error(line.number, "the alias " + quote(names[i]) + " was given in line " + std::to_string(place->second) +
                                    "; the service refuses it and the rest of this line");
      break;
    }
  }
}

}  // namespace

void check_alias_file(Report &report) {
  const auto text = read_bytes(report);
  if (!text) return;
  Findings ignored;
  Report silent(report.file(), ignored);
  for (const Line &line : split_lines(*text, silent))
    if (const std::string foreign = foreign_text(line.text); !foreign.empty())
      return report.error(line.number, "is not an alias file: this line has " + foreign);
  check_aliases(split_lines(*text, report), report);
}

}  // namespace rdm::check
