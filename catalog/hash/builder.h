/// Writing hash files of the Berkeley DB 1.85 format at their final size.
#ifndef CATALOG_HASH_BUILDER_H
#define CATALOG_HASH_BUILDER_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "catalog/hash/bucket_writer.h"
#include "catalog/hash/table.h"

namespace catalog {

/// Item is a record to be written: all that the layout of the file depends on, and where its bytes are.
struct Item {
  uint32_t hash;        // of the key
  uint32_t key_size;    // bytes, at most a quarter of a page
  uint32_t value_size;  // bytes
  int64_t place;        // for the caller; of equal hashes the lower is written first
};

/// Fetch brings the bytes of an item; they are used before the next is fetched.
using Fetch = std::function<Record(const Item &)>;

/// Advance is told how much has been done since the last call; it may be empty.
using Advance = std::function<void(int64_t records, int64_t bytes)>;

/// write_hash_file fills an empty file. It chooses page size and number of buckets from the items, whose order it
/// changes, and reads the file back: every bucket must hold exactly its items, byte for byte. `stamp` is written with
/// the number of overflow pages filled in. Throws a Failure when the records cannot be stored or are not read back.
void write_hash_file(const File &file, std::vector<Item> &items, const Fetch &fetch, Stamp stamp,
                     const Advance &advance = {});

/// for_each_bucket calls a procedure with each bucket that has items, and their range. They are sorted by bucket.
template <typename Procedure>
void for_each_bucket(const hashdb::Header &header, const std::vector<Item> &items, Procedure procedure) {
  for (auto first = items.data(), end = first + items.size(); first != end;) {
    const uint32_t bucket = bucket_of(header, first->hash);
    auto last = first;
    while (last != end && bucket_of(header, last->hash) == bucket) ++last;
    procedure(bucket, first, last);
    first = last;
  }
}

/// planned_header returns the header of a file as write_hash_file lays it out, without a count of records: `planned`
/// overflow pages, and those beyond them that changes have added since.
hashdb::Header planned_header(uint32_t page_shift, uint32_t doublings, uint32_t planned, uint32_t overflow_pages);

/// pages_of returns how many pages a file has.
uint64_t pages_of(const hashdb::Header &header);

/// write_header writes the header, without what follows it.
void write_header(const File &file, const hashdb::Header &header);

}  // namespace catalog

#endif
