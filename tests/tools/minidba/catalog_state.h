// SPDX-License-Identifier: MIT
/// The contents of a catalog and the files beside it, to compare before and after a verb.
#ifndef TESTS_TOOLS_MINIDBA_CATALOG_STATE_H
#define TESTS_TOOLS_MINIDBA_CATALOG_STATE_H

#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "catalog/catalog_files.h"
#include "support/files.h"

namespace rdm {

/// without_times removes the times of change, which differ from run to run.
inline std::string without_times(std::string text) {
  static const std::string name = "rd-last-changed{29}:\t";
  for (size_t at = 0; (at = text.find(name, at)) != std::string::npos;) text.erase(at, name.size() + 30);
  return text;
}

/// CatalogState holds the records by key, and the bytes of the other files by name; nothing for a missing file.
struct CatalogState {
  std::map<std::string, std::string> records;
  std::map<std::string, std::optional<std::string>> files;
  bool operator==(const CatalogState &) const = default;
};

/// state_of reads a catalog, its index, and the files of the names "exported" and "rejects" in its directory.
inline CatalogState state_of(const CatalogFiles &catalog) {
  CatalogState state;
  if (support::file_exists(catalog.path()))
    for (const auto &[key, record] : catalog.records()) state.records[key] = without_times(record);
  for (const char *name : {"catalog.db.idx", "exported", "rejects"}) {
    std::optional<std::string> &bytes = state.files[name];
    if (const std::string path = catalog.directory() + "/" + name; support::file_exists(path))
      bytes = without_times(support::read_file(path));
  }
  return state;
}

/// is_either returns true if all records, and each file, are those of one of two states: a verb replaces its files one
/// by one.
inline bool is_either(const CatalogState &now, const CatalogState &before, const CatalogState &after) {
  return (now.records == before.records || now.records == after.records) &&
         std::all_of(now.files.begin(), now.files.end(), [&](const auto &file) {
           const auto &[name, bytes] = file;
           return bytes == before.files.at(name) || bytes == after.files.at(name);
         });
}

}  // namespace rdm

#endif
