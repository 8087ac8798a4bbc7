// SPDX-License-Identifier: MIT
/// Where the records of a database lie in its file, for who reads them there.
///
/// A locator finds what dba_get finds. It gives no place for a record that is longer than a page, because that is not
/// in one piece, and for one that is missing or damaged; dba_get reports the damage. It is an object that libraries
/// link, not an export of libdba.
#ifndef DBA_LOCATOR_H
#define DBA_LOCATOR_H

#include <optional>

#include "hashdb/cursor.h"

namespace rdm {

/// Location is the place of a record in a file. A size of 0 means none.
struct Location {
  int64_t offset;
  uint32_t size;
};

/// Locator reads a file through a descriptor that it borrows. The file is not trusted.
class Locator {
 public:
  Locator() = default;
  Locator(const Locator &) = delete;
  Locator &operator=(const Locator &) = delete;

  /// open reads the header of a database opened for reading by dba_open. Returns false if it cannot be read, or is not
  /// sound.
  bool open(host_fd file) noexcept;

  host_fd file() const noexcept { return source_.fd; }
  int64_t size() const noexcept { return source_.size; }
  uint32_t buckets() const noexcept { return source_.header.max_bucket + 1; }

  /// find returns the place of the record that dba_get finds for a key, and its bytes, valid until the next call; or no
  /// place and no bytes. It keeps the page read last.
  Location find(std::string_view key, std::string_view &value) noexcept;

  /// walk calls `visit(argument, key, value, place)` for each record that has a place, bucket by bucket. If a bucket
  /// has a key twice, find finds the one visited first.
  using Visit = void (*)(void *argument, std::string_view key, std::string_view value, Location place);
  void walk(Visit visit, void *argument) noexcept;

  /// read reads the bytes of a record. Returns false if the file ends before, or a read fails.
  bool read(Location place, char *bytes) const noexcept;

 private:
  Location place() const noexcept;

  hashdb::Source source_{-1, 0, {}};
  std::optional<hashdb::Cursor> cursor_;  // once it is open
};

}  // namespace rdm

#endif
