// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/check.h"

#include <fcntl.h>

#include <ostream>
#include <set>
#include <sstream>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/minidba/verbs/verbs.h"
#include "tools/rdmctl/configuration.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using check::Severity;

constexpr int attempts = 3;

/// Result is all that was found.
struct Result {
  Json findings = Json::array();
  Json catalogs = Json::array();
  std::vector<std::string> lines;  // the same as text
  int64_t errors = 0, warnings = 0, descriptions = 0;

  bool is_sound() const { return errors == 0; }
};

void add(const check::Finding &finding, Result &result) {
  const bool is_error = finding.severity == Severity::error;
  ++(is_error ? result.errors : result.warnings);
  result.lines.push_back(describe(finding));
  result.findings.push_back({{"severity", is_error ? "error" : "warning"},
                             {"file", finding.file},
                             {"line", finding.line},
                             {"text", finding.text}});
}

/// verdict_on returns what minidba verify finds, as its JSON. A catalog that changes meanwhile is verified again.
Json verdict_on(const std::string &database) {
  for (int attempt = 1;; ++attempt) try {
      minidba::Options options;
      options.database = database;
      options.json = options.quiet = true;
      std::ostringstream out, errors;
      minidba::verify(options, minidba::Console{STDIN_FILENO, out, errors, false, false});
      return Json::parse(out.str());
    } catch (const catalog::SystemFailure &) {
      throw;
    } catch (const catalog::Failure &) {
      if (attempt == attempts) throw;
    }
}

std::string text_of_verdict(const Json &verdict) {
  if (!verdict["sound"].get<bool>()) return "damaged: " + counted(verdict["fault-count"].get<int64_t>(), "fault");
  const Json &indexed = verdict["indexed"];
  return "sound: " + counted(verdict["descriptions"].get<int64_t>(), "description") + ", " +
         (indexed.is_null() ? "no index" : counted(indexed.get<int64_t>(), "index entry", "index entries")) +
         (verdict["url-map"].get<bool>() ? "" : ", no URL map") +
         (verdict["index-older"].get<bool>() ? ", index older than the database" : "");
}

void add_verdict(const std::string &csid, Json verdict, Result &result) {
  for (const Json &fault : verdict["faults"])
    result.lines.push_back(escaped(csid) + ": " + escaped(fault.get<std::string>()));
  result.lines.push_back(escaped(csid) + ": " + text_of_verdict(verdict));
  result.errors += verdict["fault-count"].get<int64_t>();
  result.warnings += verdict["index-older"].get<bool>() ? 1 : 0;
  result.descriptions += verdict["descriptions"].get<int64_t>();
  verdict.erase("verb");
  verdict["csid"] = csid;
  result.catalogs.push_back(std::move(verdict));
}

/// verify verifies the database of a service. That there is none was found before.
void verify(const check::ConfiguredCatalog &service, Result &result) {
  if (service.database.empty() || !catalog::status_of(service.database)) return;
  try {
    add_verdict(service.csid, verdict_on(service.database), result);
  } catch (const catalog::Failure &failure) {
    add({Severity::error, service.database, 0, failure.what()}, result);
  }
}

Result check_all(const std::string &config) {
  require_readable(config);
  Result result;
  for (const check::Finding &finding : check::check_configuration(config)) add(finding, result);
  std::set<std::string> verified;
  for (const check::ConfiguredCatalog &service : check::configured_catalogs(config))
    if (verified.insert(service.database).second) verify(service, result);
  return result;
}

void show(const Result &result, const Options &options, std::ostream &out) {
  if (options.json)
    out << text_of({{"sound", result.is_sound()}, {"findings", result.findings}, {"catalogs", result.catalogs}})
        << '\n';
  else
    for (const std::string &line : result.lines) out << line << '\n';
}

/// monitor writes the line of a monitoring plugin with its figures, then all lines, and returns the exit status.
int monitor(const Result &result, std::ostream &out) {
  constexpr const char *names[] = {"OK", "WARNING", "CRITICAL"};
  const int status = result.errors > 0 ? 2 : result.warnings > 0 ? 1 : 0;
  const auto catalogs = static_cast<int64_t>(result.catalogs.size());
  out << "RDM " << names[status] << ": " << counted(result.errors, "error") << ", "
      << counted(result.warnings, "warning") << ", " << counted(catalogs, "catalog") << " with "
      << counted(result.descriptions, "description") << " | errors=" << result.errors << " warnings=" << result.warnings
      << " descriptions=" << result.descriptions << '\n';
  for (std::string line : result.lines) {
    std::replace(line.begin(), line.end(), '|', '/');  // figures follow "|"
    out << line << '\n';
  }
  return status;
}

int monitored(const Options &options, std::ostream &out) {
  constexpr int unknown = 3;
  try {
    return monitor(check_all(options.config), out);
  } catch (const std::exception &failure) {
    out << "RDM UNKNOWN: " << escaped(failure.what()) << '\n';
    return unknown;
  }
}

}  // namespace

int check(const Options &options, std::ostream &out, std::ostream &) {
  if (options.monitor) return monitored(options, out);
  const Result result = check_all(options.config);
  show(result, options, out);
  return result.is_sound() ? exit_done : exit_incomplete;
}

}  // namespace rdm::rdmctl
