// SPDX-License-Identifier: MIT
/// The trailer of a hash file that this library has written: data after the header, which other programs do not read.
#ifndef CATALOG_HASH_TRAILER_H
#define CATALOG_HASH_TRAILER_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <optional>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// FileIdentity identifies one state of a file: device, inode, size, seconds and nanoseconds of st_mtim.
using FileIdentity = std::array<uint64_t, 5>;
/// identity_of returns the identity of an open file. Throws a SystemFailure.
FileIdentity identity_of(const File &file);

struct Trailer {
  uint32_t next_number = 1;    // the smallest number that no description has had; 0 if all are used
  uint32_t planned_pages = 0;  // overflow pages of the file when build_hash_file wrote it
  /// database is, in a URL map, the identity of its database; in a database, the identity of the file which the first
  /// update or an import created. Files that are older than the latter do not belong to this catalog. All zeros if
  /// unknown.
  FileIdentity database{};
  /// newest_change is the newest time of change that the catalog has given, deleted descriptions included; it is
  /// std::nullopt in a file of an earlier version. It is exact in a URL map of this snapshot, and a lower bound in a
  /// database, whose records other programs may change.
  std::optional<time_t> newest_change = std::nullopt;
  /// content is, in a URL map, its content_checksum; in a database, the CRC-32 of the index that was published with it,
  /// if one was. It is std::nullopt in a file of an earlier version.
  std::optional<uint32_t> content = std::nullopt;

  /// read returns the trailer of a file, or std::nullopt if there is none with a valid checksum. Throws a Failure if
  /// the file cannot be read.
  static std::optional<Trailer> read(const File &file);
  /// write writes the trailer. Throws a SystemFailure.
  void write(const File &file) const;
};

/// content_checksum returns the CRC-32 of a file without the bytes of its trailer. Throws a Failure if the file cannot
/// be read.
uint32_t content_checksum(const File &file);

/// is_before returns true if a file, given by its status, was last written before the database of this trailer was
/// created.
bool is_before(const struct stat &file, const Trailer &trailer);

/// later returns the higher of two next numbers; 0, which means that all numbers are used, is the highest.
inline uint32_t later(uint32_t a, uint32_t b) { return a == 0 || b == 0 ? 0 : std::max(a, b); }

}  // namespace rdm::catalog

#endif
