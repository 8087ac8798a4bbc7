// SPDX-License-Identifier: MIT
/// Changing some records of a hash file: the rest is copied as it stands.
#ifndef CATALOG_HASH_EDITOR_H
#define CATALOG_HASH_EDITOR_H

#include <cstdint>
#include <string>
#include <vector>

#include "catalog/hash/builder.h"
#include "catalog/hash/table.h"

namespace rdm::catalog {

/// The value size of a record that is to be erased.
constexpr uint32_t erased_value = UINT32_MAX;

/// edit_hash_file fills an empty file with the records of `old` and the changes: each record, of which there is one
/// for a key, is put or erased. It works bucket by bucket: the records of a bucket that changes are written anew, on
/// its own pages first, and read back byte for byte; then all of the new file is walked once.
///
/// False, and the file is empty again, when a file written as a whole is the better one: `old` was not made by this
/// library, most buckets change, records have become too many or too long for its pages, no page is free, or its
/// bitmaps have offered a page that is in use, or `check` has thrown a Failure over a record of the new file. Throws a
/// Failure when a file cannot be read or written.
bool edit_hash_file(const HashTable &old, const File &file, std::vector<RecordRef> &refs, const RecordLoader &load,
                    Trailer trailer, const HashTable::Visitor &check = {});

}  // namespace rdm::catalog

#endif
