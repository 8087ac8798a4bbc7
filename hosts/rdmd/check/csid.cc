// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/csid.h"

#include <algorithm>
#include <set>
#include <utility>

#include "cli/similar.h"
#include "hosts/rdmd/check/alias.h"
#include "hosts/rdmd/check/catalog.h"
#include "hosts/rdmd/check/description.h"
#include "qxapi/ascii.h"

namespace rdm::check {
namespace {

constexpr std::size_t service_limit = 63;
constexpr std::string_view known_names[] = {
    "csid", "catalog-database", "alias-file", "server-description", "schema-description", "taxonomy-description"};

/// is_service_url returns true if `text` has the form x-catalog://HOST:PORT/NAME or x-catalogs://HOST:PORT/NAME.
bool is_service_url(std::string_view text) {
  for (const std::string_view scheme : {"x-catalog://", "x-catalogs://"}) {
    if (text.substr(0, scheme.size()) != scheme) continue;
    const std::string_view authority = text.substr(scheme.size());
    const std::size_t colon = authority.find(':');
    if (colon == 0 || colon == std::string_view::npos) return false;
    const std::string_view port = authority.substr(colon + 1, authority.find('/', colon) - colon - 1);
    return !port.empty() && std::all_of(port.begin(), port.end(), ascii::is_digit) &&
           colon + 1 + port.size() + 1 < authority.size();
  }
  return false;
}

/// begin_service checks a "csid" pair and appends a service to the list.
CatalogService *begin_service(std::vector<CatalogService> &services, const Pair &csid, Report &report) {
  if (csid.value.empty()) report.error(csid.line, "\"csid\" is empty");
  const auto earlier = std::find_if(services.begin(), services.end(),
                                    [&](const CatalogService &service) { return service.csid == csid.value; });
  if (earlier != services.end())
    report.error(csid.line, "the service " + quote(csid.value) + " was given in line " + std::to_string(earlier->line) +
                                "; this one is ignored");
  else if (!csid.value.empty())
    check_csid(csid.value, csid.line, report);
  if (services.size() == service_limit)
    report.error(csid.line, "more than 63 services; this one and those after it are ignored");
  services.push_back(CatalogService{csid.value, csid.line, {}});
  return &services.back();
}

void check_names(const std::vector<Pair> &pairs, Report &report) {
  for (const Pair &pair : pairs)
    if (std::find(std::begin(known_names), std::end(known_names), pair.name) == std::end(known_names))
      report.error(pair.line, "unknown name " + quote(pair.name) + cli::did_you_mean(pair.name, known_names));
}

void add_line(std::vector<CatalogService> &services, const std::vector<Pair> &pairs, Report &report) {
  const auto csid = std::find_if(pairs.begin(), pairs.end(), [](const Pair &pair) { return pair.name == "csid"; });
  if (csid != pairs.end()) begin_service(services, *csid, report);
  if (services.empty()) {
    report.error(pairs.front().line, quote(pairs.front().name) + " comes before the first \"csid\" and is ignored");
    return;
  }
  for (const Pair &pair : pairs) services.back().settings.add(pair, report);
}

void check_database(const CatalogService &service, Report &report) {
  const Pair *database = service.settings.find("catalog-database");
  if (database == nullptr) {
    report.warning(service.line, "the service " + quote(service.csid) + " has no \"catalog-database\"");
    return;
  }
  const auto bad = std::find_if_not(database->value.begin(), database->value.end(), ascii::is_plain_to_shell);
  if (bad != database->value.end())
    report.error(database->line,
                 "the path " + quote(database->value) +
                     " has a character with a special meaning to the shell: " + quote(std::string_view(&*bad, 1)));
}

void check_file(const Pair &file, Report &report) {
  if (file.name == "catalog-database") check_catalog(report);
  if (file.name == "alias-file") check_alias_file(report);
  if (file.name.ends_with("-description")) check_description(file.name, report);
}

}  // namespace

void check_csid(const std::string &csid, int line, Report &report) {
  if (!is_service_url(csid)) report.warning(line, quote(csid) + " is not of the form x-catalog://HOST:PORT/NAME");
}

std::span<const std::string_view> service_names() { return known_names; }

std::optional<std::vector<CatalogService>> read_services(Report &report) {
  const std::optional<std::vector<Line>> lines = read_lines(report);
  if (!lines) return std::nullopt;
  std::vector<CatalogService> services;
  for (const Line &line : *lines) {
    const std::vector<Pair> pairs = parse_pairs(line, report);
    check_names(pairs, report);
    if (!pairs.empty()) add_line(services, pairs, report);
  }
  if (services.empty()) report.warning(0, "lists no catalog service");
  if (services.size() > service_limit) services.erase(services.begin() + service_limit, services.end());
  return services;
}

void check_services(const std::vector<CatalogService> &services, Report &report) {
  std::set<std::pair<std::string, std::string>> checked;  // pairs of name and file; several services may share one
  for (const CatalogService &service : services) {
    check_database(service, report);
    for (const std::string_view name : known_names) {
      const Pair *file = service.settings.find(std::string(name));
      if (file == nullptr || !checked.emplace(file->name, file->value).second) continue;
      Report found = report.on(file->value);
      check_file(*file, found);
    }
  }
}

}  // namespace rdm::check
