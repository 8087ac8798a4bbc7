// SPDX-License-Identifier: MIT
/// The plan of a snapshot: what was found out about the descriptions of its index.
#ifndef SERVICE_RDS_PLAN_H
#define SERVICE_RDS_PLAN_H

#include "dba/locator.h"

namespace rdm {

/// Plan has an entry of 16 bytes for each position of an index, and is filled on demand: an entry takes memory when it,
/// or one of its 4,095 neighbours, is first asked for.
class Plan {
 public:
  enum State : uint32_t {
    unknown,
    as_stored,  // the record prints as it is stored, at this place of the database file
    other,      // it has to be looked up by its key, and parsed
  };
  struct Entry {
    int64_t offset;
    uint32_t size;
    State state;

    Location place() const noexcept { return {offset, size}; }
  };
  static_assert(sizeof(Entry) == 16);

  /// prepare makes room for `count` entries. Returns false if allocation fails.
  bool prepare(uint32_t count) noexcept;

  /// entry returns the entry of a position below the count.
  Entry &entry(uint32_t position) noexcept;

 private:
  static constexpr uint32_t part = 4096;  // entries that are cleared together

  HostPtr<Entry> entries_;
  HostPtr<bool> cleared_;  // for each part
  uint32_t count_ = 0;
};

}  // namespace rdm

#endif
