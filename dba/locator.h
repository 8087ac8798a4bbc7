// SPDX-License-Identifier: MIT
/// Where the records of a database lie in its file, for who reads them there.
///
/// A locator looks at the primary pages of the buckets alone, where a record is found first. It says nothing of records
/// that continue on other pages, or come after damage: dba_get reads them, or reports the damage. It is an object that
/// libraries link, not an export of libdba.
#ifndef DBA_LOCATOR_H
#define DBA_LOCATOR_H

#include "hashdb/format.h"
#include "qxapi/guard.h"

namespace rdm {

/// Location is the place of a record in a file. A size of 0 means none.
struct Location {
  int64_t offset;
  uint32_t size;
};

/// Locator reads a file through a descriptor that it borrows. The file is not trusted.
class Locator {
 public:
  /// open reads the header of a database opened for reading by dba_open. Returns false if it cannot be read, or is not
  /// sound.
  bool open(host_fd file) noexcept;

  uint32_t buckets() const noexcept { return header_.max_bucket + 1; }

  /// find returns the place of the record that dba_get finds for a key, and its bytes, valid until the next call; or no
  /// place if the record is not on a primary page, is missing or cannot be read. It keeps the page read last.
  Location find(std::string_view key, std::string_view &value) noexcept;

  /// walk calls `visit(argument, key, value, place)` for each record that find finds, in the order of the file. It
  /// reads the file in pieces of a mebibyte, and stops early if a read or an allocation fails.
  using Visit = void (*)(void *argument, std::string_view key, std::string_view value, Location place);
  void walk(Visit visit, void *argument) noexcept;

  /// read reads the bytes of a record. Returns false if the file ends before, or a read fails.
  bool read(Location place, char *bytes) const noexcept { return read(place.offset, bytes, place.size); }

 private:
  bool read(int64_t offset, char *bytes, size_t size) const noexcept;
  int64_t offset_of(uint32_t bucket) const noexcept;

  host_fd file_ = -1;
  hashdb::Header header_;
  HostText page_;
  int64_t page_offset_ = -1;  // of the page in memory
};

}  // namespace rdm

#endif
