// SPDX-License-Identifier: MIT
/// Moves the bytes of a connection between its socket and the server, without blocking: as they are, or by TLS.
///
/// The procedures return as recv() and send() do: the number of bytes, or -1 with errno set. With EAGAIN, call again
/// when the socket is ready for wanted(). The socket belongs to the caller and outlives the transport.
///
/// With TLS, a call of send that returned EAGAIN must be repeated with the same bytes, which may be in another place,
/// or with more.
#ifndef HOSTS_RDMD_FRONT_TRANSPORT_H
#define HOSTS_RDMD_FRONT_TRANSPORT_H

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/tls_context.h"

namespace rdm::rdmd {

class Transport {
 public:
  /// Sends and receives plain bytes, or by TLS if `tls` is not null.
  explicit Transport(int socket, SslPtr tls = nullptr);

  bool is_encrypted() const { return tls_ != nullptr; }
  /// is_ready returns true if bytes can be sent and received: no TLS handshake is needed, or it is complete.
  bool is_ready() const { return !tls_ || ::SSL_is_init_finished(tls_.get()) == 1; }
  /// handshake continues the TLS handshake. Returns 0 when it is complete, otherwise -1 with errno set: EPROTO if it
  /// has failed. Call it before anything is sent or received by TLS.
  int handshake();
  /// got_plain_request returns true if the handshake failed because the client sent a plain HTTP request. Then
  /// become_plain lets the answer be plain.
  bool got_plain_request() const { return got_plain_request_; }
  void become_plain();

  /// has_input returns true if receive returns bytes that the socket has delivered already.
  bool has_input() const;
  /// receive reads at most as many bytes as `block` has. Returns 0 at the end of input.
  ssize_t receive(std::span<char> block);

  /// The most bytes that one call of send takes by TLS: a record.
  static constexpr std::size_t record_size = 16384;
  /// send sends the beginning of `bytes`. If `more`, more bytes follow at once, which may share a packet.
  ssize_t send(std::string_view bytes, bool more);
  /// send_parts does the same for several parts, which are not empty. Not by TLS.
  ssize_t send_parts(std::span<const std::string_view> parts, bool more);
  /// send_vectors does the same for parts whose bytes need not be there: it fails with EFAULT. There are at most
  /// IOV_MAX.
  ssize_t send_vectors(std::span<iovec> parts, bool more);
  /// is_unfinished returns true if the last call of send by TLS must be repeated.
  bool is_unfinished() const { return is_unfinished_; }
  /// sends_files returns true if send_file may be called now: always for plain bytes; by TLS only if the kernel
  /// encrypts.
  bool sends_files() const;
  /// send_file sends the beginning of a range of a file. Returns 0 if the file ends before `offset`.
  ssize_t send_file(int file, off_t offset, std::size_t count);

  /// shut_down tells the client that nothing more is sent; by TLS with close_notify. Afterwards receive returns the
  /// client's bytes as they are. Returns 0, or -1 with errno set.
  int shut_down();

  /// wanted returns the event to wait for after EAGAIN; `usual` is the event of the direction of the call. In TLS a
  /// read may have to send, and a write to receive.
  io::Socket::wait_type wanted(io::Socket::wait_type usual) const { return wanted_.value_or(usual); }
  /// sent returns the number of bytes that the socket has taken, with all that TLS adds.
  std::int64_t sent() const;

 private:
  ssize_t count(ssize_t put);
  ssize_t copy_file(int file, off_t offset, std::size_t count);
  ssize_t result_of(ssize_t result);

  int socket_;
  SslPtr tls_;
  std::optional<io::Socket::wait_type> wanted_;
  bool is_unfinished_ = false;
  bool is_broken_ = false;  // TLS has failed; nothing more can be sent by it
  bool got_plain_request_ = false;
  std::int64_t sent_ = 0;  // except by TLS sessions that are still open
};

}  // namespace rdm::rdmd

#endif
