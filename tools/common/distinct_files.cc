// SPDX-License-Identifier: MIT
#include "tools/common/distinct_files.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <system_error>

#include "catalog/os/atomic_file.h"
#include "catalog/os/error.h"

namespace rdm::tools {
namespace {

namespace fs = std::filesystem;

/// KnownFile is a file with its status.
struct KnownFile {
  std::string purpose;
  fs::path path;
  std::optional<struct stat> status;  // std::nullopt if the file does not exist
};

/// with_new_files returns the files, each followed by its new file.
std::vector<KnownFile> with_new_files(const std::vector<NamedFile> &files) {
  std::vector<KnownFile> all;
  for (const auto &[purpose, path] : files) {
    if (path.empty() || path == "-") continue;
    const std::string next = path + std::string(catalog::next_state_suffix);
    all.push_back({purpose, path, catalog::status_of(path)});
    all.push_back({"new " + purpose, next, catalog::status_of(next)});
  }
  return all;
}

bool is_same(const KnownFile &a, const KnownFile &b) {
  if (a.path == b.path) return true;
  if (a.status && b.status && a.status->st_dev == b.status->st_dev && a.status->st_ino == b.status->st_ino) return true;
  std::error_code ignored;
  return a.path.filename() == b.path.filename() &&
         fs::equivalent(catalog::directory_of(a.path), catalog::directory_of(b.path), ignored);
}

}  // namespace

void require_distinct(const std::vector<NamedFile> &files) {
  const std::vector<KnownFile> all = with_new_files(files);
  for (size_t i = 0; i < all.size(); ++i)
    for (size_t other = 0; other < i; ++other)
      if (is_same(all[i], all[other]))
        throw catalog::Failure(all[other].purpose + " and " + all[i].purpose +
                               " are the same file: " + all[i].path.string());
}

}  // namespace rdm::tools
