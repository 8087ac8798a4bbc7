// SPDX-License-Identifier: MIT
/// Checks the list of catalog services and the files of each.
#ifndef HOSTS_RDMD_CHECK_CSID_H
#define HOSTS_RDMD_CHECK_CSID_H

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/rdmd/check/lines.h"

namespace rdm::check {

struct CatalogService {
  std::string csid;
  int line;
  Settings settings;
};

/// check_csid warns of a CSID that is not of the form x-catalog://HOST:PORT/NAME.
void check_csid(const std::string &csid, int line, Report &report);

/// service_names returns the names that a catalog service may have.
std::span<const std::string_view> service_names();

/// read_services reads the list and checks its lines. Returns std::nullopt if it is unreadable.
std::optional<std::vector<CatalogService>> read_services(Report &report);

/// check_services checks all files that the services name.
void check_services(const std::vector<CatalogService> &services, Report &report);

}  // namespace rdm::check

#endif
