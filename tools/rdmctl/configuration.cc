// SPDX-License-Identifier: MIT
#include "tools/rdmctl/configuration.h"

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "hosts/rdmd/check/csid.h"
#include "hosts/rdmd/check/lines.h"
#include "qxapi/guard.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

}  // namespace

void require_readable(const std::string &config) {
  catalog::require_regular(config);
  const HostFileGuard file(host_open_read(config.c_str()));
  char byte = 0;
  if (!file || host_read(file.get(), &byte, 1) < 0) throw catalog::system_failure("cannot read " + config);
}

bool is_url(const std::string &text) { return text.find("://") != std::string::npos; }

std::string setting_of(const std::string &config, const std::string &name) {
  require_readable(config);
  check::Findings ignored;
  check::Report report(config, ignored);
  for (const check::Line &line : check::read_lines(report).value_or(std::vector<check::Line>()))
    for (const check::Pair &pair : check::parse_pairs(line, report))
      if (pair.name == name) return pair.value;
  return "";
}

namespace {

/// require_services returns the path of the list of catalog services. Throws a Failure if none is configured or it
/// cannot be read.
std::string require_services(const std::string &config) {
  std::string list = setting_of(config, "csid-config");
  if (list.empty()) throw Failure("no csid-config in " + config);
  require_readable(list);
  return list;
}

}  // namespace

std::vector<check::ConfiguredCatalog> readable_catalogs(const std::string &config) {
  require_services(config);
  return check::configured_catalogs(config);
}

std::string file_of_service(const std::string &config, const std::string &csid, const std::string &key) {
  check::Findings ignored;
  check::Report report(require_services(config), ignored);
  for (const check::CatalogService &service :
       check::read_services(report).value_or(std::vector<check::CatalogService>())) {
    if (service.csid != csid) continue;
    const check::Pair *file = service.settings.find(key);
    return file != nullptr ? file->value : "";
  }
  throw Failure("no catalog service " + csid + " in " + config);
}

std::string description_file(const std::string &word, const std::string &config, const std::string &key) {
  if (config.empty() && is_url(word)) throw Failure(word + " is a CSID: name the configuration with --config");
  const bool is_file = config.empty() || (!is_url(word) && catalog::status_of(word));
  std::string file = is_file ? word : file_of_service(config, word, key);
  if (file.empty()) throw Failure("catalog service " + word + " has no " + key + " in " + config);
  require_readable(file);
  return file;
}

}  // namespace rdm::rdmctl
