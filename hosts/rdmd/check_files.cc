#include "hosts/rdmd/check_files.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <string_view>

#include "qxapi/ascii.h"

namespace check {
namespace {

constexpr std::uint32_t hash_magic = 0x061561;
constexpr std::uint32_t index_magic = 0x3EB1CA0E;
constexpr std::size_t index_header = 8, index_entry = 20;

/// big_endian returns the 32 bits at `at`, which lie within `bytes`.
std::uint32_t big_endian(std::string_view bytes, std::size_t at) {
  std::uint32_t number = 0;
  for (std::size_t i = 0; i < 4; ++i) number = number << 8 | static_cast<unsigned char>(bytes[at + i]);
  return number;
}

void check_order(std::string_view bytes, std::uint32_t count, Report &report) {
  std::uint32_t last = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint32_t time = big_endian(bytes, index_header + index_entry * i);
    if (time < last) return report.error(0, "entry " + std::to_string(i + 1) + " is earlier than the one before it");
    last = time;
  }
}

std::vector<std::string> split_names(const std::string &text) {
  std::vector<std::string> names;
  for (std::size_t at = 0; (at = text.find_first_not_of(" \t", at)) != std::string::npos;) {
    const std::size_t end = std::min(text.find_first_of(" \t", at), text.size());
    names.push_back(text.substr(at, end - at));
    at = end;
  }
  return names;
}

bool is_control(char c) { return (static_cast<unsigned char>(c) < ' ' && !ascii::is_space(c)) || c == '\x7f'; }

/// Names may hold any characters but blanks, so that a file of another kind is known only by what no name looks like.
std::string foreign_text(const std::string &line) {
  if (std::any_of(line.begin(), line.end(), is_control)) return "a control character";
  if (line.find("=\"") != std::string::npos) return "a name=\"value\" pair";
  if (line.find("}:\t") != std::string::npos) return "a SOIF attribute";
  return {};
}

void check_aliases(const std::vector<Line> &lines, Report &report) {
  std::map<std::string, int> places;
  for (const Line &line : lines) {
    const std::vector<std::string> names = split_names(line.text);
    for (std::size_t i = 0; i < names.size(); ++i) {
      const auto [place, fresh] = places.emplace(names[i], line.number);
      // A parent may begin several lines; only aliases have to be new.
      if (fresh || i == 0) continue;
      report.error(line.number, "the alias " + quote(names[i]) + " has occurred in line " +
                                    std::to_string(place->second) + "; it is refused with the rest of its line");
      break;
    }
  }
}

}  // namespace

void check_hash_file(Report &report) {
  const auto bytes = read_bytes(report, 4);
  if (!bytes) return;
  if (bytes->size() < 4 || big_endian(*bytes, 0) != hash_magic) report.error(0, "is not a catalog database");
}

void check_index(Report &report) {
  const auto bytes = read_bytes(report);
  if (!bytes) return;
  if (bytes->size() < index_header || big_endian(*bytes, 0) != index_magic)
    return report.error(0, "is not an index of a catalog database");
  const std::uint32_t count = big_endian(*bytes, 4);
  const std::size_t expected = index_header + index_entry * count;
  if (bytes->size() != expected)
    return report.error(0, "has " + std::to_string(bytes->size()) + " bytes where " + std::to_string(count) +
                               " entries take " + std::to_string(expected));
  check_order(*bytes, count, report);
}

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

}  // namespace check
