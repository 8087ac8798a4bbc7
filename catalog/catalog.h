// SPDX-License-Identifier: MIT
/// Reading a catalog: its descriptions by number and by URL.
///
/// A number identifies a description, from 1; a record is the SOIF text of a description, as print returns it. A
/// procedure that reads files throws a SystemFailure for a failed system call and a Failure for a damaged file; both
/// name the file. A catalog caches data of the files, so one thread at a time may use it, even through const
/// procedures.
#ifndef CATALOG_CATALOG_H
#define CATALOG_CATALOG_H

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/hash/table.h"
#include "catalog/known_records.h"
#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "catalog/os/lock.h"
#include "catalog/record.h"
#include "catalog/url_map.h"
#include "libcs/guard.h"

namespace rdm::catalog {

/// IfMissing selects the result of opening a catalog without a database file: `error` throws a Failure, `empty` opens a
/// catalog without descriptions. `assumed` opens one without looking for the file: a commit replaces it, sound or
/// damaged.
enum class IfMissing { error, empty, assumed };

/// Catalog is one snapshot, open for reading. It needs neither the lock nor permission to write. The open file stays
/// readable after a writer has renamed another one over it.
class Catalog {
 public:
  /// Catalog opens the database at a path and, if there is one of this snapshot, its URL map.
  explicit Catalog(std::string database, IfMissing if_missing = IfMissing::error);

  /// exists returns false for a catalog that was opened without a database file.
  bool exists() const { return table_.has_value(); }
  /// path returns the path of the database.
  const std::string &path() const { return path_; }

  /// get returns the record of a number, or std::nullopt if there is none or skip_damaged has left it out.
  std::optional<std::string> get(uint32_t number) const;
  /// number_of returns the number of the description with this URL, the lowest if there are several, or std::nullopt if
  /// there is none. It asks the URL map. Without a map of this snapshot, or if a damaged map does not have the URL, it
  /// reads the whole catalog once. A map that leads to a description with another URL is a Failure.
  std::optional<uint32_t> number_of(std::string_view url) const;
  /// next_number returns a number that no description of this catalog has had, deleted ones included, or 0 if all are
  /// used. Like number_of, it may read the whole catalog.
  uint32_t next_number() const;

  /// newest_change returns the newest time of change that this catalog is known to have given, or 0 if none. The URL
  /// map holds it. Without a map of this snapshot, or with one of an earlier version, newest_change reads the whole
  /// catalog once and ignores damaged records.
  time_t newest_change() const;

  /// newest_given returns the newest time of change that minidba has given in this database, as the file's trailer
  /// says, or std::nullopt without a trailer. Another program may have written later times.
  std::optional<time_t> newest_given() const;

  /// Visitor receives a description; `record` is valid during the call.
  using Visitor = std::function<void(uint32_t number, std::string_view record)>;
  /// each visits every description, in the order of the file.
  void each(const Visitor &visit) const;

  /// remember keeps the entries of an index: each_to_copy, check_copied and skip_damaged compare records with them.
  void remember(KnownRecords known) { known_ = std::move(known); }
  /// each_to_copy visits every description for which `skip` does not return true; `skip` may be empty. A visited record
  /// that contradicts the index is a Failure.
  using Predicate = std::function<bool(uint32_t number)>;
  void each_to_copy(const Visitor &visit, const Predicate &skip = {}) const;
  /// check_copied throws the Failure that each_to_copy throws for a record, which a copy has under `key`. `skip` must
  /// not be empty.
  void check_copied(std::string_view key, std::string_view record, const Predicate &skip) const;

