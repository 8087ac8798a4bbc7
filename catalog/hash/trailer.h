// SPDX-License-Identifier: MIT
/// What a hash file that this library wrote says about itself, in bytes of its first page that no other program reads.
#ifndef CATALOG_HASH_TRAILER_H
#define CATALOG_HASH_TRAILER_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <optional>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// FileIdentity tells one state of a file from another: device, inode, size, time of change in seconds and nanoseconds.
using FileIdentity = std::array<uint64_t, 5>;
FileIdentity identity_of(const File &file);

struct Trailer {
  uint32_t next_number = 1;    // the first number that no description has had; 0 when none is left
  uint32_t planned_pages = 0;  // overflow pages of the file when it was written as a whole
  /// Of a URL map the database it belongs to. Of a database the file that its catalog was made as, by an import or the
  /// first update: what is older tells nothing about this catalog. All zeros when that is not known.
  FileIdentity database{};
  /// The newest time of change that the catalog has given, to descriptions that are gone as well. Nothing in a file
  /// that was written without it. Programs that change only records leave it as it is: that of a database is a lower
  /// bound, that of a URL map of this snapshot is exact.
  std::optional<time_t> newest_change = std::nullopt;
  /// Of a URL map what content_checksum returned for it. Nothing in a database, which other programs change, and in a
  /// file of an earlier version.
  std::optional<uint32_t> content = std::nullopt;

  /// read returns the trailer of a file, nothing when it has none.
  static std::optional<Trailer> read(const File &file);
  void write(const File &file) const;
};

/// content_checksum returns the CRC-32 of a file without the bytes of its trailer.
uint32_t content_checksum(const File &file);

/// is_before returns true if a file was last written before the database of this trailer was made.
bool is_before(const struct stat &file, const Trailer &trailer);

/// later returns the later of two next numbers, of which 0 is the last.
inline uint32_t later(uint32_t a, uint32_t b) { return a == 0 || b == 0 ? 0 : std::max(a, b); }

}  // namespace rdm::catalog

#endif
