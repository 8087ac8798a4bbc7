// SPDX-License-Identifier: MIT
/// An open index file, of which only the entries asked for are read.
#ifndef SERVICE_RDS_INDEX_FILE_H
#define SERVICE_RDS_INDEX_FILE_H

#include <ctime>

#include "dba/index_format.h"
#include "qxapi/guard.h"

namespace rdm {

/// IndexFile reads entries in blocks of 4 KiB and keeps the block read last.
class IndexFile {
 public:
  IndexFile() noexcept = default;

  /// open opens the index of a path. Returns false, without a report, if that fails, if the header is not that of an
  /// index, or if the file is shorter than its count of entries or has more than 2^31 - 1.
  bool open(const char *path) noexcept;

  uint32_t count() const noexcept { return count_; }

  /// entry returns the entry at a position below count(). If it cannot be read, the entry is all zeros, and failed
  /// returns true from then on.
  index_format::Entry entry(uint32_t position) noexcept;
  bool failed() const noexcept { return failed_; }

  /// search is cs_dbsearch in this index.
  int32_t search(time_t since) noexcept;

 private:
  static constexpr uint32_t block_entries = 4096 / index_format::entry_size;

  bool read(int64_t offset, char *bytes, int64_t size) const noexcept;
  bool read_block(uint32_t block) noexcept;

  HostFileGuard file_;
  uint32_t count_ = 0;
  bool failed_ = false;
  bool has_block_ = false;
  uint32_t block_ = 0;  // the number of the block in memory
  char bytes_[block_entries * index_format::entry_size];
};

}  // namespace rdm

#endif
