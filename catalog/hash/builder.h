// SPDX-License-Identifier: MIT
/// Writing whole hash files of the Berkeley DB 1.85 format, laid out for their records.
#ifndef CATALOG_HASH_BUILDER_H
#define CATALOG_HASH_BUILDER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "catalog/hash/bucket_writer.h"
#include "catalog/hash/table.h"

namespace rdm::catalog {

/// RecordRef is a record to be written: the sizes that the layout of the file depends on, and a reference to its bytes.
struct RecordRef {
  int64_t offset;         // of the bytes, for a RecordLoader; in a bucket, records are written in this order
  uint32_t hash;          // of the key
  uint32_t key_size;      // bytes, at most a quarter of a page
  uint32_t value_size;    // bytes
  uint32_t checksum = 0;  // of key and value; build_hash_file computes it
};

/// RecordLoader returns the bytes of a record, which must stay valid until its next call.
using RecordLoader = std::function<Record(const RecordRef &)>;

/// Advance receives the records and bytes that were written since its last call.
using Advance = std::function<void(int64_t records, int64_t bytes)>;

/// build_hash_file writes records to an empty file. It chooses page size and number of buckets for them, and sorts
/// `refs`. It then reads the file back and compares each record with its checksum. `trailer` is written with its
/// planned_pages set.
/// `advance` may be empty. Throws a Failure if the records do not fit into a hash file or if the comparison fails.
void build_hash_file(const File &file, std::vector<RecordRef> &refs, const RecordLoader &load, Trailer trailer,
                     const Advance &advance = {});

/// for_each_bucket calls `procedure(bucket, first, last)` for each bucket that has records, with their range. `refs`
/// must be sorted by bucket.
template <typename Refs, typename Procedure>
void for_each_bucket(const hashdb::Header &header, Refs &refs, Procedure procedure) {
  for (auto first = refs.data(), end = first + refs.size(); first != end;) {
    const uint32_t bucket = bucket_of(header, first->hash);
    auto last = first;
    while (last != end && bucket_of(header, last->hash) == bucket) ++last;
    procedure(bucket, first, last);
    first = last;
  }
}

/// Layout says where a file has its overflow pages: `present` is what build_hash_file writes, `former` what it wrote
/// first, from the first doubling on.
enum class Layout { present, former };

/// planned_header returns the header that build_hash_file writes for pages of 2^page_shift bytes, 2^doublings buckets
/// and `planned` overflow pages, with a record count of 0. Pages up to `overflow_pages` were added later by changes.
hashdb::Header planned_header(uint32_t page_shift, uint32_t doublings, uint32_t planned, uint32_t overflow_pages,
                              Layout layout = Layout::present);

/// pages_of returns the number of pages of a file.
uint64_t pages_of(const hashdb::Header &header);

/// write_header writes a header to the start of a file and leaves the bytes after it.
void write_header(const File &file, const hashdb::Header &header);

}  // namespace rdm::catalog

#endif
