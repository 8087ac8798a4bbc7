// SPDX-License-Identifier: MIT
/// Writing the records of a bucket to its pages.
#ifndef CATALOG_HASH_BUCKET_WRITER_H
#define CATALOG_HASH_BUCKET_WRITER_H

#include <cstdint>
#include <functional>
#include <string_view>

#include "catalog/os/run_writer.h"
#include "hashdb/format.h"

namespace rdm::catalog {

/// Record is a key and a value, which belong to their source.
struct Record {
  std::string_view key;
  std::string_view value;
};

/// BucketWriter writes one bucket after the other: its primary page, then overflow pages. Header and output must
/// outlive it; the caller flushes the output. Its procedures throw a SystemFailure if a page cannot be written, and
/// pass on exceptions of `allocate`.
class BucketWriter {
 public:
  /// Allocate returns the address of an unused overflow page.
  using Allocate = std::function<uint16_t()>;

  BucketWriter(const hashdb::Header &header, RunWriter &output, Allocate allocate);
  /// start begins a bucket, add appends a record to it, finish writes its last page. Short records must be added before
  /// long ones.
  void start(uint32_t bucket);
  void add(const Record &record);
  void finish();

 private:
  void open(uint64_t page_number);
  void close();
  void set(uint32_t slot, uint32_t number);
  void put(const Record &record);
  void put_long(const Record &record);
  void chain();

  const hashdb::Header &header_;
  RunWriter &output_;
  Allocate allocate_;
  char *page_ = nullptr;     // the current page, in output_
  uint32_t slots_ = 0;       // on the current page
  uint32_t data_start_ = 0;  // offset in the current page
};

/// is_long returns true if a record of these sizes takes pages of its own.
bool is_long(const hashdb::Header &header, uint32_t key_size, uint32_t value_size);

/// fits_key returns true if a page is large enough for a key of this size: four times the key.
constexpr bool fits_key(const hashdb::Header &header, uint32_t key_size) { return 4 * key_size <= header.page_size; }

/// PageCount counts the overflow pages that a BucketWriter allocates for a bucket. The header must outlive it.
class PageCount {
 public:
  explicit PageCount(const hashdb::Header &header) : header_(header) {}
  /// add adds a record by its sizes; records are added in the order in which they are written.
  void add(uint32_t key_size, uint32_t value_size);
  uint32_t pages() const { return pages_; }

 private:
  const hashdb::Header &header_;
  uint32_t pages_ = 0;
  uint32_t used_ = 0;  // bytes of the current page; 0 before the first record
};

}  // namespace rdm::catalog

#endif
