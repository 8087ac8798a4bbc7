// SPDX-License-Identifier: MIT
/// Writing the pages of a large file in few calls.
#ifndef CATALOG_OS_RUN_WRITER_H
#define CATALOG_OS_RUN_WRITER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "catalog/os/file.h"

namespace rdm::catalog {

/// RunWriter collects pieces that follow each other in a file, and writes up to 256 KiB of them at a time. It keeps two
/// such runs, because the pages of a hash file come from two places, buckets and overflow pages. While the caller makes
/// more pieces, the system puts the written ones onto the disk, so that fsync has little left to wait for.
class RunWriter {
 public:
  /// The file must outlive the writer.
  explicit RunWriter(const File &file) : file_(file) {}

  static constexpr size_t largest_piece = 64 << 10;
  /// piece returns room for `size` bytes that are to be written at an offset; the caller fills it before the next call.
  /// The room holds any bytes. Throws a SystemFailure if earlier pieces cannot be written.
  char *piece(int64_t offset, size_t size);
  /// flush writes all pieces. Call it after the last piece; the destructor does not.
  void flush();

 private:
  struct Run {
    std::unique_ptr<char[]> bytes;  // not written yet
    size_t size = 0;
    int64_t offset = 0;   // of the bytes
    int64_t started = 0;  // the system puts the bytes of this run onto the disk up to this offset
    int64_t end() const { return offset + static_cast<int64_t>(size); }
  };
  void flush(Run &run);
  Run &run_for(int64_t offset);

  const File &file_;
  std::array<Run, 2> runs_;
  size_t last_ = 0;  // the run that was written last
};

}  // namespace rdm::catalog

#endif
