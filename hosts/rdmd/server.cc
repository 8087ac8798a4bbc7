#include "hosts/rdmd/server.h"

#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>

#include "hosts/rdmd/connection.h"
#include "hosts/rdmd/listen_address.h"

namespace rdmd {
namespace {

using boost::system::error_code;

/// Clients beyond the connection limit that are told so; further ones are cut off.
constexpr std::size_t turned_away_limit = 64;
/// How long accepting rests when the process has no descriptor or no memory left.
constexpr Duration accept_rest{100};

/// allow_descriptors raises the process's limit as far as it may be: each connection takes one for itself and, while it
/// is answered, one for a file.
void allow_descriptors() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

Server::Server(const Settings &settings, hosts::Plugin &plugin, ErrorLog &errors, AccessLog &access)
    : settings_(settings),
      plugin_(plugin),
      errors_(errors),
      access_(access),
      strand_(context_.get_executor()),
      signals_(strand_, SIGTERM, SIGINT, SIGHUP),
      shutdown_(strand_) {
  allow_descriptors();
  bind();
}

Server::~Server() = default;

void Server::bind() {
  BoundSockets bound = bind_listen(settings_.listen);
  for (const std::string &address : bound.missing)
    errors_.warn("cannot listen on " + settings_.listen + ": " + address + "; listening on its other addresses");
  for (file_guard &socket : bound.sockets) {
    const ListenAddress address = local_address(socket.get());
    address_ += (address_.empty() ? "" : ", ") + address.text();
    Listener &listener = listeners_.emplace_back(strand_, address.family() == AF_INET6 ? io::Tcp::v6() : io::Tcp::v4());
    listener.acceptor.assign(listener.protocol, socket.get());
    socket.release();
    listener.acceptor.non_blocking(true);
  }
}

void Server::listen() {
  for (Listener &listener : listeners_) {
    error_code error;
    listener.acceptor.listen(io::Acceptor::max_listen_connections, error);
    if (error) throw ListenError(settings_.listen, error.message(), error.value());
  }
}

bool Server::run() {
  boost::asio::post(strand_, [this] {
    await_signal();
    for (Listener &listener : listeners_) accept(listener);
  });
  std::vector<std::thread> threads = start_threads();
  work();
  for (std::thread &thread : threads) thread.join();
  running_ = false;
  return service_.stop(settings_.limits.shutdown);
}

/// start_threads starts the threads beside this one, as many of them as the system has.
std::vector<std::thread> Server::start_threads() {
  std::vector<std::thread> threads;
  try {
    for (int i = 1; i < settings_.threads; ++i) threads.emplace_back([this] { work(); });
  } catch (const std::exception &error) {
    errors_.warn(std::string("a thread cannot be started: ") + error.what());
  }
  return threads;
}

/// work runs the I/O of this thread to its end. What fails for want of memory costs the connection it happened on.
void Server::work() {
  for (;;) {
    try {
      context_.run();
      return;
    } catch (const std::exception &error) {
      errors_.error(std::string("a connection failed: ") + error.what());
    }
  }
}

/* ---- Accepting ---- */

void Server::accept(Listener &listener) {
  // Only the waiting is left to the I/O: a client that it accepted and then had no memory for would be the last.
  listener.acceptor.async_wait(io::Acceptor::wait_read, [this, &listener](const error_code &) {
    if (stopping_) return;
    take_client(listener) ? accept(listener) : pause_accepting(listener);
  });
}

/// take_client accepts a client if one still waits. False when there is no descriptor or no memory for it.
bool Server::take_client(Listener &listener) {
  try {
    // The strand comes first: a client that there is no memory for waits to be accepted.
    io::Socket socket(boost::asio::make_strand(context_));
    // Not by the acceptor, whose sockets are inherited by the commands that the plug-in runs.
    file_guard client(::accept4(listener.acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client) return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
    socket.assign(listener.protocol, client.get());
    client.release();
    accepted(std::move(socket));
    return true;
  } catch (const std::exception &error) {
    errors_.error(std::string("a connection failed: ") + error.what());
    return false;
  }
}

void Server::pause_accepting(Listener &listener) {
  listener.retry.expires_after(accept_rest);
  listener.retry.async_wait([this, &listener](const error_code &error) {
    if (!error && !stopping_) accept(listener);
  });
}

void Server::accepted(io::Socket socket) {
  const auto open = connections();
  if (open.size() >= settings_.limits.connections + turned_away_limit) return;
  const bool room = make_room(open);
  if (!room && !full_) errors_.warn("the connection limit is reached; clients are turned away");
  full_ = !room;
  auto connection = std::make_shared<Connection>(std::move(socket), *this);
  admit(connection);
  if (room)
    connection->start();
  else
    connection->turn_away();
}

void Server::admit(const std::shared_ptr<Connection> &connection) {
  const std::lock_guard lock(mutex_);
  alive_.emplace(connection.get(), connection);
}

/// make_room tells whether a client can be served. At the limit the connection that has been idle longest makes way.
bool Server::make_room(const std::vector<std::shared_ptr<Connection>> &open) {
  const auto served = std::count_if(open.begin(), open.end(), [](const auto &c) { return !c->turned_away(); });
  if (static_cast<std::size_t>(served) < settings_.limits.connections) return true;
  std::shared_ptr<Connection> longest;
  std::int64_t since = std::numeric_limits<std::int64_t>::max();
  for (const auto &connection : open) {
    const std::int64_t idle = connection->idle_since();
    if (idle == 0 || idle >= since) continue;
    longest = connection;
    since = idle;
  }
  if (!longest) return false;
  longest->close_if_idle();
  return true;
}

std::vector<std::shared_ptr<Connection>> Server::connections() {
  std::vector<std::shared_ptr<Connection>> result;
  const std::lock_guard lock(mutex_);
  for (const auto &[key, connection] : alive_)
    if (auto shared = connection.lock()) result.push_back(std::move(shared));
  return result;
}

void Server::forget(const Connection *connection) {
  {
    const std::lock_guard lock(mutex_);
    alive_.erase(connection);
  }
  if (stopping_ && running_) boost::asio::post(strand_, [this] { end_when_empty(); });
}

/* ---- Signals and the end ---- */

void Server::await_signal() {
  signals_.async_wait([this](const error_code &error, int signal) {
    if (error) return;
    await_signal();
    handle(signal);
  });
}

void Server::handle(int signal) {
  if (signal == SIGHUP) {
    errors_.reopen();
    if (!access_.reopen()) errors_.error("the access log cannot be reopened; it goes on in the old file");
  } else if (stopping_) {
    stop_now();
  } else {
    stop();
  }
}

void Server::stop() {
  errors_.info("stopping");
  stopping_ = true;
  error_code ignored;
  for (Listener &listener : listeners_) {
    listener.acceptor.close(ignored);
    listener.retry.cancel();
  }
  for (const auto &connection : connections()) connection->close_if_idle();
  shutdown_.expires_after(settings_.limits.shutdown);
  shutdown_.async_wait([this](const error_code &error) {
    if (!error) stop_now();
  });
  end_when_empty();
}

/// stop_now ends even when the plug-in has not returned: run then finds out.
void Server::stop_now() {
  const auto open = connections();
  if (!open.empty()) errors_.warn(std::to_string(open.size()) + " connections are cut off");
  for (const auto &connection : open) connection->abort();
  end();
}

void Server::end_when_empty() {
  {
    const std::lock_guard lock(mutex_);
    if (!alive_.empty()) return;
  }
  end();
}

/// end leaves the I/O nothing to wait for.
void Server::end() {
  shutdown_.cancel();
  signals_.cancel();
  for (Listener &listener : listeners_) listener.retry.cancel();
}

}  // namespace rdmd
