// SPDX-License-Identifier: MIT
/// Changing a few records in a copy of a hash file.
#ifndef CATALOG_HASH_EDITOR_H
#define CATALOG_HASH_EDITOR_H

#include <cstdint>
#include <string>
#include <vector>

#include "catalog/hash/builder.h"
#include "catalog/hash/table.h"

namespace rdm::catalog {

/// erased_value is the value_size of a RecordRef whose record is to be erased.
constexpr uint32_t erased_value = UINT32_MAX;

/// edit_hash_file copies `old` into an empty file and puts or erases the records of `refs`, at most one for a key. It
/// sorts `refs`. `load` returns the bytes of a put. The buckets that change are written again, on their own pages
/// first, and compared byte for byte. Then `trailer` is written, the whole file is read once, and `check`, which may be
/// empty, is called with each record.
///
/// Returns false and leaves the file empty if the caller must write a whole file with build_hash_file instead: `old`
/// was not made by this library, most buckets change, the records have become too many or too long for the layout,
/// there is no free page, the bitmaps mark a used page as free, the comparison fails, or `check` throws a Failure.
/// Throws a Failure if a file cannot be read or written.
bool edit_hash_file(const HashTable &old, const File &file, std::vector<RecordRef> &refs, const RecordLoader &load,
                    Trailer trailer, const HashTable::Visitor &check = {});

}  // namespace rdm::catalog

#endif
