// SPDX-License-Identifier: MIT
#include "tools/rdmctl/outcome.h"

#include <ctime>

#include "catalog/maintenance.h"
#include "catalog/os/error.h"
#include "catalog/transaction.h"
#include "qxapi/counted.h"
#include "service/csid.h"

namespace rdm::rdmctl {
namespace {

/// is_replaced returns true if a file was replaced: minidba never changes files in place.
bool is_replaced(const std::optional<struct stat> &before, const std::optional<struct stat> &now) {
  if (!before || !now) return now.has_value();
  return before->st_ino != now->st_ino || before->st_mtim.tv_sec != now->st_mtim.tv_sec ||
         before->st_mtim.tv_nsec != now->st_mtim.tv_nsec;
}

/// count_expired returns how many descriptions in a database have expired before a time.
int64_t count_expired(const std::string &database, time_t before) {
  catalog::WriteSettings settings;
  settings.dry_run = true;
  const catalog::WriteTransaction dry(database, settings);
  catalog::WriteBatch expired(dry.catalog());
  erase_expired(dry.catalog(), before, expired);
  dry.commit(expired, dry.catalog().next_number());
  return expired.count();
}

}  // namespace

Outcome::Outcome(const std::string &csid)
    : database_(csid_findval("catalog-database", csid.c_str())),
      index_(catalog::index_path(database_)),
      database_before_(catalog::status_of(database_)),
      index_before_(catalog::status_of(index_)),
      began_(std::time(nullptr)) {}

bool Outcome::database_changed() const { return is_replaced(database_before_, catalog::status_of(database_)); }

bool Outcome::index_changed() const { return is_replaced(index_before_, catalog::status_of(index_)); }

std::vector<std::string> Outcome::faults() const try {
  std::vector<std::string> faults;
  if (const int64_t count = count_expired(database_, began_); count > 0)
    faults.push_back(counted(count, "description that has expired is", "descriptions that have expired are") +
                     " still there");
  if (!index_changed()) faults.emplace_back("the index was not written");
  return faults;
} catch (const catalog::Failure &failure) {
  return {failure.what()};
}

}  // namespace rdm::rdmctl
