// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/check.h"

#include <algorithm>
#include <map>
#include <utility>

#include "cli/similar.h"
#include "hosts/rdmd/check/csid.h"
#include "hosts/rdmd/check/environment.h"
#include "hosts/rdmd/check/lines.h"
#include "hosts/rdmd/check/user.h"
#include "qxapi/ascii.h"

namespace rdm::check {
namespace {

constexpr const char *required_settings[] = {"bindir", "csid-config", "csid-default"};
constexpr std::string_view known_settings[] = {"bindir",        "csid-config",    "csid-default", "logfile",
                                               "debug-logfile", "debug-loglevel", "tmpdir"};
constexpr std::size_t log_path_limit = 1023;

/// Configuration is the service configuration and the catalog services that it names, as far as they can be read.
struct Configuration {
  Settings settings;
  std::vector<CatalogService> services;
};

bool is_known(const std::string &name) {
  return std::find(std::begin(known_settings), std::end(known_settings), name) != std::end(known_settings);
}

bool is_number(std::string_view text) {
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) text.remove_prefix(1);
  return !text.empty() && std::all_of(text.begin(), text.end(), ascii::is_digit);
}

void read_settings(Settings &settings, Report &report) {
  const auto lines = read_lines(report);
  if (!lines) return;
  for (const Line &line : *lines)
    for (const Pair &pair : parse_pairs(line, report)) {
      settings.add(pair, report);
      if (!is_known(pair.name))
        report.warning(pair.line, "unknown name " + quote(pair.name) + cli::did_you_mean(pair.name, known_settings));
    }
  for (const char *name : required_settings)
    if (settings.find(name) == nullptr) report.error(0, quote(name) + " is required");
}

void check_values(const Settings &settings, Report &report) {
  for (const auto &[name, pair] : settings.all())
    if (pair.value.empty() && is_known(name)) report.error(pair.line, quote(name) + " is empty");
  const Pair *level = settings.find("debug-loglevel");
  if (level != nullptr && !level->value.empty() && !is_number(level->value))
    report.error(level->line, "\"debug-loglevel\" is not a number: " + quote(level->value));
  const Pair *log = settings.find("logfile");
  if (log != nullptr && log->value.size() > log_path_limit)
    report.error(log->line, "the path of the transaction log is truncated after 1023 characters");
}

/// check_default reports a default service that is not configured; "unknown" stands for no default.
void check_default(const Configuration &configuration, const std::string &list, Report &report) {
  const Pair *standard = configuration.settings.find("csid-default");
  if (standard == nullptr || standard->value.empty() || standard->value == "unknown") return;
  std::vector<std::string> names;
  for (const CatalogService &service : configuration.services) names.push_back(service.csid);
  if (std::find(names.begin(), names.end(), standard->value) == names.end())
    report.error(standard->line, "the default service " + quote(standard->value) + " is not in " + list +
                                     cli::did_you_mean(standard->value, names));
}

/// read_configuration does the checks of check_syntax.
Configuration read_configuration(Report &report) {
  Configuration configuration;
  read_settings(configuration.settings, report);
  check_values(configuration.settings, report);
  const Pair *list = configuration.settings.find("csid-config");
  if (list == nullptr || list->value.empty()) return configuration;
  Report services = report.on(list->value);
  if (auto found = read_services(services)) {
    configuration.services = std::move(*found);
    check_default(configuration, list->value, report);
  }
  return configuration;
}

void check_environment(const Settings &settings, Report &report) {
  using Check = void (*)(const Pair &, Report &);
  const std::pair<const char *, Check> checks[] = {
      {"bindir", check_programs}, {"tmpdir", check_temporary}, {"logfile", check_log}, {"debug-logfile", check_log}};
  for (const auto &[name, check] : checks) {
    const Pair *pair = settings.find(name);
    if (pair == nullptr || pair->value.empty()) continue;
    const bool is_stream = pair->value == "stdout" || pair->value == "stderr";
    if (!is_stream || std::string_view(name) != "debug-logfile") check(*pair, report);
  }
}

/// Tally counts the findings of one file by severity.
struct Tally {
  std::size_t remaining[2] = {0, 0};  // not yet processed
  std::size_t quota[2] = {0, 0};      // may still be shown
  std::size_t hidden[2] = {0, 0};     // left out
};

constexpr std::size_t max_findings_per_file = 20;
constexpr auto warning = static_cast<std::size_t>(Severity::warning), error = static_cast<std::size_t>(Severity::error);

std::string count_of(std::size_t count, const char *noun) {
  return std::to_string(count) + " more " + noun + (count == 1 ? "" : "s");
}

Finding summary(const std::string &file, const Tally &tally) {
  std::string text;
  if (tally.hidden[error] > 0) text = count_of(tally.hidden[error], "error");
  if (tally.hidden[warning] > 0) text += (text.empty() ? "" : " and ") + count_of(tally.hidden[warning], "warning");
  return {tally.hidden[error] > 0 ? Severity::error : Severity::warning, file, 0, std::move(text)};
}

std::map<std::string, Tally> count(const Findings &findings) {
  std::map<std::string, Tally> tallies;
  for (const Finding &finding : findings) ++tallies[finding.file].remaining[static_cast<std::size_t>(finding.severity)];
  for (auto &[file, tally] : tallies) {
    tally.quota[error] = std::min(tally.remaining[error], max_findings_per_file);
    tally.quota[warning] = max_findings_per_file - tally.quota[error];
  }
  return tallies;
}

}  // namespace

