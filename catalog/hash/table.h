// SPDX-License-Identifier: MIT
/// Reading the records of a hash file.
#ifndef CATALOG_HASH_TABLE_H
#define CATALOG_HASH_TABLE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/hash/trailer.h"
#include "hashdb/cursor.h"

namespace rdm::catalog {

/// HashTable is a hash file, open for reading. One thread at a time may use it.
class HashTable {
 public:
  /// HashTable opens a file. Throws a Failure that names it if it is not a regular file with a sound header, and a
  /// SystemFailure if it cannot be read.
  explicit HashTable(const std::string &path);

  /// get returns the value of a key, or std::nullopt if there is none. Throws a Failure if the bucket is damaged.
  std::optional<std::string> get(std::string_view key) const;

  /// Visitor receives a record; key and value are valid during the call.
  using Visitor = std::function<void(std::string_view key, std::string_view value)>;
  /// Linked receives the addresses of the overflow pages of a bucket, after its records.
  using Linked = std::function<void(const std::vector<uint16_t> &addresses)>;
  /// each visits every record, in the order of the file. Throws a Failure at the first fault that each_sound would
  /// report. `linked` may be empty.
  void each(const Visitor &visit, const Linked &linked = {}) const;

  /// Fault receives a damaged record and the reason, or only a reason (key and value are empty).
  using Fault = std::function<void(std::string_view key, std::string_view value, const std::string &reason)>;
  /// each_sound visits every record that `get` finds by its key. It reports other records, damaged pages and, for a
  /// file of this library, that there are fewer records than the header counts.
  void each_sound(const Visitor &visit, const Fault &fault, const Linked &linked = {}) const;

  const std::string &path() const { return state_->file.name(); }
  const File &file() const { return state_->file; }
  const hashdb::Header &header() const { return state_->source.header; }
  const hashdb::Source &source() const { return state_->source; }
  /// trailer returns the trailer, or std::nullopt in a file that this library has not written.
  const std::optional<Trailer> &trailer() const { return state_->trailer; }
  /// buckets returns the number of buckets whose primary page is within the file. The other buckets are empty.
  uint32_t buckets() const;

 private:
  struct State {
    explicit State(File opened);
    File file;
    hashdb::Source source;
    std::optional<Trailer> trailer;
    hashdb::Cursor by_key;
  };
  bool is_only(std::string_view key, uint32_t bucket) const;

  std::unique_ptr<State> state_;
};

/// BucketReader reads the records of a table bucket by bucket. The table must outlive it.
class BucketReader {
 public:
  explicit BucketReader(const HashTable &table);
  BucketReader(const BucketReader &) = delete;
  BucketReader &operator=(const BucketReader &) = delete;

  /// start begins a bucket. next moves to its next record and returns false at the end. Throws a Failure if the bucket
  /// is damaged.
  void start(uint32_t bucket);
  bool next();
  /// key and value return the current record; valid until next or start.
  std::string_view key() const { return cursor_.key(); }
  std::string_view value() const { return cursor_.value(); }
  /// overflow returns the addresses of the overflow pages of this bucket that were read so far; all of them after next
  /// has returned false.
  const std::vector<uint16_t> &overflow() const { return overflow_; }

 private:
  const HashTable &table_;
  hashdb::Cursor cursor_;
  std::vector<uint16_t> overflow_;
};

/// hash_of returns the hash of a key.
inline uint32_t hash_of(std::string_view key) { return hashdb::default_hash(key.data(), key.size()); }

}  // namespace rdm::catalog

#endif
