// SPDX-License-Identifier: MIT
/// Writing the pages of a large file in few calls.
#ifndef CATALOG_OS_RUN_WRITER_H
#define CATALOG_OS_RUN_WRITER_H

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// RunWriter collects pieces that follow each other in a file, and writes up to a mebibyte of them at a time. It keeps
/// two such runs, because the pages of a hash file come from two places, buckets and overflow pages. While the caller
/// makes more pieces, the system puts the written ones onto the disk, so that fsync has little left to wait for.
class RunWriter {
 public:
  /// The file must outlive the writer.
  explicit RunWriter(const File &file) : file_(file) {}

  /// write writes bytes at an offset, now or later. Throws a SystemFailure if these or earlier bytes cannot be written.
  void write(int64_t offset, std::string_view bytes);
  /// flush writes all pieces. Call it after the last write; the destructor does not.
  void flush();

 private:
  struct Run {
    std::string bytes;    // not written yet
    int64_t offset = 0;   // of the bytes
    int64_t started = 0;  // the system puts the bytes of this run onto the disk up to this offset
    int64_t end() const { return offset + static_cast<int64_t>(bytes.size()); }
  };
  void flush(Run &run);
  Run &run_for(int64_t offset);

  const File &file_;
  std::array<Run, 2> runs_;
  size_t last_ = 0;  // the run that was written last
};

}  // namespace rdm::catalog

#endif