  /// skip_damaged reads the whole catalog. From then on, no procedure returns or visits a damaged record. `report`
  /// receives a line about each record and page that is left out, and about each record that the URL map names and no
  /// page holds. If anything is left out, the URL map is not used any more.
  using FaultCallback = std::function<void(const std::string &fault)>;
  void skip_damaged(const FaultCallback &report);
  /// is_partial returns true if skip_damaged has left out anything; left_out returns how many records and pages.
  bool is_partial() const { return left_out_ > 0; }
  int64_t left_out() const { return left_out_; }
  /// hides returns true if the record of a number was left out, or a damaged page keeps it from being found.
  bool hides(uint32_t number) const;
  /// damaged returns a line for a user about a damaged record: number, URL, path and `fault`. The URL is taken from the
  /// record or, if the record holds no object, from the URL map. refused returns a Failure with this line, which also
  /// names the option that leaves damaged records out.
  std::string damaged(uint32_t number, std::string_view record, const std::string &fault) const;
  Failure refused(uint32_t number, std::string_view record, const std::string &fault) const;

  /// predates returns true if a file, given by its status, was last written before the catalog was made or replaced as
  /// a whole.
  bool predates(const struct stat &file) const;

  /// each_url visits every URL with the number of its description, the lowest if there are several. free_number returns
  /// a number that no description has had, never below next_number. Both read the records instead of the map.
  void each_url(const UrlMap::Visitor &visit) const;
  uint32_t free_number() const;

  /// table returns the database. Only for a catalog that exists.
  const HashTable &table() const { return *table_; }
  /// url_map returns the URL map of this snapshot, or null if there is none. It belongs to the catalog.
  const UrlMap *url_map() const { return urls_ ? &*urls_ : nullptr; }
  /// map_error returns the message of the failed system call that kept the URL map from being read; empty if none
  /// failed.
  const std::string &map_error() const { return map_error_; }
  /// has_damaged_map returns true if the URL map is of this snapshot and its checksum does not match. It reads the
  /// whole map once. drop_damaged_map stops the use of such a map and returns true if there was one.
  bool has_damaged_map() const;
  bool drop_damaged_map();
  /// renew_url_map writes the URL map from the records, unless there is one of this snapshot with a checksum. It
  /// replaces the file atomically; the caller holds the lock of the catalog.
  void renew_url_map(const Lock &lock);

 private:
  const UrlScan &scan() const;
  std::optional<uint32_t> mapped(std::string_view url) const;
  time_t find_newest_change() const;
  std::optional<std::string> url_in_map(uint32_t number) const;
  void report_lost(const FaultCallback &report) const;
  bool is_lost(uint32_t number) const;
  std::string damaged_key(std::string_view key, std::string_view record, const std::string &fault) const;
  std::string fault_of(uint32_t number, std::string_view record) const;

  std::string path_;
  std::optional<HashTable> table_;
  std::string map_error_;
  std::optional<UrlMap> urls_;
  mutable std::optional<bool> map_is_damaged_;  // std::nullopt until has_damaged_map has read the map
  mutable std::optional<time_t> newest_change_;
  mutable std::optional<UrlScan> scan_;  // used instead of the map if there is none
  KnownRecords known_;
  mutable bool is_checked_ = false;  // each_to_copy has compared every record with the index
  int64_t left_out_ = 0;
  std::set<uint32_t> skipped_;
};

/// index_path returns the path of the index beside a database.
std::string index_path(const std::string &database);

/// known_records returns the entries of the index at a path, or beside the database if the path is empty. The result is
/// empty if there is no index, if the index is of an earlier catalog of this name, or if it cannot be read;
/// `unreadable` then receives the reason.
KnownRecords known_records(
    const Catalog &catalog, const std::string &index = "",
    const std::function<void(const std::string &reason)> &unreadable = [](const std::string &) {});

/// read_outline returns the outline of a record (outline_of). Throws Catalog::refused if the record holds no object.
Outline read_outline(const Catalog &catalog, uint32_t number, std::string_view record);
Outline read_outline(const Catalog &catalog, uint32_t number, std::string_view record, LastTime &last_time);

/// parse_record returns the object of a record. parse_attributes returns it with only the attributes of these
/// lower-case names and their numbered instances. The object belongs to the caller. Both throw Catalog::refused if the
/// record holds no object.
SoifPtr parse_record(const Catalog &catalog, uint32_t number, std::string_view record);
SoifPtr parse_attributes(const Catalog &catalog, uint32_t number, std::string_view record,
                         const std::vector<std::string> &names);

}  // namespace rdm::catalog

#endif
