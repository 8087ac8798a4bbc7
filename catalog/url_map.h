// SPDX-License-Identifier: MIT
/// The URL map, DATABASE.url: a hash file that maps URLs to the numbers of descriptions.
#ifndef CATALOG_URL_MAP_H
#define CATALOG_URL_MAP_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "catalog/hash/builder.h"
#include "catalog/hash/table.h"
#include "catalog/os/atomic_file.h"
#include "catalog/os/file.h"

namespace rdm::catalog {

/// UrlMap is the map of one snapshot of a database. The trailer of the map names the database by its file identity.
class UrlMap {
 public:
  /// path_for returns the path of the map of a database.
  static std::string path_for(const std::string &database) { return database + ".url"; }
  /// open returns the map beside a database, or std::nullopt if there is none, if it is not a sound hash file, or if it
  /// belongs to another file than the open one. If a system call keeps it from being read, `error` is set to its
  /// message, otherwise cleared.
  static std::optional<UrlMap> open(const HashTable &database, std::string &error);

  /// number_of returns the number of a URL, or std::nullopt if the map does not have it. Throws a Failure if the bucket
  /// is damaged.
  std::optional<uint32_t> number_of(std::string_view url) const;
  /// next_number returns the smallest number that no description of the catalog has had, or 0 if all are used.
  uint32_t next_number() const { return table_.trailer()->next_number; }

  /// newest_change returns the newest time of change that the catalog has given, or std::nullopt in a map of an earlier
  /// version.
  std::optional<time_t> newest_change() const { return table_.trailer()->newest_change; }

  /// has_checksum returns false for a map of an earlier version. is_damaged reads the whole map and returns true if its
  /// bytes do not match the checksum.
  bool has_checksum() const { return table_.trailer()->content.has_value(); }
  bool is_damaged() const { return has_checksum() && content_checksum(table_.file()) != *table_.trailer()->content; }

  /// each visits every URL and its number, 0 for a malformed one. Throws a Failure at damage.
  using Visitor = std::function<void(std::string_view url, uint32_t number)>;
  void each(const Visitor &visit) const;
  const HashTable &table() const { return table_; }

 private:
  explicit UrlMap(HashTable table) : table_(std::move(table)) {}

  HashTable table_;
};

/// seal writes the checksum of a map into its trailer. Call it last. Throws a Failure if the file has no trailer.
void seal(const File &map);

/// UrlItems collects the records of a new map. Their bytes are in scratch files.
class UrlItems {
 public:
  /// UrlItems creates its scratch file in the directory of `beside`.
  explicit UrlItems(const std::string &beside) : texts_(beside) {}
  /// reserve takes the memory for so many records at once, so that it need not grow.
  void reserve(int64_t count) { refs_.reserve(static_cast<size_t>(count)); }
  /// add adds a URL that was not added before.
  void add(std::string_view url, uint32_t number);
  /// add_from adds a URL of `size` bytes that was not added before. URL and database key are at an offset of `texts`,
  /// which must outlive this object and be the same in all calls. No call of add may follow.
  void add_from(const ScratchFile &texts, int64_t offset, uint32_t hash, uint32_t size);
  /// write writes all records as the map of the open file `database` to `output`, which the caller commits.
  void write(const AtomicFile &output, const File &database, uint32_t next_number, time_t newest_change);

 private:
  void read(const RecordRef &ref, std::string &text) const;

  ScratchFile texts_;
  const ScratchFile *others_ = nullptr;  // their offsets follow those of texts_
  std::vector<RecordRef> refs_;
};

/// UrlScan searches a catalog without a map: it keeps the 32-bit hash and the number of each URL in memory.
class UrlScan {
 public:
  void add(std::string_view url, uint32_t number);
  /// sort must be called after the last add and before candidates.
  void sort();
  /// candidates returns the numbers of all URLs with the hash of this URL, in ascending order. The caller compares the
  /// URLs themselves.
  std::vector<uint32_t> candidates(std::string_view url) const;
  /// next_number returns the number after the highest one that was added; 0 after the last number.
  uint32_t next_number() const { return highest_ + 1; }

 private:
  std::vector<std::pair<uint32_t, uint32_t>> entries_;  // hash and number
  uint32_t highest_ = 0;
};

}  // namespace rdm::catalog

#endif
