// SPDX-License-Identifier: MIT
/// The socket of a service manager, for tests of what a server tells it.
#ifndef TESTS_HOSTS_RDMD_NOTIFICATION_SOCKET_H
#define TESTS_HOSTS_RDMD_NOTIFICATION_SOCKET_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <string>

#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "qxapi/guard.h"

namespace rdm::support {

class NotificationSocket {
 public:
  /// `name` is a path, or "@" and the name of an abstract socket.
  explicit NotificationSocket(const std::string &name) : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    if (name.front() == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), size), 0);
  }

  /// receive waits for the next message and returns it, or an empty string if none comes.
  std::string receive() const {
    pollfd waiting{socket_.get(), POLLIN, 0};
    char block[4096];
    if (::poll(&waiting, 1, static_cast<int>(timeout.count())) <= 0) return "";
    const ssize_t got = ::recv(socket_.get(), block, sizeof block, 0);
    return got > 0 ? std::string(block, static_cast<std::size_t>(got)) : "";
  }

 private:
  HostFileGuard socket_;
};

}  // namespace rdm::support

#endif
