// SPDX-License-Identifier: MIT
#include <ostream>

#include "catalog/os/file.h"
#include "qxapi/escaped.h"
#include "tools/rdmctl/import_report.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/target.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

/// member returns a member of a report for a line of text; "-" if it is missing or empty.
std::string member(const Json &report, const char *name) {
  const auto found = report.find(name);
  if (found == report.end()) return "-";
  const std::string text = found->is_string() ? found->get<std::string>() : found->dump();
  return text.empty() ? "-" : escaped(text);
}

void show_input(const Json &input, std::ostream &out) {
  if (!input.is_object()) return;
  const std::string bytes = member(input, "bytes");
  out << "  " << member(input, "name") << ": " << bytes << (bytes == "1" ? " byte" : " bytes") << ", SHA-256 "
      << member(input, "sha256") << '\n';
}

void show_object(const char *what, const Json &reject, std::ostream &out) {
  if (reject.is_object())
    out << "  " << what << ": " << member(reject, "input") << ": line " << member(reject, "line") << ": "
        << member(reject, "url") << ": " << member(reject, "reason") << '\n';
}

void show_import(const Json &report, std::ostream &out) {
  out << member(report, "when") << " by " << member(report, "who") << " from " << member(report, "source") << ": ";
  if (report.contains("failure")) {
    out << "failed: " << member(report, "failure") << '\n';
  } else {
    const char *separator = "";
    for (const char *name : {"new", "changed", "unchanged", "deleted", "expired", "rejected"}) {
      out << separator << member(report, name) << ' ' << name;
      separator = ", ";
    }
    out << '\n';
  }
  for (const Json &input : report.value("inputs", Json::array())) show_input(input, out);
  for (const Json &reject : report.value("rejects", Json::array())) show_object("rejected", reject, out);
  for (const Json &warning : report.value("warnings", Json::array())) show_object("warning", warning, out);
  for (const Json &repeat : report.value("repeats", Json::array())) show_object("repeated", repeat, out);
}

}  // namespace

int imports(const Options &options, std::ostream &out, std::ostream &errors) {
  const std::string database = database_of(options.target, options.config);
  if (!catalog::status_of(database) && !catalog::status_of(imports_path(database)))
    throw catalog::Failure("no such database: " + database);
  bool is_whole = true;
  std::vector<Json> reports = read_reports(database, [&](const std::string &text) {
    say(errors, text);
    is_whole = false;
  });
  const auto count = static_cast<size_t>(options.last);
  if (count > 0 && reports.size() > count) reports.erase(reports.begin(), reports.end() - options.last);
  if (options.json)
    out << text_of(Json(reports)) << '\n';
  else
    for (const Json &report : reports) show_import(report, out);
  return is_whole ? exit_done : exit_incomplete;
}

}  // namespace rdm::rdmctl
