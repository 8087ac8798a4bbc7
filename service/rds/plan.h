// SPDX-License-Identifier: MIT
/// The plan of a snapshot: what was found out about the descriptions of its index.
#ifndef SERVICE_RDS_PLAN_H
#define SERVICE_RDS_PLAN_H

#include <qxapi/slice.h>

#include "dba/locator.h"

namespace rdm {

/// Plan has an entry of 16 bytes for each position of an index, in a file in memory (memfd_create) that hosts read when
/// they send slices. It is filled on demand: an entry takes memory when it, or one of its 255 neighbours, is first
/// reserved. An entry that is not `unknown` never changes again, so an answer that is under way may rely on it.
class Plan {
 public:
  enum State : uint32_t {
    unknown,
    as_stored,  // the record prints as it is stored, at this place of the database file
    other,      // it has to be looked up by its key, and parsed
  };
  /// Entry is a host_place whose note is the state.
  struct Entry {
    int64_t offset;
    uint32_t size;
    State state;

    Location place() const noexcept { return {offset, size}; }
  };
  static_assert(sizeof(Entry) == sizeof(host_place) && offsetof(Entry, size) == offsetof(host_place, size));

  Plan() = default;
  Plan(const Plan &) = delete;
  Plan &operator=(const Plan &) = delete;
  ~Plan();

  /// prepare makes the file of `count` unknown entries. Returns false if that fails.
  bool prepare(uint32_t count) noexcept;

  /// reserve makes sure that entries have memory. Returns false if there is none.
  bool reserve(uint32_t first, uint32_t count) noexcept;

  /// entry returns the entry of a position that is reserved.
  Entry &entry(uint32_t position) noexcept { return entries_[position]; }

  /// file returns the file of entries, borrowed.
  host_fd file() const noexcept { return file_.get(); }

 private:
  static constexpr uint32_t part = 256;  // entries that are reserved together

  bool reserve_parts(bool *from, bool *to) noexcept;

  HostFileGuard file_;
  Entry *entries_ = nullptr;  // its mapping
  size_t size_ = 0;
  HostPtr<bool> reserved_;  // for each part
};

}  // namespace rdm

#endif
