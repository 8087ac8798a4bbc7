// SPDX-License-Identifier: MIT
#include "tools/minidba/file_names.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "catalog/catalog.h"
#include "catalog/os/atomic_file.h"
#include "catalog/os/error.h"
#include "catalog/os/lock.h"
#include "catalog/url_map.h"

namespace rdm::minidba {
namespace {

namespace fs = std::filesystem;

/// Purpose is a file with its use.
struct Purpose {
  std::string name;
  fs::path path;
  std::optional<struct stat> status;  // std::nullopt if the file does not exist
};

/// purposes lists the files that a verb may read or write, each followed by its AtomicFile.
std::vector<Purpose> purposes(const Options &options) {
  const std::string &database = options.database;
  const std::pair<std::string, std::string> named[] = {
      {"database", database},
      {"URL map", UrlMap::path_for(database)},
      {"lock", Lock::path_for(database)},
      {"index", options.index.empty() ? index_path(database) : options.index},
      {"rejects", options.rejects},
      {"export", options.file}};
  std::vector<Purpose> all;
  for (const auto &[name, path] : named) {
    if (path.empty()) continue;
    const std::string next = path + std::string(next_state_suffix);
    all.push_back({name, path, status_of(path)});
    all.push_back({"new " + name, next, status_of(next)});
  }
  return all;
}

bool is_same(const struct stat &a, const struct stat &b) { return a.st_dev == b.st_dev && a.st_ino == b.st_ino; }

/// is_same compares device and inode, or directory and name if a file does not exist yet.
bool is_same(const Purpose &a, const Purpose &b) {
  if (a.path == b.path || (a.status && b.status && is_same(*a.status, *b.status))) return true;
  std::error_code ignored;
  return a.path.filename() == b.path.filename() && fs::equivalent(directory_of(a.path), directory_of(b.path), ignored);
}

}  // namespace

void follow_links(Options &options) {
  options.database = followed_link(options.database);
  options.index = followed_link(options.index);
}

void check_files(const Options &options) {
  const std::vector<Purpose> all = purposes(options);
  for (size_t i = 0; i < all.size(); ++i)
    for (size_t other = 0; other < i; ++other)
      if (is_same(all[i], all[other]))
        throw Failure(all[other].name + " and " + all[i].name + " are the same file: " + all[i].path.string());
}

}  // namespace rdm::minidba
