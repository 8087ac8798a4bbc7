// SPDX-License-Identifier: MIT
/// Sends one answer over a socket that does not block: bytes by send, stretches of files by sendfile.
#ifndef HOSTS_RDMD_SENDER_H
#define HOSTS_RDMD_SENDER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hosts/common/output_queue.h"

namespace rdm::rdmd {

class Sender {
 public:
  /// An answer of a head and the pieces of its body.
  Sender(std::string head, std::vector<hosts::Piece> pieces);

  enum class State {
    done,     // all is sent
    more,     // there is more to send, after others have had their turn
    blocked,  // the socket takes nothing at present
    failed    // the connection is broken, or a file has become shorter than its piece
  };

  /// send sends what the socket takes, up to about a megabyte, so that one client does not hold the thread.
  State send(int socket);

  /// park moves what is still to be sent from memory into temporary files, for a client that takes its time. What there
  /// is no room for, and less than 4 KiB, stays where it is.
  void park();

  /// sent counts all bytes sent so far; body_sent those after the head.
  std::int64_t sent() const { return sent_; }
  std::int64_t body_sent() const { return sent_ > head_size_ ? sent_ - head_size_ : 0; }

 private:
  std::int64_t send_piece(int socket);
  void advance(std::int64_t count);
  void park_piece(std::size_t index, std::int64_t done);

  std::vector<hosts::Piece> pieces_;
  std::int64_t head_size_;
  std::size_t current_ = 0;  // the piece being sent
  std::int64_t done_ = 0;    // bytes of it already sent
  std::int64_t sent_ = 0;
};

}  // namespace rdm::rdmd

#endif
