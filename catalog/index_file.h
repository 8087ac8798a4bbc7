// SPDX-License-Identifier: MIT
/// The index of a catalog: its descriptions by the time of their last change.
#ifndef CATALOG_INDEX_FILE_H
#define CATALOG_INDEX_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dba/index_format.h"

namespace rdm::catalog {

using IndexEntry = index_format::Entry;

/// entry_of returns the entry of a record, whose change time is given.
IndexEntry entry_of(uint32_t number, std::string_view record, int64_t change_time);

/// precedes is the order of an index: by time, then number.
bool precedes(const IndexEntry &a, const IndexEntry &b);

/// encode returns an index as the bytes of its file; decode the entries of such bytes, in the order they stand in.
/// decode throws a Failure that names `path` when they are no index.
std::string encode(const std::vector<IndexEntry> &entries);
std::vector<IndexEntry> decode(std::string_view bytes, const std::string &path);

/// read_index returns the entries of an index file.
std::vector<IndexEntry> read_index(const std::string &path);

}  // namespace rdm::catalog

#endif
