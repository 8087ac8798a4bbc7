// SPDX-License-Identifier: MIT
/// Accepts the clients of a listening socket, without ever giving up: when a client cannot be taken, it pauses.
///
/// All members but `listen` run on the strand.
#ifndef HOSTS_RDMD_FRONT_LISTENER_H
#define HOSTS_RDMD_FRONT_LISTENER_H

#include <sys/socket.h>

#include <functional>

#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/listeners.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class Listener {
 public:
  /// Take accepts a client if one is waiting. Returns how long to pause before the next; zero: not at all.
  using Take = std::function<Duration(Listener &listener)>;

  Listener(const io::Executor &strand, ListeningSocket from);
  Listener(const Listener &) = delete;
  Listener &operator=(const Listener &) = delete;

  /// listen makes the kernel accept connections; throws ListenError. It may be called from any thread, before start.
  void listen();
  /// start calls `take` whenever a client waits, until stop is called.
  void start(Take take);
  /// stop closes the socket. The I/O context then has no work of this listener.
  void stop();

  /// has_client returns true if accept would not wait.
  bool has_client();
  /// accept accepts a client into `socket`; `address` becomes its address. Returns 0 or errno.
  int accept(io::Socket &socket, sockaddr_storage &address);

  const std::string &address() const { return socket_.address; }
  bool speaks_tls() const { return socket_.tls; }
  SocketFile &file() { return socket_.file; }
  io::Acceptor &acceptor() { return acceptor_; }

 private:
  void await_client();
  void await_client_after(Duration pause);

  ListeningSocket socket_;  // without its descriptor, which the acceptor owns
  const io::Protocol protocol_;
  io::Acceptor acceptor_;
  io::Timer pause_;
  Take take_;
  bool stopped_ = false;
};

}  // namespace rdm::rdmd

#endif
