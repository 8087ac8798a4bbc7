/// What a hash file of minidba says about itself, in bytes of its header's page that no other program looks at.
#ifndef MINIDBA_STAMP_H
#define MINIDBA_STAMP_H

#include <array>
#include <cstdint>
#include <optional>

#include "tools/minidba/files.h"

namespace minidba {

/// FileIdentity tells one state of a file from another: device, inode, size, time of change in seconds and nanoseconds.
using FileIdentity = std::array<uint64_t, 5>;
FileIdentity identity_of(const std::string &path);

struct Stamp {
  uint32_t next_number = 1;    // the first number that no description has had; 0 when none is left
  uint32_t planned_pages = 0;  // overflow pages of the file when it was written as a whole
  FileIdentity database{};     // which a URL map belongs to

  /// read returns the stamp of a file, nothing when it has none.
  static std::optional<Stamp> read(const File &file);
  void write(const File &file) const;
};

}  // namespace minidba

#endif
