// SPDX-License-Identifier: MIT
/// Sends one answer: its head, bytes, ranges of files and slices of records.
///
/// Plain records go from the mapping of their file to the socket by sendmsg(), without a copy in this process. Of an
/// answer that is not read, the sender keeps a position, and its share in open files that other answers use too.
#ifndef HOSTS_RDMD_FRONT_SENDER_H
#define HOSTS_RDMD_FRONT_SENDER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "hosts/common/output_queue.h"
#include "hosts/rdmd/front/spill_budget.h"
#include "hosts/rdmd/front/transport.h"

namespace rdm::rdmd {

class Sender {
 public:
  /// Makes the sender of an answer with this head and these pieces of its body. `share` is what the answer takes of the
  /// room in temporary files; the sender gives it back.
  Sender(std::string head, std::vector<hosts::Piece> pieces, SpillBudget::Share share = {});

  enum class State {
    done,     // everything is sent
    more,     // more is to be sent; let other connections run first
    blocked,  // the transport would block
    failed,   // the connection is broken, or a file is shorter than its piece
    changed   // the file of a slice has changed, or its places are wrong
  };

  /// send sends until the transport would block, at most about one megabyte, so that one client does not occupy the
  /// thread.
  State send(Transport &transport);

  /// sent returns the number of bytes sent so far; body_sent excludes the head.
  std::int64_t sent() const { return sent_; }
  std::int64_t body_sent() const { return sent_ > head_size_ ? sent_ - head_size_ : 0; }

 private:
  std::int64_t send_next(Transport &transport);
  std::int64_t send_file(Transport &transport) const;
  std::int64_t send_bytes(Transport &transport) const;
  std::int64_t send_slice(Transport &transport);
  std::int64_t send_copy(Transport &transport);
  std::int64_t send_record(Transport &transport);
  std::int64_t fill_record(std::span<char> record, bool only_bytes);
  ssize_t copy_piece(std::size_t index, std::int64_t offset, std::span<char> to);
  void advance(std::int64_t count);
  bool is_slice() const { return pieces_[current_].records.has_value(); }
  void begin_piece();

  std::vector<hosts::Piece> pieces_;
  SpillBudget::Share share_;
  std::int64_t head_size_;
  std::size_t current_ = 0;                      // index of the piece being sent
  std::int64_t done_ = 0;                        // bytes of that piece already sent
  std::unique_ptr<hosts::RecordCursor> cursor_;  // the same if it is a slice; null if no piece is
  std::int64_t sent_ = 0;
};

}  // namespace rdm::rdmd

#endif