std::span<const std::string_view> setting_names() { return known_settings; }

std::string describe(const Finding &finding) {
  const std::string place = finding.line > 0 ? ":" + std::to_string(finding.line) : "";
  const char *severity = finding.severity == Severity::error ? ": error: " : ": warning: ";
  return escape(finding.file) + place + severity + escape(finding.text);
}

Findings limited(const Findings &findings) {
  Findings result;
  std::map<std::string, Tally> tallies = count(findings);
  for (const Finding &finding : findings) {
    Tally &tally = tallies[finding.file];
    const auto severity = static_cast<std::size_t>(finding.severity);
    --tally.remaining[severity];
    if (tally.quota[severity] > 0) {
      --tally.quota[severity];
      result.push_back(finding);
    } else {
      ++tally.hidden[severity];
    }
    const bool is_last = tally.remaining[error] + tally.remaining[warning] == 0;
    if (is_last && tally.hidden[error] + tally.hidden[warning] > 0) result.push_back(summary(finding.file, tally));
  }
  return result;
}

bool has_errors(const Findings &findings) {
  return std::any_of(findings.begin(), findings.end(),
                     [](const Finding &finding) { return finding.severity == Severity::error; });
}

Findings check_syntax(const std::string &config) {
  Findings findings;
  Report report(config, findings);
  read_configuration(report);
  return limited(findings);
}

Findings check_configuration(const std::string &config) {
  Findings findings;
  Report report(config, findings);
  const Configuration configuration = read_configuration(report);
  check_environment(configuration.settings, report);
  if (const Pair *list = configuration.settings.find("csid-config")) {
    Report services = report.on(list->value);
    check_services(configuration.services, services);
  }
  return limited(findings);
}

std::vector<ConfiguredCatalog> configured_catalogs(const std::string &config) {
  Findings ignored;
  Report report(config, ignored);
  std::vector<ConfiguredCatalog> catalogs;
  for (const CatalogService &service : read_configuration(report).services) {
    const Pair *database = service.settings.find("catalog-database");
    const bool is_known = std::any_of(catalogs.begin(), catalogs.end(),
                                      [&](const ConfiguredCatalog &one) { return one.csid == service.csid; });
    if (!is_known) catalogs.push_back({service.csid, database == nullptr ? "" : database->value});
  }
  return catalogs;
}

Findings check_command_line(const CommandLine &line) {
  Findings findings;
  Report report("rdmd", findings);
  if (!line.user.empty()) become_user(line.user, report);
  for (const std::string &address : line.listen) check_listen(address, report);
  if (!line.certificate.empty()) check_tls(line.certificate, line.key, report);
  if (!line.access_log.empty() && line.access_log != "-") check_log({"--access-log", line.access_log, 0}, report);
  if (!line.error_log.empty()) check_log({"--error-log", line.error_log, 0}, report);
  return findings;
}

}  // namespace rdm::check
