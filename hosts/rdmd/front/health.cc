// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/health.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <string_view>
#include <system_error>
#include <tuple>

#include <nlohmann/json.hpp>

#include "dba/guard.h"
#include "dba/index_format.h"
#include "qxapi/guard.h"

namespace rdm::rdmd {
namespace {

using Json = nlohmann::ordered_json;

std::string last_error() { return std::generic_category().message(errno); }

/// read_at returns true if the file has `bytes.size()` bytes at `offset`.
template <std::size_t size>
bool read_at(host_fd file, std::uint64_t offset, std::array<char, size> &bytes) {
  return ::pread(file, bytes.data(), size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

/// open_file opens a regular file and returns its state. It never blocks on a named pipe.
HostFileGuard open_file(const std::string &path, std::optional<struct stat> &state) {
  HostFileGuard file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat found {};
  if (!file || ::fstat(file.get(), &found) != 0) return HostFileGuard();
  state = found;
  if (S_ISREG(found.st_mode)) return file;
  errno = EINVAL;
  return HostFileGuard();
}

void read_entries(host_fd file, const std::string &path, CatalogHealth &health) {
  std::array<char, index_format::header_size> header;
  std::array<char, index_format::entry_size> last;
  const std::string_view bytes(header.data(), header.size());
  if (!read_at(file, 0, header) || !index_format::has_magic(bytes))
    return health.unreadable.push_back("index " + path + ": is no index");
  const std::uint32_t count = index_format::entry_count(bytes);
  if (count == 0) health.empty.push_back("index " + path + ": has no descriptions");
  health.descriptions = count;
  if (count == 0) return;
  if (!read_at(file, index_format::file_size(count - 1), last))
    return health.unreadable.push_back("index " + path + ": is cut");
  if (const auto entry = index_format::decode({last.data(), last.size()}); entry.time > 0)
    health.newest_change = entry.time;
}

void examine_index(CatalogHealth &health) {
  const std::string path = health.catalog.database + ".idx";
  if (const HostFileGuard file = open_file(path, health.index))
    read_entries(file.get(), path, health);
  else
    health.unreadable.push_back("index " + path + ": " + last_error());
}

void examine_database(CatalogHealth &health) {
  const std::string &path = health.catalog.database;
  if (!open_file(path, health.database)) return health.unreadable.push_back("database " + path + ": " + last_error());
  const DatabasePtr database(dba_open(path.c_str(), "r"));
  if (!database) return health.unreadable.push_back("database " + path + ": is damaged or no database");
  DBT key{}, value{};
  const int step = dba_first(database.get(), &key, &value);
  if (step == 1) health.empty.push_back("database " + path + ": has no records");
  if (step < 0) health.unreadable.push_back("database " + path + ": is damaged");
}

bool is_earlier(const struct stat &one, const struct stat &other) {
  return std::tie(one.st_mtim.tv_sec, one.st_mtim.tv_nsec) < std::tie(other.st_mtim.tv_sec, other.st_mtim.tv_nsec);
}

CatalogHealth examine_catalog(const check::ConfiguredCatalog &catalog) {
  CatalogHealth health;
  health.catalog = catalog;
  if (catalog.database.empty()) {
    health.notes.emplace_back("has no database");
    return health;
  }
  // The index first: a catalog that is being changed then looks like one with an older index.
  examine_index(health);
  examine_database(health);
  if (health.index && health.database && is_earlier(*health.index, *health.database))
    health.notes.emplace_back("the index is older than the database");
  return health;
}

std::string utc_time(std::time_t seconds) {
  struct tm fields;
  char text[64] = "";
  if (::gmtime_r(&seconds, &fields) != nullptr) host_format_time(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &fields);
  return text;
}

Json identity(const std::string &path, const struct stat &state) {
  return {{"path", path},
          {"device", state.st_dev},
          {"inode", state.st_ino},
          {"size", state.st_size},
          {"modified", utc_time(state.st_mtim.tv_sec)},
          {"modified_ns", state.st_mtim.tv_nsec}};
}

Json failures_of(const CatalogHealth &health) {
  Json failures = health.unreadable;
  for (const std::string &reason : health.empty) failures.push_back(reason);
  return failures;
}

Json state_of(const CatalogHealth &health) {
  Json state = {{"csid", health.catalog.csid}, {"status", health.failing() ? "failing" : "ok"}};
  if (health.descriptions) state["descriptions"] = *health.descriptions;
  if (health.newest_change) state["newest_change"] = utc_time(*health.newest_change);
  if (health.database) state["database"] = identity(health.catalog.database, *health.database);
  if (health.index) state["index"] = identity(health.catalog.database + ".idx", *health.index);
  if (health.failing()) state["failures"] = failures_of(health);
  if (!health.notes.empty()) state["notes"] = health.notes;
  return state;
}

}  // namespace

Health examine(const std::vector<check::ConfiguredCatalog> &catalogs) {
  Health health;
  for (const check::ConfiguredCatalog &catalog : catalogs) health.push_back(examine_catalog(catalog));
  return health;
}

bool is_failing(const Health &health) {
  return std::any_of(health.begin(), health.end(), [](const CatalogHealth &one) { return one.failing(); });
}

std::string describe_unreadable(const Health &health) {
  std::string text;
  for (const CatalogHealth &one : health)
    for (const std::string &reason : one.unreadable) text += one.catalog.csid + ": " + reason + "\n";
  return text;
}

std::string health_json(const Health &health) {
  Json whole = {{"status", is_failing(health) ? "failing" : "ok"}, {"catalogs", Json::array()}};
  for (const CatalogHealth &one : health) whole["catalogs"].push_back(state_of(one));
  return whole.dump(2, ' ', true, Json::error_handler_t::replace) + '\n';
}

std::vector<CatalogFigures> figures_of(const Health &health) {
  std::vector<CatalogFigures> figures;
  for (const CatalogHealth &one : health)
    figures.push_back({one.catalog.csid, one.failing(), one.descriptions, one.newest_change});
  return figures;
}

}  // namespace rdm::rdmd
