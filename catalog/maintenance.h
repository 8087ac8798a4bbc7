// SPDX-License-Identifier: MIT
/// What keeps a catalog in order: dropping what has expired, writing the index, finding what is not classified.
#ifndef CATALOG_MAINTENANCE_H
#define CATALOG_MAINTENANCE_H

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "catalog/catalog.h"
#include "catalog/index_file.h"
#include "catalog/os/lock.h"
#include "catalog/write_batch.h"

namespace rdm::catalog {

/// RecordProgress receives the size of each record that was read.
using RecordProgress = std::function<void(int64_t bytes)>;
inline const RecordProgress no_progress = [](int64_t) {};

/// erase_expired erases in a batch the descriptions whose "rd-expires" is before `now`. One that cannot be read never
/// expires. Throws a Failure at a damaged record.
void erase_expired(const Catalog &catalog, time_t now, WriteBatch &batch, const RecordProgress &progress = no_progress);

/// index_entries returns the entries of all records that can be read, in the order of the file. `visit` receives each
/// with its record.
using EntryVisitor = std::function<void(const IndexEntry &entry, std::string_view record)>;
std::vector<IndexEntry> index_entries(const Catalog &catalog, const EntryVisitor &visit);

/// write_index puts an index with these entries, which it sorts, in the place of a file. A new file gets owner, group
/// and permissions of the database.
void write_index(const std::string &path, const std::string &database, std::vector<IndexEntry> entries);

/// each_unclassified visits the URL of each description without "classification", in the order of the entries. The
/// index they come from may be older than the catalog.
void each_unclassified(const Catalog &catalog, const std::vector<IndexEntry> &entries,
                       const std::function<void(const std::string &url)> &visit);

}  // namespace rdm::catalog

#endif
