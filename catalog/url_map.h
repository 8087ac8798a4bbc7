// SPDX-License-Identifier: MIT
/// Which description has which number: the hash file DATABASE.url.
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

/// UrlMap is the map of one snapshot of a database, which its trailer names.
class UrlMap {
 public:
  static std::string path_for(const std::string &database) { return database + ".url"; }
  /// open returns nothing where there is no sound map of the very file that is open, whatever has its name by now.
  /// `obstacle` is set to what the system said where it kept a map from being read.
  static std::optional<UrlMap> open(const HashTable &database, std::string &obstacle);

  std::optional<uint32_t> number_of(std::string_view url) const;
  /// next_number returns the smallest number that no description of the catalog has had, 0 when none is left.
  uint32_t next_number() const { return table_.trailer()->next_number; }

  /// newest_change returns the newest time of change that the catalog has given, nothing if the map was written without
  /// it.
  std::optional<time_t> newest_change() const { return table_.trailer()->newest_change; }

  /// has_checksum returns false if an earlier version has written the map. is_damaged returns true if the bytes of the
  /// map are not those that its checksum was made of; it reads all of them.
  bool has_checksum() const { return table_.trailer()->content.has_value(); }
  bool is_damaged() const { return has_checksum() && content_checksum(table_.file()) != *table_.trailer()->content; }

  using Visitor = std::function<void(std::string_view url, uint32_t number)>;
  void each(const Visitor &visit) const;
  const HashTable &table() const { return table_; }

 private:
  explicit UrlMap(HashTable table) : table_(std::move(table)) {}

  HashTable table_;
};

/// seal puts the checksum of a map that is written otherwise into its trailer.
void seal(const File &map);

/// UrlItems are the records of a map that is to be written; their bytes lie in a scratch file.
class UrlItems {
 public:
  /// The scratch file is made beside `beside`.
  explicit UrlItems(const std::string &beside) : texts_(beside) {}
  void add(std::string_view url, uint32_t number);
  /// write makes the map of the file `database`.
  void write(const AtomicFile &output, const File &database, uint32_t next_number, time_t newest_change);

 private:
  ScratchFile texts_;
  std::vector<RecordRef> refs_;
};

/// UrlScan is what a catalog without a map is searched with: the hash of each URL and its number.
class UrlScan {
 public:
  void add(std::string_view url, uint32_t number);
  /// sort comes after the last add and before the first candidates.
  void sort();
  /// candidates returns the numbers among which that of a URL is, if it has one, lowest first.
  std::vector<uint32_t> candidates(std::string_view url) const;
  uint32_t next_number() const { return highest_ + 1; }

 private:
  std::vector<std::pair<uint32_t, uint32_t>> entries_;  // hash and number
  uint32_t highest_ = 0;
};

}  // namespace rdm::catalog

#endif
