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

/// HashTable is an existing file, open for reading.
class HashTable {
 public:
  /// Throws a Failure that names the file when it is not a sound hash file.
  explicit HashTable(const std::string &path);

  std::optional<std::string> get(std::string_view key) const;

  using Visitor = std::function<void(std::string_view key, std::string_view value)>;
  /// Linked is told which overflow pages a bucket goes on to, by their addresses.
  using Linked = std::function<void(const std::vector<uint16_t> &addresses)>;
  /// each visits every record, in the file's order. Throws a Failure at the first damaged one, and at the end when a
  /// file of ours holds another number of records than it should. `linked` may be empty.
  void each(const Visitor &visit, const Linked &linked = {}) const;

  /// Fault is a record that cannot be found by its key, or a page (then key and value are empty), and what is wrong
  /// with it.
  using Fault = std::function<void(std::string_view key, std::string_view value, const std::string &what)>;
  /// each_sound visits every record that can be found by its key, and reports the others and the damaged pages.
  void each_sound(const Visitor &visit, const Fault &fault, const Linked &linked = {}) const;

  const std::string &path() const { return state_->file.name(); }
  const File &file() const { return state_->file; }
  const hashdb::Header &header() const { return state_->source.header; }
  const hashdb::Source &source() const { return state_->source; }
  /// trailer returns what the file says about itself, nothing when another program made it.
  const std::optional<Trailer> &trailer() const { return state_->trailer; }
  /// buckets returns how many buckets lie within the file; others are empty.
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

/// BucketReader reads one bucket after the other. The table must outlive it.
class BucketReader {
 public:
  explicit BucketReader(const HashTable &table);
  BucketReader(const BucketReader &) = delete;
  BucketReader &operator=(const BucketReader &) = delete;

  void start(uint32_t bucket);
  /// next goes to the next record, false at the end of the bucket. Throws a Failure when the bucket is damaged.
  bool next();
  /// key and value stay as they are until the next step.
  std::string_view key() const { return cursor_.key(); }
  std::string_view value() const { return cursor_.value(); }
  /// overflow returns the addresses of the overflow pages met in this bucket: all of them once next returned false.
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
