// SPDX-License-Identifier: MIT
/// A catalog as it stands in its files: the descriptions by number and by URL.
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
#include "catalog/url_map.h"
#include "libcs/guard.h"

namespace rdm::catalog {

/// What opening a catalog that is not there does. Where it is assumed not to be there, what is there is not looked at:
/// a commit replaces it, sound or damaged.
enum class IfMissing { error, empty, assumed };

/// Catalog is a snapshot open for reading. The file it opened stays readable when another takes its place. Reading
/// needs neither the lock nor permission to write; what is damaged is a Failure that names the file.
class Catalog {
 public:
  explicit Catalog(std::string database, IfMissing if_missing = IfMissing::error);

  /// exists is false for a catalog that is yet to be made.
  bool exists() const { return table_.has_value(); }
  /// path is that of the database.
  const std::string &path() const { return path_; }

  std::optional<std::string> get(uint32_t number) const;
  /// number_of returns the number of the description with this URL, the lowest if there are several. It asks the URL
  /// map; without a map of this snapshot, or if a damaged one does not have the URL, it reads the whole catalog once.
  std::optional<uint32_t> number_of(std::string_view url) const;
  /// next_number returns a number that no description of this catalog has had, deleted ones included; 0 when none is
  /// left. It may read the whole catalog, as number_of does.
  uint32_t next_number() const;

  /// newest_change returns the newest time of change that this catalog is known to have given; 0 if none. The map knows
  /// it; without a map of this snapshot, or with one of an earlier version, it reads the whole catalog once and passes
  /// over what is damaged.
  time_t newest_change() const;

  /// newest_given returns the newest time of change that minidba has given in this database, as it says itself; nothing
  /// if it does not. Another program may have written later times.
  std::optional<time_t> newest_given() const;

  using Visitor = std::function<void(uint32_t number, std::string_view record)>;
  /// each visits every description, in the file's order.
  void each(const Visitor &visit) const;

  /// remember has what is copied held against an index.
  void remember(KnownRecords known) { known_ = std::move(known); }
  /// each_to_copy does as each, but a record that contradicts the index is a Failure. `is_left` chooses the
  /// numbers that are passed over unseen; it may be empty.
  using Predicate = std::function<bool(uint32_t number)>;
  void each_to_copy(const Visitor &visit, const Predicate &is_left = {}) const;
  /// check_copied does for one record of a copy what each_to_copy does.
  void check_copied(std::string_view key, std::string_view record, const Predicate &is_left) const;

  /// skip_damaged reads the whole catalog and leaves out every damaged record from then on, as if it were not there;
  /// `told` gets what is left out. The URL map is not used any more if anything is.
  using FaultCallback = std::function<void(const std::string &fault)>;
  void skip_damaged(const FaultCallback &told);
  /// is_partial returns true if something was left out, left_out how many records and pages.
  bool is_partial() const { return left_out_ > 0; }
  int64_t left_out() const { return left_out_; }
  /// hides returns true if the record of a number was left out or lies behind a damaged page.
  bool hides(uint32_t number) const;
  /// damaged returns what to say of a damaged record, with its URL where the record or the URL map has it; refused also
  /// says how to go on without it.
  std::string damaged(uint32_t number, std::string_view record, const std::string &what) const;
  Failure refused(uint32_t number, std::string_view record, const std::string &what) const;

  /// predates returns true if a file was last written before the catalog was made or replaced as a whole.
  bool predates(const struct stat &file) const;

  /// each_url visits every URL with the number of its description, the lowest if there are several; free_number does as
  /// next_number. Both go by the records alone, not by the map, and free_number never stays behind next_number.
  void each_url(const UrlMap::Visitor &visit) const;
  uint32_t free_number() const;

  /// table returns the database itself. Only for a catalog that exists.
  const HashTable &table() const { return *table_; }
  /// url_map returns the map on the disk, null when there is none of this snapshot.
  const UrlMap *url_map() const { return urls_ ? &*urls_ : nullptr; }
  /// map_obstacle returns what kept the system from reading a map that is there; empty where nothing did.
  const std::string &map_obstacle() const { return map_obstacle_; }
  /// has_damaged_map returns true if the map on the disk is of this snapshot, but not as it was written. It reads the
  /// whole map once. drop_damaged_map leaves such a map unused from then on, and returns whether it did.
  bool has_damaged_map() const;
  bool drop_damaged_map();
  /// renew_url_map writes the map anew unless it is of this snapshot and has a checksum.
  void renew_url_map(const Lock &lock);

 private:
  const UrlScan &scan() const;
  std::optional<uint32_t> mapped(std::string_view url) const;
  time_t find_newest_change() const;
  std::optional<std::string> url_in_map(uint32_t number) const;
  void name_lost(const FaultCallback &told) const;
  bool is_lost(uint32_t number) const;
  std::string damaged_key(std::string_view key, std::string_view record, const std::string &what) const;
  std::string fault_of(uint32_t number, std::string_view record) const;

  std::string path_;
  std::optional<HashTable> table_;
  std::string map_obstacle_;
  std::optional<UrlMap> urls_;
  mutable std::optional<bool> map_is_damaged_;  // nothing until it has been looked at
  mutable std::optional<time_t> newest_change_;
  mutable std::optional<UrlScan> scan_;  // what takes the map's place where there is none
  KnownRecords known_;
  mutable bool is_checked_ = false;  // each_to_copy has seen every record
  int64_t left_out_ = 0;
  std::set<uint32_t> skipped_;
};

/// index_path returns the path of the index beside a database.
std::string index_path(const std::string &database);

/// known_records returns what an index remembers of the records of a catalog; without a path the one beside the
/// database. Nothing is known without an index, from one of an earlier catalog of this name, and from one that cannot
/// be read: `unreadable` receives the reason.
KnownRecords known_records(
    const Catalog &catalog, const std::string &index = "",
    const std::function<void(const std::string &reason)> &unreadable = [](const std::string &) {});

/// parse_record returns the object of a record; parse_attributes keeps only the attributes of these names and their
/// numbered instances. Both throw a Failure that names a record without an object.
SoifPtr parse_record(const Catalog &catalog, uint32_t number, std::string_view record);
SoifPtr parse_attributes(const Catalog &catalog, uint32_t number, std::string_view record,
                         const std::vector<std::string> &names);

}  // namespace rdm::catalog

#endif
