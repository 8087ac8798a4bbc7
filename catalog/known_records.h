// SPDX-License-Identifier: MIT
/// Comparing the records of a catalog with its index, to find damaged ones.
#ifndef CATALOG_KNOWN_RECORDS_H
#define CATALOG_KNOWN_RECORDS_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/index_file.h"

namespace rdm::catalog {

/// KnownRecords tells damaged records from changed ones. A changed record has a later time of change than all before.
/// A record with the time of its index entry is therefore unchanged: if its size or checksum differs, it is damaged.
class KnownRecords {
 public:
  /// KnownRecords holds the entries of an index, in any order. `newest_given` is the newest time of change that minidba
  /// has given in the database, deleted descriptions included, or std::nullopt if it is not known.
  explicit KnownRecords(std::vector<IndexEntry> entries = {}, std::optional<time_t> newest_given = std::nullopt);

  /// entries returns all entries, sorted by number.
  const std::vector<IndexEntry> &entries() const { return entries_; }
  /// find returns the entry of a number, or null if there is none. It belongs to this object.
  const IndexEntry *find(uint32_t number) const;
  /// fault_of returns a reason, for a message, if a record contradicts its entry; empty if it matches the entry, has
  /// changed since the index was made, or has no entry.
  std::string fault_of(uint32_t number, std::string_view record) const;
  /// fault_of does the same if the caller has made the entry of the record with entry_of.
  std::string fault_of(const IndexEntry &now, std::string_view record) const;

 private:
  /// is_possible returns true if a description that has changed since the index was made can have this time.
  bool is_possible(uint32_t time) const { return time > newest_ && (!newest_given_ || time <= *newest_given_); }

  std::vector<IndexEntry> entries_;  // by number
  uint32_t newest_ = 0;              // the newest time of all entries
  std::optional<time_t> newest_given_;
};

}  // namespace rdm::catalog

#endif
