// SPDX-License-Identifier: MIT
/// Moves the bytes of a connection between its socket and the server, without blocking.
///
/// The procedures return as recv() and send() do: the number of bytes, or -1 with errno set. With EAGAIN, call again
/// when the socket is ready for wanted(). The socket belongs to the caller and outlives the transport.
#ifndef HOSTS_RDMD_FRONT_TRANSPORT_H
#define HOSTS_RDMD_FRONT_TRANSPORT_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "hosts/rdmd/front/io.h"

namespace rdm::rdmd {

class Transport {
 public:
  explicit Transport(int socket) : socket_(socket) {}

  /// receive reads at most as many bytes as `block` has. Returns 0 at the end of input.
  ssize_t receive(std::span<char> block);
  /// send sends the beginning of `bytes`. If `more`, more bytes follow at once, which may share a packet.
  ssize_t send(std::string_view bytes, bool more);
  /// send_file sends the beginning of a range of a file. Returns 0 if the file ends before `offset`.
  ssize_t send_file(int file, off_t offset, std::size_t count);
  /// shut_down tells the client that nothing more is sent. Returns 0, or -1 with errno set.
  int shut_down();

  /// wanted returns the event to wait for after EAGAIN; `usual` is the event of the direction of the call.
  io::Socket::wait_type wanted(io::Socket::wait_type usual) const { return usual; }
  /// sent returns the number of bytes that the socket has taken.
  std::int64_t sent() const { return sent_; }

 private:
  ssize_t count(ssize_t put);
  ssize_t copy_file(int file, off_t offset, std::size_t count);

  int socket_;
  std::int64_t sent_ = 0;
};

}  // namespace rdm::rdmd

#endif
