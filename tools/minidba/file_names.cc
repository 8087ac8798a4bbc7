// SPDX-License-Identifier: MIT
#include "tools/minidba/file_names.h"

#include "catalog/catalog.h"
#include "catalog/os/lock.h"
#include "catalog/url_map.h"
#include "tools/common/distinct_files.h"

namespace rdm::minidba {

void follow_links(Options &options) {
  options.database = followed_link(options.database);
  options.index = followed_link(options.index);
}

void check_files(const Options &options) {
  const std::string &database = options.database;
  tools::require_distinct({{"database", database},
                           {"URL map", UrlMap::path_for(database)},
                           {"lock", Lock::path_for(database)},
                           {"index", options.index.empty() ? index_path(database) : options.index},
                           {"rejects", options.rejects},
                           {"export", options.file}});
}

}  // namespace rdm::minidba
