// SPDX-License-Identifier: MIT
/// Maintenance of a catalog: erasing expired descriptions, writing the index, finding descriptions without
/// classification. Each procedure that reads records throws a Failure at the first damaged one.
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

/// RecordProgress is called after each record that was read, with its size in bytes.
using RecordProgress = std::function<void(int64_t bytes)>;
inline const RecordProgress no_progress = [](int64_t) {};

/// erase_expired adds to a batch the erasure of each description whose "rd-expires" is before `now`, in seconds since
/// 1970. A description whose "rd-expires" cannot be parsed does not expire. Of a description that the batch changes,
/// the new record counts. Returns the number of erasures.
int64_t erase_expired(const Catalog &catalog, time_t now, WriteBatch &batch,
                      const RecordProgress &progress = no_progress);

/// index_entries returns the index entries of all records, in the order of the file. `visit` receives each entry with
/// its record.
using EntryVisitor = std::function<void(const IndexEntry &entry, std::string_view record)>;
std::vector<IndexEntry> index_entries(const Catalog &catalog, const EntryVisitor &visit);

/// sorted_index returns the bytes of the index file with these entries, after sorting them.
std::string sorted_index(std::vector<IndexEntry> entries);

/// write_index sorts the entries and replaces the index at `path` with them, atomically. If there is no index yet,
/// owner, group and mode are copied from the database. A Failure leaves the old index, unless its text says that it is
/// replaced.
void write_index(const std::string &path, const std::string &database, std::vector<IndexEntry> entries);

/// each_unclassified visits the URL of each description without "classification" or its numbered instances, in the
/// order of the entries. Entries whose description has been deleted are passed over.
void each_unclassified(const Catalog &catalog, const std::vector<IndexEntry> &entries,
                       const std::function<void(const std::string &url)> &visit);

}  // namespace rdm::catalog

#endif
