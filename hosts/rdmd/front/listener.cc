// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/listener.h"

#include <poll.h>

#include <cerrno>
#include <utility>

namespace rdm::rdmd {

using boost::system::error_code;

Listener::Listener(const io::Executor &strand, ListeningSocket from)
    : socket_(std::move(from)),
      protocol_(local_address(socket_.socket.get()).family(), 0),
      acceptor_(strand),
      pause_(strand) {
  acceptor_.assign(protocol_, socket_.socket.get());
  socket_.socket.release();
  acceptor_.non_blocking(true);
}

void Listener::listen() { begin_listening(acceptor_.native_handle(), socket_); }

void Listener::start(Take take) {
  take_ = std::move(take);
  await_client();
}

void Listener::stop() {
  stopped_ = true;
  error_code ignored;
  acceptor_.close(ignored);
  pause_.cancel();
}

void Listener::await_client() {
  // Wait for readability and call accept() ourselves: if async_accept threw bad_alloc, the loop would never be
  // re-armed.
  acceptor_.async_wait(io::Acceptor::wait_read, [this](const error_code &) {
    if (!stopped_) await_client_after(take_(*this));
  });
}

void Listener::await_client_after(Duration pause) {
  if (pause == Duration::zero()) return await_client();
  pause_.expires_after(pause);
  pause_.async_wait([this](const error_code &) {
    if (!stopped_) await_client();
  });
}

bool Listener::has_client() {
  pollfd waiting{acceptor_.native_handle(), POLLIN, 0};
  return ::poll(&waiting, 1, 0) > 0;
}

int Listener::accept(io::Socket &socket, sockaddr_storage &address) {
  socklen_t size = sizeof address;
  // Asio's accept() would not set SOCK_CLOEXEC, and commands that the plug-in runs would inherit the socket.
  HostFileGuard client(::accept4(acceptor_.native_handle(), reinterpret_cast<sockaddr *>(&address), &size,
                                 SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!client) return errno;
  socket.assign(protocol_, client.get());
  client.release();
  return 0;
}

}  // namespace rdm::rdmd
