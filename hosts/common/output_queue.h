// SPDX-License-Identifier: MIT
/// The body of one answer: queued while the plug-in runs, sent after its call has returned.
///
/// Bytes are copied into memory up to a limit, and beyond it into an unlinked temporary file, so that a large answer to
/// a slow client costs disk space instead of memory. Files are queued by duplicated descriptor, so the original may be
/// closed or removed; slices of a file that many answers share take neither memory nor disk space. Failures set errno.
#ifndef HOSTS_COMMON_OUTPUT_QUEUE_H
#define HOSTS_COMMON_OUTPUT_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/record_slice.h"
#include "qxapi/guard.h"

namespace rdm::hosts {

/// Piece is a part of an answer: `bytes`, or `length` bytes of `file` from `offset` on, or `records`. The offset is
/// explicit because a duplicated descriptor shares its file position with the original.
struct Piece {
  std::string bytes;
  std::shared_ptr<const HostFileGuard> file;  // null for bytes and records
  std::int64_t offset = 0;
  std::int64_t length = 0;                  // of any kind
  std::optional<RecordSlice> records = {};  // empty for bytes and files

  bool is_bytes() const { return !file && !records; }
};

class OutputQueue {
 public:
  static constexpr std::size_t default_memory = std::size_t{64} << 10;

  /// Makes a queue that keeps at most `memory` bytes in memory.
  explicit OutputQueue(std::size_t memory = default_memory) : memory_left_(memory) {}

  /// append queues a copy of `bytes` and returns how many were queued: fewer than given if the temporary file cannot be
  /// created or written.
  std::size_t append(std::string_view bytes);

  /// append_file queues `length` bytes of an open file from `offset` on. Returns false if dup() of its descriptor
  /// fails.
  bool append_file(host_fd fd, std::int64_t offset, std::int64_t length);

  /// append_slice queues a slice. Returns false if a descriptor of it cannot be kept open.
  bool append_slice(const host_slice &slice);

  /// size returns the number of bytes queued, of any kind.
  std::int64_t size() const { return size_; }

  const std::vector<Piece> &pieces() const { return pieces_; }

  /// take returns the pieces in order and leaves the queue empty, without a file.
  std::vector<Piece> take();

 private:
  void append_memory(std::string_view bytes);
  std::size_t spill(std::string_view bytes);

  std::size_t memory_left_;
  std::int64_t size_ = 0;
  std::int64_t spilled_ = 0;
  std::shared_ptr<const HostFileGuard> spill_file_;
  std::vector<Piece> pieces_;
};

}  // namespace rdm::hosts

#endif
