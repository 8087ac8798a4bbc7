#include "tools/minidba/file_names.h"

#include <filesystem>
#include <system_error>

#include "tools/minidba/failure.h"
#include "tools/minidba/lock.h"
#include "tools/minidba/snapshot.h"
#include "tools/minidba/url_map.h"

namespace minidba {
namespace {

namespace fs = std::filesystem;

std::string followed(const std::string &path) {
  std::error_code error;
  if (!fs::is_symlink(path, error)) return path;
  std::string file = fs::canonical(path, error).string();
  if (error) throw Failure("cannot follow the link " + path + ": " + error.message());
  return file;
}

struct Purpose {
  std::string name, path;
};

/// purposes lists the files of a command line, each with its next state behind it.
std::vector<Purpose> purposes(const Options &options) {
  const std::string &database = options.database;
  std::vector<Purpose> all;
  for (const auto &[name, path] : {Purpose{"database", database}, Purpose{"URL map", UrlMap::path_for(database)},
                                   Purpose{"lock", Lock::path_for(database)},
                                   Purpose{"index", options.index.empty() ? database + ".idx" : options.index},
                                   Purpose{"rejects", options.rejects}, Purpose{"export", options.file}}) {
    if (path.empty()) continue;
    all.push_back({name, path});
    all.push_back({"new " + name, path + std::string(snapshot_suffix)});
  }
  return all;
}

/// is_same goes by the folder where there is no file yet.
bool is_same(const fs::path &a, const fs::path &b) {
  std::error_code ignored;
  if (a == b || fs::equivalent(a, b, ignored)) return true;
  return a.filename() == b.filename() && fs::equivalent(folder_of(a), folder_of(b), ignored);
}

}  // namespace

void follow_links(Options &options) {
  options.database = followed(options.database);
  options.index = followed(options.index);
}

void check_files(const Options &options) {
  const std::vector<Purpose> all = purposes(options);
  for (size_t i = 0; i < all.size(); ++i)
    for (size_t other = 0; other < i; ++other)
      if (is_same(all[i].path, all[other].path))
        throw Failure(all[other].name + " and " + all[i].name + " are the same file: " + all[i].path);
}

}  // namespace minidba
