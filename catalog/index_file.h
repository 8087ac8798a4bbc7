// SPDX-License-Identifier: MIT
/// The index of a catalog: an entry for each description, sorted by the time of its last change.
#ifndef CATALOG_INDEX_FILE_H
#define CATALOG_INDEX_FILE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "dba/index_format.h"

namespace rdm::catalog {

using IndexEntry = index_format::Entry;

/// entry_of returns the index entry of a record: its number, its size and CRC-32, and its time of change in seconds
/// since 1970, which is limited to the 32 bits of an entry.
IndexEntry entry_of(uint32_t number, std::string_view record, int64_t change_time);

/// precedes returns true if `a` comes before `b` in an index: by time, then by number.
bool precedes(const IndexEntry &a, const IndexEntry &b);

/// encode returns the bytes of an index file with these entries, in their order. decode returns the entries of such
/// bytes, in their order; it throws a Failure that names `path` if the bytes are not an index.
std::string encode(const std::vector<IndexEntry> &entries);
std::vector<IndexEntry> decode(std::string_view bytes, const std::string &path);

/// content_of returns the bytes of a regular file. Throws a Failure if it is another one, and a SystemFailure if it
/// cannot be read.
std::string content_of(const std::string &path);

/// read_index returns the entries of an index file, which may be a pipe. Throws a SystemFailure if the file cannot be
/// read, and a Failure if it is not an index.
std::vector<IndexEntry> read_index(const std::string &path);

}  // namespace rdm::catalog

#endif
