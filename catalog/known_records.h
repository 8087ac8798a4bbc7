// SPDX-License-Identifier: MIT
/// What an index remembers of the records of a catalog.
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

/// KnownRecords tells damaged records from changed ones. A record that changes gets a later time of change than all
/// that were given before, so one with the time of its index entry has the size and the checksum of it too.
class KnownRecords {
 public:
  /// Without entries nothing is known. `newest_given` is the newest time of change that minidba has given in the
  /// database; nothing if it is not known.
  explicit KnownRecords(std::vector<IndexEntry> entries = {}, std::optional<time_t> newest_given = std::nullopt);

  /// entries returns all that is known, by number.
  const std::vector<IndexEntry> &entries() const { return entries_; }
  /// find returns the entry of a number, null when there is none.
  const IndexEntry *find(uint32_t number) const;
  /// fault_of returns how a record contradicts its entry: it is damaged. Empty when it is as the entry says, was
  /// changed since, or is not known.
  std::string fault_of(uint32_t number, std::string_view record) const;
  /// The same for a record of which the caller knows the entry that it should have.
  std::string fault_of(const IndexEntry &now, std::string_view record) const;

 private:
  /// is_possible returns true if a description that has changed since the index was made can have this time.
  bool is_possible(uint32_t time) const { return time > newest_ && (!newest_given_ || time <= *newest_given_); }

  std::vector<IndexEntry> entries_;     // by number
  uint32_t newest_ = 0;                 // time of all entries
  std::optional<time_t> newest_given_;  // time in the database, deleted descriptions included
};

}  // namespace rdm::catalog

#endif
