// SPDX-License-Identifier: MIT
#include "tools/rdmctl/target.h"

#include <algorithm>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "tools/rdmctl/configuration.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

/// configured returns the path of the database of a CSID, or an empty text if no service has this CSID.
std::string configured(const std::string &csid, const std::string &config) {
  const auto services = readable_catalogs(config);
  const auto service =
      std::find_if(services.begin(), services.end(), [&](const auto &one) { return one.csid == csid; });
  if (service == services.end()) return "";
  if (service->database.empty()) throw Failure("catalog service " + csid + " has no catalog-database in " + config);
  return service->database;
}

}  // namespace

std::string database_of(const std::string &target, const std::string &config) {
  if (target.empty()) throw Failure("the CSID or database is empty");
  if (config.empty() && is_url(target)) throw Failure(target + " is a CSID: name the configuration with --config");
  std::string database = config.empty() ? target : configured(target, config);
  if (database.empty() && (is_url(target) || !catalog::status_of(target)))
    throw Failure("no catalog service " + target + " in " + config + (is_url(target) ? "" : ", and no such file"));
  return catalog::followed_link(database.empty() ? target : database);
}

}  // namespace rdm::rdmctl
