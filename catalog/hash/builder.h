// SPDX-License-Identifier: MIT
/// Writing hash files of the Berkeley DB 1.85 format at their final size.
#ifndef CATALOG_HASH_BUILDER_H
#define CATALOG_HASH_BUILDER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "catalog/hash/bucket_writer.h"
#include "catalog/hash/table.h"

namespace rdm::catalog {

/// RecordRef is a record to be written: all that the layout of the file depends on, and where its bytes are.
struct RecordRef {
  uint32_t hash;        // of the key
  uint32_t key_size;    // bytes, at most a quarter of a page
  uint32_t value_size;  // bytes
  int64_t offset;       // for the caller; of equal hashes the lower is written first
};

/// RecordLoader returns the bytes of a record; they are used before the next call.
using RecordLoader = std::function<Record(const RecordRef &)>;

/// Advance is told how much has been done since the last call; it may be empty.
using Advance = std::function<void(int64_t records, int64_t bytes)>;

/// build_hash_file fills an empty file. It chooses page size and number of buckets from the records, whose order it
/// changes, and reads the file back: every bucket must hold exactly its records, byte for byte. `trailer` is written
/// with the number of overflow pages filled in. Throws a Failure when the records cannot be stored or are not read
/// back.
void build_hash_file(const File &file, std::vector<RecordRef> &refs, const RecordLoader &load, Trailer trailer,
                     const Advance &advance = {});

/// for_each_bucket calls a procedure with each bucket that has records, and their range. They are sorted by bucket.
template <typename Procedure>
void for_each_bucket(const hashdb::Header &header, const std::vector<RecordRef> &refs, Procedure procedure) {
  for (auto first = refs.data(), end = first + refs.size(); first != end;) {
    const uint32_t bucket = bucket_of(header, first->hash);
    auto last = first;
    while (last != end && bucket_of(header, last->hash) == bucket) ++last;
    procedure(bucket, first, last);
    first = last;
  }
}

/// planned_header returns the header of a file as build_hash_file lays it out, without a count of records: `planned`
/// overflow pages, and those beyond them that changes have added since.
hashdb::Header planned_header(uint32_t page_shift, uint32_t doublings, uint32_t planned, uint32_t overflow_pages);

/// pages_of returns how many pages a file has.
uint64_t pages_of(const hashdb::Header &header);

/// write_header writes the header, without what follows it.
void write_header(const File &file, const hashdb::Header &header);

}  // namespace rdm::catalog

#endif
