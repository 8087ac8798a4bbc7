// SPDX-License-Identifier: MIT
/// Connections to servers on the loopback interface.
#ifndef BENCH_LOOPBACK_H
#define BENCH_LOOPBACK_H

#include <netinet/in.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace rdm::bench {

/// loopback returns the address 127.0.0.1 plus `host`, with this port.
sockaddr_in loopback(std::uint32_t host, int port);

/// free_port returns a port that nothing listens on at this moment, for programs that cannot choose one themselves.
int free_port();

/// Socket is a connection that is closed at the end of its scope.
class Socket {
 public:
  Socket() = default;
  /// Connects, without Nagle's algorithm and, if it is given, with this receive buffer. If that fails, get returns -1.
  explicit Socket(int port, int receive_buffer = 0);
  Socket(Socket &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Socket &operator=(Socket &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Socket() { close(); }
  int get() const { return fd_; }

 private:
  void close();

  int fd_ = -1;
};

/// get_request returns a GET request of HTTP/1.1; `fields` are further header fields, each with its CRLF.
std::string get_request(std::string_view target, std::string_view fields = "");

/// send_all returns true if the socket takes the whole text at once.
bool send_all(int fd, std::string_view text);

}  // namespace rdm::bench

#endif
