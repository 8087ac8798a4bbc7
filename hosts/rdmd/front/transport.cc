// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/transport.h"

#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <openssl/err.h>

namespace rdm::rdmd {

Transport::Transport(int socket, SslPtr tls) : socket_(socket), tls_(std::move(tls)) {}

/* ---- TLS ---- */

/// result_of translates the result of an OpenSSL call that failed. OpenSSL's queue of errors belongs to the thread, not
/// to the connection, and is empty afterwards.
ssize_t Transport::result_of(ssize_t result) {
  const int code = errno;
  const int error = ::SSL_get_error(tls_.get(), static_cast<int>(result));
  const unsigned long detail = ::ERR_peek_last_error();
  ::ERR_clear_error();
  if (error == SSL_ERROR_ZERO_RETURN) return 0;
  if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) {
    wanted_ = error == SSL_ERROR_WANT_READ ? io::Socket::wait_read : io::Socket::wait_write;
    errno = EAGAIN;
    return -1;
  }
  is_broken_ = true;
  got_plain_request_ = ERR_GET_LIB(detail) == ERR_LIB_SSL && ERR_GET_REASON(detail) == SSL_R_HTTP_REQUEST;
  errno = error == SSL_ERROR_SYSCALL && code != 0 && code != EAGAIN ? code : EPROTO;
  return -1;
}

int Transport::handshake() {
  wanted_.reset();
  errno = 0;
  const int result = ::SSL_do_handshake(tls_.get());
  if (result == 1) return 0;
  if (result_of(result) == 0) errno = EPROTO;
  return -1;
}

void Transport::become_plain() {
  sent_ = sent();
  tls_.reset();
  wanted_.reset();
  is_unfinished_ = false;
}

bool Transport::has_input() const { return tls_ && ::SSL_pending(tls_.get()) > 0; }

std::int64_t Transport::sent() const {
  return sent_ + (tls_ ? static_cast<std::int64_t>(::BIO_number_written(::SSL_get_wbio(tls_.get()))) : 0);
}

bool Transport::sends_files() const {
  return !tls_ || (!is_unfinished_ && BIO_get_ktls_send(::SSL_get_wbio(tls_.get())));
}

/* ---- Both ---- */

ssize_t Transport::count(ssize_t put) {
  if (put > 0) sent_ += put;
  return put;
}

ssize_t Transport::receive(std::span<char> block) {
  if (!tls_) return ::recv(socket_, block.data(), block.size(), MSG_DONTWAIT);
  wanted_.reset();
  errno = 0;
  const int got = ::SSL_read(tls_.get(), block.data(), static_cast<int>(block.size()));
  return got > 0 ? got : result_of(got);
}

ssize_t Transport::send(std::string_view bytes, bool more) {
  if (!tls_)
    return count(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT | (more ? MSG_MORE : 0)));
  wanted_.reset();
  errno = 0;
  const int put = ::SSL_write(tls_.get(), bytes.data(), static_cast<int>(std::min(bytes.size(), record_size)));
  const ssize_t result = put > 0 ? put : result_of(put);
  is_unfinished_ = result < 0 && errno == EAGAIN;
  return result;
}

ssize_t Transport::send_parts(std::span<const std::string_view> parts, bool more) {
  std::array<iovec, 16> vectors;
  const std::size_t taken = std::min(parts.size(), vectors.size());
  for (std::size_t i = 0; i < taken; ++i) vectors[i] = {const_cast<char *>(parts[i].data()), parts[i].size()};
  return send_vectors(std::span(vectors).first(taken), more || taken < parts.size());
}

ssize_t Transport::send_vectors(std::span<iovec> parts, bool more) {
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  return count(::sendmsg(socket_, &message, MSG_NOSIGNAL | MSG_DONTWAIT | (more ? MSG_MORE : 0)));
}

/// copy_file reads and sends, for file systems without sendfile().
ssize_t Transport::copy_file(int file, off_t offset, std::size_t count) {
  std::array<char, 65536> block;
  const ssize_t got = ::pread(file, block.data(), std::min(count, block.size()), offset);
  return got <= 0 ? got : send({block.data(), static_cast<std::size_t>(got)}, false);
}

ssize_t Transport::send_file(int file, off_t offset, std::size_t count) {
  if (tls_) {
    wanted_.reset();
    const ssize_t put = ::SSL_sendfile(tls_.get(), file, offset, count, 0);
    return this->count(put > 0 ? put : result_of(put));
  }
  off_t position = offset;
  const ssize_t put = ::sendfile(socket_, file, &position, count);
  if (put == -1 && (errno == EINVAL || errno == ENOSYS)) return copy_file(file, offset, count);
  return this->count(put);
}

int Transport::shut_down() {
  if (tls_ && !is_broken_ && !is_unfinished_) {
    wanted_.reset();
    errno = 0;
    const int result = ::SSL_shutdown(tls_.get());
    if (result < 0 && result_of(result) < 0 && errno == EAGAIN) return -1;
  }
  if (tls_) become_plain();
  return ::shutdown(socket_, SHUT_WR);
}

}  // namespace rdm::rdmd
