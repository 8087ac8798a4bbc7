// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/transport.h"

#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace rdm::rdmd {

ssize_t Transport::count(ssize_t put) {
  if (put > 0) sent_ += put;
  return put;
}

ssize_t Transport::receive(std::span<char> block) { return ::recv(socket_, block.data(), block.size(), MSG_DONTWAIT); }

ssize_t Transport::send(std::string_view bytes, bool more) {
  return count(::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT | (more ? MSG_MORE : 0)));
}

/// copy_file reads and sends, for file systems without sendfile().
ssize_t Transport::copy_file(int file, off_t offset, std::size_t count) {
  std::array<char, 65536> block;
  const ssize_t got = ::pread(file, block.data(), std::min(count, block.size()), offset);
  return got <= 0 ? got : send({block.data(), static_cast<std::size_t>(got)}, false);
}

ssize_t Transport::send_file(int file, off_t offset, std::size_t count) {
  off_t position = offset;
  const ssize_t put = ::sendfile(socket_, file, &position, count);
  if (put == -1 && (errno == EINVAL || errno == ENOSYS)) return copy_file(file, offset, count);
  return this->count(put);
}

int Transport::shut_down() { return ::shutdown(socket_, SHUT_WR); }

}  // namespace rdm::rdmd
