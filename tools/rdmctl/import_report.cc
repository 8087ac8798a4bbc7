// SPDX-License-Identifier: MIT
#include "tools/rdmctl/import_report.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "catalog/index_file.h"
#include "catalog/os/error.h"
#include "catalog/os/file.h"

namespace rdm::rdmctl {
namespace {

using catalog::File;

/// caller returns the name of the user, or "NAME as root" for one who has become root with sudo.
std::string caller() {
  const uid_t user = ::getuid();
  const struct passwd *entry = ::getpwuid(user);
  std::string name = entry != nullptr ? entry->pw_name : std::to_string(user);
  const char *before = std::getenv("SUDO_USER");
  return user == 0 && before != nullptr ? std::string(before) + " as " + name : name;
}

Json json_of(const std::vector<Input> &inputs) {
  Json list = Json::array();
  for (const Input &input : inputs)
    list.push_back({{"name", input.name}, {"bytes", input.bytes}, {"sha256", input.sha256}});
  return list;
}

/// parsed returns an array of JSON texts.
Json parsed(const std::vector<std::string> &texts) {
  Json list = Json::array();
  for (const std::string &text : texts) list.push_back(Json::parse(text));
  return list;
}

/// open_reports opens the file for appending, and gives a new one the owner, group and mode of the database.
File open_reports(const std::string &database) {
  const std::string path = imports_path(database);
  const auto like = catalog::status_of(database);
  HostFileGuard file = catalog::open_file(path, O_RDWR | O_APPEND | O_CREAT | O_EXCL, like ? 0600 : 0644);
  if (!file && errno == EEXIST) return {catalog::open_file(path, O_RDWR | O_APPEND), path};
  // Other users' files keep the caller as their owner, as all files that are written for a catalog.
  const bool is_like = file && like && (::fchown(file.get(), like->st_uid, like->st_gid) == 0 || errno == EPERM);
  if (is_like) ::fchmod(file.get(), like->st_mode & 0666);
  return {std::move(file), path};
}

/// lacks_newline returns true if the last line is not complete.
bool lacks_newline(const File &file) {
  const int64_t size = file.size();
  char last = '\n';
  if (size > 0) file.read_at(size - 1, &last, 1);
  return last != '\n';
}

}  // namespace

std::string imports_path(const std::string &database) { return database + ".imports"; }

Json report_of(const Publication &publication, const std::string &source, bool is_full, const std::string &failure) {
  const catalog::Summary &summary = publication.summary;
  Json report{{"when", iso_time(std::time(nullptr))},
              {"who", caller()},
              {"source", source},
              {"full-feed", is_full},
              {"inputs", json_of(publication.inputs)},
              {"accepted", failure.empty() ? summary.accepted() : 0},
              {"new", summary.added},
              {"changed", summary.changed},
              {"unchanged", summary.unchanged},
              {"deleted", publication.deleted},
              {"expired", publication.expired},
              {"rejected", summary.rejected},
              {"rejects", parsed(publication.rejects)}};
  if (publication.warned > 0) {
    report["warned"] = publication.warned;
    report["warnings"] = parsed(publication.warnings);
  }
  if (publication.repeated > 0) {
    report["repeated"] = publication.repeated;
    report["repeats"] = parsed(publication.repeats);
  }
  if (!failure.empty()) report["failure"] = failure;
  return report;
}

void append_report(const std::string &database, const Json &report) {
  const std::string path = imports_path(database);
  catalog::require_regular(path);
  const File file = open_reports(database);
  if (file.descriptor() == -1) throw catalog::system_failure("cannot open " + path);
  const std::string line = (lacks_newline(file) ? "\n" : "") + text_of(report) + "\n";
  // O_APPEND: the offset does not matter.
  file.write_at(file.size(), line);
  if (uninterrupted([&] { return ::fsync(file.descriptor()); }) != 0) throw catalog::system_failure("fsync " + path);
}

std::vector<Json> read_reports(const std::string &database, const std::function<void(const std::string &)> &damage) {
  const std::string path = imports_path(database);
  std::vector<Json> reports;
  if (!catalog::status_of(path)) return reports;
  const std::string text = catalog::content_of(path);
  size_t number = 1;
  for (size_t at = 0, end = 0; at < text.size(); at = end + 1, ++number) {
    end = std::min(text.find('\n', at), text.size());
    Json report = Json::parse(text.begin() + static_cast<ptrdiff_t>(at), text.begin() + static_cast<ptrdiff_t>(end),
                              nullptr, false);
    if (report.is_object())
      reports.push_back(std::move(report));
    else
      damage(path + ": line " + std::to_string(number) + " is not a report");
  }
  return reports;
}

}  // namespace rdm::rdmctl
