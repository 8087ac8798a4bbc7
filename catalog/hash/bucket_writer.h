// SPDX-License-Identifier: MIT
/// Laying out the records of one bucket on its pages.
#ifndef CATALOG_HASH_BUCKET_WRITER_H
#define CATALOG_HASH_BUCKET_WRITER_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "catalog/os/file.h"
#include "hashdb/format.h"

namespace rdm::catalog {

struct Record {
  std::string_view key;
  std::string_view value;
};

/// BucketWriter writes the pages of one bucket after the other: the primary page, then overflow pages, whose addresses
/// it asks for. In a bucket, short records come first and long ones last.
class BucketWriter {
 public:
  using Allocate = std::function<uint16_t()>;

  BucketWriter(const hashdb::Header &header, const File &file, Allocate allocate);
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

  const hashdb::Header &header_;
  const File &file_;
  Allocate allocate_;
  std::string page_;
  uint64_t page_number_ = 0;
  uint32_t slots_ = 0;
  uint32_t data_start_ = 0;
};

/// is_long says whether a record takes pages of its own.
bool is_long(const hashdb::Header &header, uint32_t key_size, uint32_t value_size);

/// fits_key says whether the pages are large enough for a key of this size.
constexpr bool fits_key(const hashdb::Header &header, uint32_t key_size) { return 4 * key_size <= header.page_size; }

/// PageCount counts the overflow pages that a bucket needs, its records added as a BucketWriter gets them.
class PageCount {
 public:
  explicit PageCount(const hashdb::Header &header) : header_(header) {}
  void add(uint32_t key_size, uint32_t value_size);
  uint32_t pages() const { return pages_; }

 private:
  const hashdb::Header &header_;
  uint32_t pages_ = 0;
  uint32_t used_ = 0;  // bytes of the page in work, 0 before the first record
};

}  // namespace rdm::catalog

#endif
