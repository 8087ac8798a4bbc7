// SPDX-License-Identifier: MIT
#include "tools/minidba/output/report.h"

#include <algorithm>
#include <ostream>

#include <nlohmann/json.hpp>

namespace rdm::minidba {
namespace {

std::string key(std::string name) {
  std::replace(name.begin(), name.end(), ' ', '-');
  return name;
}

void report_json(const Options &options, std::ostream &out, const Figure &result, const std::vector<Figure> &details,
                 const std::string &rejects) {
  nlohmann::ordered_json object{{"verb", options.verb}, {"dry-run", options.dry_run}, {result.name, result.value}};
  for (const Figure &figure : details) object[key(figure.name)] = figure.value;
  std::string text = object.dump();
  if (!rejects.empty()) text.replace(text.size() - 1, 1, ",\"rejects\":" + rejects + "}");
  out << text << '\n';
}

}  // namespace

void report(const Options &options, const Console &console, const Figure &result, const std::vector<Figure> &details,
            const std::string &rejects) {
  if (options.json) return report_json(options, console.out, result, details, rejects);
  if (!options.quiet && !details.empty()) {
    const char *separator = options.dry_run ? "minidba: dry run: " : "minidba: ";
    for (const Figure &figure : details) {
      console.errors << separator << figure.value << ' ' << figure.name;
      separator = ", ";
    }
    console.errors << '\n';
  }
  console.out << result.value << '\n';
}

}  // namespace rdm::minidba
