// SPDX-License-Identifier: MIT
/// The body of one answer, queued piece by piece while the plug-in runs and sent after its call has returned.
///
/// Bytes are copied into memory up to a limit and go on in an unlinked temporary file beyond it, so that a large answer
/// to a slow client costs disk space rather than memory. Files are queued by duplicated descriptor: neither closing the
/// original nor removing its name disturbs the answer. Failures leave errno as the reason.
#ifndef HOSTS_COMMON_OUTPUT_QUEUE_H
#define HOSTS_COMMON_OUTPUT_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "qxapi/guard.h"

namespace rdm::hosts {

/// Piece is a stretch of an answer: `bytes`, or `length` bytes of `file` from `offset` on. The offset is explicit,
/// because a duplicated descriptor shares its position with the original.
struct Piece {
  std::string bytes;
  std::shared_ptr<const HostFileGuard> file;  // null for bytes
  std::int64_t offset = 0;
  std::int64_t length = 0;  // of either kind
};

class OutputQueue {
 public:
  static constexpr std::size_t default_memory = std::size_t{1} << 20;

  /// A queue that keeps at most `memory` bytes in memory.
  explicit OutputQueue(std::size_t memory = default_memory) : room_(memory) {}

  /// append queues a copy of `bytes` and returns how many were queued: fewer than given when the temporary file cannot
  /// be made or written.
  std::size_t append(std::string_view bytes);

  /// append_file queues `length` bytes of an open file from `offset` on. False when its descriptor cannot be
  /// duplicated.
  bool append_file(host_fd fd, std::int64_t offset, std::int64_t length);

  /// size is the number of bytes queued, of either kind.
  std::int64_t size() const { return size_; }

  const std::vector<Piece> &pieces() const { return pieces_; }

  /// take hands the pieces over, in order, and leaves the queue empty; it holds no file then.
  std::vector<Piece> take();

 private:
  void append_memory(std::string_view bytes);
  std::size_t spill(std::string_view bytes);

  std::size_t room_;
  std::int64_t size_ = 0;
  std::int64_t spilled_ = 0;
  std::shared_ptr<const HostFileGuard> spill_file_;
  std::vector<Piece> pieces_;
};

}  // namespace rdm::hosts

#endif
