#include "tools/rdmctl/outcome.h"

#include <ctime>
#include <sstream>

#include "service/csid.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/verbs.h"

namespace rdmctl {
namespace {

/// is_replaced says whether a file is another than before: minidba puts a new one into its place.
bool is_replaced(const std::optional<struct stat> &before, const std::optional<struct stat> &now) {
  if (!before || !now) return now.has_value();
  return before->st_ino != now->st_ino || before->st_mtim.tv_sec != now->st_mtim.tv_sec ||
         before->st_mtim.tv_nsec != now->st_mtim.tv_nsec;
}

/// expired returns how many descriptions have expired before a time and are still there, as a decimal number.
std::string expired(const std::string &database, time_t before) {
  minidba::Options options;
  options.verb = "expire";
  options.database = database;
  options.dry_run = options.quiet = true;
  options.now = before;
  std::ostringstream number, ignored;
  minidba::expire(options, {-1, number, ignored, false, false});
  return number.str().substr(0, number.str().find('\n'));
}

}  // namespace

Outcome::Outcome(const std::string &csid)
    : database_(csid_findval("catalog-database", csid.c_str())),
      index_(database_ + ".idx"),
      database_before_(minidba::status_of(database_)),
      index_before_(minidba::status_of(index_)),
      began_(std::time(nullptr)) {}

bool Outcome::database_changed() const { return is_replaced(database_before_, minidba::status_of(database_)); }

bool Outcome::index_changed() const { return is_replaced(index_before_, minidba::status_of(index_)); }

std::vector<std::string> Outcome::faults() const try {
  std::vector<std::string> faults;
  if (const std::string count = expired(database_, began_); count != "0")
    faults.push_back(count + " descriptions that have expired are still there");
  if (!index_changed()) faults.emplace_back("the index was not written");
  return faults;
} catch (const minidba::Failure &failure) {
  return {failure.what()};
}

}  // namespace rdmctl
