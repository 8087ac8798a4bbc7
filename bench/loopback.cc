// SPDX-License-Identifier: MIT
#include "loopback.h"

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "site.h"

namespace rdm::bench {

sockaddr_in loopback(std::uint32_t host, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK + host);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

int free_port() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0, 0);
  socklen_t size = sizeof address;
  const bool found = ::bind(fd, reinterpret_cast<const sockaddr *>(&address), size) == 0 &&
                     ::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) == 0;
  ::close(fd);
  if (!found) fail("no free port");
  return ntohs(address.sin_port);
}

Socket::Socket(int port, int receive_buffer) : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in to = loopback(0, port);
  const int on = 1;
  ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (receive_buffer > 0) ::setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
  if (::connect(fd_, reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0) close();
}

void Socket::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

std::string get_request(std::string_view target, std::string_view fields) {
  return "GET " + std::string(target) + " HTTP/1.1\r\nHost: localhost\r\n" + std::string(fields) + "\r\n";
}

bool send_all(int fd, std::string_view text) {
  return ::send(fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

}  // namespace rdm::bench
