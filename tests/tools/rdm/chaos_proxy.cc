// SPDX-License-Identifier: MIT
#include "tools/rdm/chaos_proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include <gtest/gtest.h>

#include "tools/rdm/scripted_server.h"

namespace rdm::client {
namespace {

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<uint16_t>(port));
  return address;
}

const sockaddr *generic(const sockaddr_in &address) {
  const void *const pointer = &address;
  return static_cast<const sockaddr *>(pointer);
}

bool send_all(int to, const char *bytes, size_t count) {
  while (count > 0) {
    const ssize_t sent = ::send(to, bytes, count, MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes += sent;
    count -= static_cast<size_t>(sent);
  }
  return true;
}

}  // namespace

int listen_on_loopback(int &port) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  EXPECT_EQ(::bind(listener, generic(address), size), 0);
  EXPECT_EQ(::listen(listener, 16), 0);
  void *const pointer = &address;
  ::getsockname(listener, static_cast<sockaddr *>(pointer), &size);
  port = ntohs(address.sin_port);
  return listener;
}

int connect_to_loopback(int port) {
  const int connection = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = loopback(port);
  if (::connect(connection, generic(address), sizeof address) == 0) return connection;
  ::close(connection);
  return -1;
}

ChaosProxy::ChaosProxy(int server, Choose choose, Disturb disturb)
    : server_(server),
      choose_(std::move(choose)),
      disturb_(std::move(disturb)),
      listener_(listen_on_loopback(port_)),
      thread_([this] { serve(); }) {}

ChaosProxy::~ChaosProxy() {
  is_ending_ = true;
  ::shutdown(listener_, SHUT_RDWR);
  thread_.join();
  ::close(listener_);
}

void ChaosProxy::serve() {
  while (!is_ending_) {
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) continue;
    relay(client);
    ::close(client);
  }
}

void ChaosProxy::relay(int client) {
  const Fate fate = choose_();
  if (fate.is_refused) {
    char block[65536];
    if (::recv(client, block, sizeof block, 0) <= 0) return;
    const std::string busy = http("", "Retry-After: 0\r\n", "503 Service Unavailable");
    send_all(client, busy.data(), busy.size());
    return;
  }
  const int server = connect_to_loopback(server_);
  if (server < 0) return;
  answer(client, server, fate);
  ::close(server);
}

/// answer relays both directions until one side ends or the fate comes true.
void ChaosProxy::answer(int client, int server, Fate fate) {
  char block[4096];
  size_t answered = 0;
  pollfd ends[] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
  while (::poll(ends, 2, -1) > 0) {
    const bool is_request = ends[0].revents != 0;
    const size_t wanted = is_request ? sizeof block : std::min(sizeof block, fate.cut - answered);
    const ssize_t got = ::recv(is_request ? client : server, block, wanted, 0);
    if (got <= 0 || !send_all(is_request ? server : client, block, static_cast<size_t>(got))) return;
    if (is_request) continue;
    answered += static_cast<size_t>(got);
    if (fate.interval != 0 && answered >= fate.interval) {
      fate.interval = 0;
      disturb_();
    }
    if (answered >= fate.cut) return;
    if (fate.is_slow) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
}

}  // namespace rdm::client
