/// Writing hash files of the Berkeley DB 1.85 format at their final size.
#ifndef MINIDBA_HASH_WRITER_H
#define MINIDBA_HASH_WRITER_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "dba/hash_file.h"

namespace minidba {

/// Item is a record to be written: all that the layout of the file depends on, and where its bytes are.
struct Item {
  uint32_t hash;        // of the key
  uint32_t key_size;    // bytes, less than a quarter of a page
  uint32_t value_size;  // bytes
  int64_t place;        // for the caller; of equal hashes the lower is written first
};

struct Record {
  std::string_view key;
  std::string_view value;
};

/// Fetch brings the bytes of an item; they are used before the next is fetched.
using Fetch = std::function<Record(const Item &)>;

/// Pages are written as one bucket after the other is laid out; only overflow pages need an address.
class BucketWriter {
 public:
  using Allocate = std::function<uint16_t()>;

  BucketWriter(const hash_file::Header &header, int file, Allocate allocate);
  void start(uint32_t bucket);
  void add(const Record &record);
  void finish();

 private:
  void clear();
  void set(uint32_t index, uint32_t number);
  void put(const Record &record);
  void put_long(const Record &record);
  uint64_t chain();
  void flush(uint64_t next_page);

  const hash_file::Header &header_;
  int file_;
  Allocate allocate_;
  std::string page_;
  uint64_t page_number_ = 0;
  uint32_t slots_ = 0;
  uint32_t data_start_ = 0;
};

/// is_long says whether a record takes pages of its own.
bool is_long(const hash_file::Header &header, uint32_t key_size, uint32_t value_size);

/// overflow_pages returns how many overflow pages a bucket needs, its items short ones first.
uint32_t overflow_pages(const hash_file::Header &header, const Item *first, const Item *last);

/// sort_by_bucket puts items in the order they are written in: by bucket, long records last.
void sort_by_bucket(const hash_file::Header &header, std::vector<Item> &items);

/// write_hash_file fills an empty file, given by its descriptor. It chooses page size and number of buckets from the
/// items, whose order it changes. Throws a Failure when they cannot be stored or the file cannot be written.
void write_hash_file(int file, std::vector<Item> &items, const Fetch &fetch);

}  // namespace minidba

#endif
