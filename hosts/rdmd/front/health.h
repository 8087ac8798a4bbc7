// SPDX-License-Identifier: MIT
/// The state of the catalogs, read from their files without the plug-in.
///
/// Only the header and the last entry of an index are read, and one record of a database: a full check is
/// `rdmd --check`. The procedures block on slow file systems.
#ifndef HOSTS_RDMD_FRONT_HEALTH_H
#define HOSTS_RDMD_FRONT_HEALTH_H

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "hosts/rdmd/check/check.h"
#include "hosts/rdmd/front/metrics.h"

namespace rdm::rdmd {

struct CatalogHealth {
  check::ConfiguredCatalog catalog;
  std::optional<struct stat> database, index;  // the state of each file that exists
  std::optional<std::uint32_t> descriptions;   // in the index
  std::optional<std::int64_t> newest_change;   // in the index, in seconds since 1970; none if unknown
  std::vector<std::string> unreadable;         // why the database or the index cannot be opened
  std::vector<std::string> empty;              // why the service finds no description
  std::vector<std::string> notes;              // what is no failure

  bool failing() const { return !unreadable.empty() || !empty.empty(); }
};

using Health = std::vector<CatalogHealth>;

/// examine returns the state of each catalog. A catalog without a database is not failing: it has descriptions of the
/// server only. Nor is one whose index is older than its database: it is so between each update and the next index.
Health examine(const std::vector<check::ConfiguredCatalog> &catalogs);

/// is_failing returns true if any catalog is failing.
bool is_failing(const Health &health);

/// describe_unreadable returns a line for each file that cannot be opened: "CSID: TEXT".
std::string describe_unreadable(const Health &health);

/// health_json returns an object with the status of the whole, "ok" or "failing", and the state of each catalog.
std::string health_json(const Health &health);

/// figures_of returns what the metrics say of the catalogs.
std::vector<CatalogFigures> figures_of(const Health &health);

}  // namespace rdm::rdmd

#endif
