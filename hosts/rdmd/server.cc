// SPDX-License-Identifier: MIT
#include "hosts/rdmd/server.h"

#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <boost/asio/post.hpp>

#include "hosts/common/host_table.h"
#include "hosts/rdmd/connection.h"
#include "hosts/rdmd/listen_address.h"

namespace rdm::rdmd {
namespace {

using boost::system::error_code;

/// Clients beyond the connection limit that are told so; further ones are cut off.
constexpr std::size_t turned_away_limit = 64;
/// How long accepting rests when the process has no descriptor or no memory left, and how long when a connection was
/// closed for it.
constexpr Duration accept_rest{100}, evicted_rest{10};
/// How often at most the log has a line about such a shortage.
constexpr std::chrono::minutes shortage_interval{1};
/// Descriptors that the process keeps for others than the clients it serves: for those it turns away, its own, its
/// logs, and the files of one request.
constexpr std::size_t reserved_descriptors = turned_away_limit + 32;
/// As many as it needs for all but those that it turns away.
constexpr std::size_t least_reserved_descriptors = 32;
/// How long memory that is no longer used stays with the process. Later requests take it without asking the system.
constexpr Duration trim_rest{1000};

/// allow_descriptors raises the process's limit as far as it may be and returns it.
std::size_t allow_descriptors() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return std::numeric_limits<std::size_t>::max();
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

/// descriptors_for returns how many descriptors `connections` connections may take: each takes one for itself and,
/// while it is answered, one for a file.
std::size_t descriptors_for(std::size_t connections) { return 2 * connections + reserved_descriptors; }

/// connections_within returns how many connections a limit of open files allows, at least one; of a low limit a quarter
/// is reserved.
std::size_t connections_within(std::size_t descriptors) {
  const std::size_t reserved = std::clamp(descriptors / 4, least_reserved_descriptors, reserved_descriptors);
  return descriptors > reserved ? descriptors - reserved : 1;
}

/// limit_segments keeps segments of the loopback interface, which are of 64 KiB, to what they may be elsewhere: a
/// client that reads slowly acknowledges nothing until it has read a whole one.
void limit_segments(io::Acceptor &acceptor) {
  using SegmentSize = boost::asio::detail::socket_option::integer<IPPROTO_TCP, TCP_MAXSEG>;
  error_code ignored;
  acceptor.set_option(SegmentSize(16384), ignored);
}

/// is_shortage tells whether accept() failed because the process or the system has no more descriptors or memory.
bool is_shortage(int error) { return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM; }

}  // namespace

Server::Server(const Settings &settings, hosts::Plugin &plugin, ErrorLog &errors, AccessLog &access)
    : settings_(settings),
      plugin_(plugin),
      errors_(errors),
      access_(access),
      strand_(context_.get_executor()),
      signals_(strand_, SIGTERM, SIGINT, SIGHUP),
      shutdown_(strand_),
      trim_(strand_) {
  signals_.add(SIGUSR1);
  limit_clients();
  bind();
}

/// Connections that have not ended end with the I/O, and find a server that does nothing more for them.
Server::~Server() { running_ = false; }

/// limit_clients sets how many clients are served at once, and warns where open files may run short.
void Server::limit_clients() {
  const std::size_t wanted = settings_.limits.connections;
  const std::size_t files = allow_descriptors();
  client_limit_ = std::min(wanted, connections_within(files));
  if (files >= descriptors_for(wanted)) return;
  errors_.warn("the limit of open files is " + std::to_string(files) + ", but " + std::to_string(wanted) +
               " connections may need " + std::to_string(descriptors_for(wanted)) +
               "; raise it (ulimit -n, LimitNOFILE) or lower --max-connections");
}

void Server::bind() {
  BoundSockets bound = bind_listen(settings_.listen);
  for (const std::string &address : bound.missing)
    errors_.warn("cannot listen on " + settings_.listen + ": " + address + "; listening on its other addresses");
  for (HostFileGuard &socket : bound.sockets) {
    const ListenAddress address = local_address(socket.get());
    address_ += (address_.empty() ? "" : ", ") + address.text();
    Listener &listener = listeners_.emplace_back(strand_, address.family() == AF_INET6 ? io::Tcp::v6() : io::Tcp::v4());
    listener.acceptor.assign(listener.protocol, socket.get());
    socket.release();
    listener.acceptor.non_blocking(true);
    limit_segments(listener.acceptor);
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
    if (!stopping_) accept_after(take_client(listener), listener);
  });
}

void Server::accept_after(Duration rest, Listener &listener) {
  if (rest == Duration::zero()) return accept(listener);
  listener.retry.expires_after(rest);
  listener.retry.async_wait([this, &listener](const error_code &error) {
    if (!error && !stopping_) accept(listener);
  });
}

/// take_client accepts a client if one still waits, and returns how long to rest before the next.
Duration Server::take_client(Listener &listener) {
  try {
    // The strand comes first: a client that there is no memory for waits to be accepted.
    io::Socket socket(boost::asio::make_strand(context_));
    // Not by the acceptor, whose sockets are inherited by the commands that the plug-in runs.
    HostFileGuard client(::accept4(listener.acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!client) return not_accepted(errno);
    socket.assign(listener.protocol, client.get());
    client.release();
    accepted(std::move(socket));
    return Duration::zero();
  } catch (const std::exception &error) {
    errors_.error(std::string("a connection failed: ") + error.what());
    return accept_rest;
  }
}

/// not_accepted returns how long to rest after accept() has failed. Where it lacked room, the connection that has been
/// idle longest makes way.
Duration Server::not_accepted(int error) {
  if (error == EAGAIN || error == EINTR || error == ECONNABORTED) return Duration::zero();
  if (!is_shortage(error)) return accept_rest;
  note_shortage(std::generic_category().message(error));
  return evict() ? evicted_rest : accept_rest;
}

/// note_shortage leaves a line about clients that could only be accepted at the cost of others.
void Server::note_shortage(const std::string &reason) {
  const auto now = io::Clock::now();
  if (now < next_line_) return;
  next_line_ = now + shortage_interval;
  errors_.warn("accept: " + reason + ": idle connections make way for new clients");
}

void Server::accepted(io::Socket socket) {
  const bool room = make_room();
  if (!room && roster_.turned_away() >= turned_away_limit)
    return errors_.trouble(Trouble::disconnected, client_address(socket));
  if (!room && !full_) errors_.warn("the connection limit is reached; clients are turned away");
  full_ = !room;
  auto connection = std::make_shared<Connection>(std::move(socket), *this);
  roster_.admit(connection->place(), connection, !room);
  if (room)
    connection->start();
  else
    connection->turn_away();
}

/// make_room tells whether a client can be served. At the limit the connection that has been idle longest makes way.
bool Server::make_room() {
  if (roster_.served() < client_limit_) return true;
  if (client_limit_ < settings_.limits.connections) note_shortage("the limit of open files is reached");
  return evict();
}

/// evict closes the connection that has been idle longest. False when none is idle.
bool Server::evict() {
  const std::shared_ptr<Connection> longest = roster_.take_longest_idle();
  if (longest) longest->close_if_idle();
  return longest != nullptr;
}

void Server::forget(Roster::Place &place) {
  roster_.remove(place);
  released();
  if (stopping_ && running_) boost::asio::post(strand_, [this] { end_when_empty(); });
}

/* ---- Memory ---- */

void Server::released() {
  if (stopping_ || !running_ || memory_released_.exchange(true)) return;
  try {
    boost::asio::post(strand_, [this] { trim_soon(); });
  } catch (const std::exception &) {
    // The next request tries again.
    memory_released_ = false;
  }
}

void Server::trim_soon() {
  if (stopping_) return;
  trim_.expires_after(trim_rest);
  trim_.async_wait([this](const error_code &error) {
    if (!error) trim();
  });
}

/// trim returns free pages from between those in use as well: a burst of large requests leaves what the connections
/// that stay hold all over the memory it took.
void Server::trim() {
  memory_released_ = false;
  ::malloc_trim(0);
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
  if (signal == SIGUSR1 || signal == SIGHUP)
    reopen_logs(signal);
  else if (stopping_)
    stop_now();
  else
    stop();
}

void Server::reopen_logs(int signal) {
  errors_.reopen();
  if (!access_.reopen())
    errors_.error("the access log cannot be reopened: " + std::generic_category().message(errno) +
                  "; it goes on in the old file");
  hosts::reopen_logs();
  errors_.info(signal == SIGUSR1 ? "SIGUSR1: the logs are reopened"
                                 : "SIGHUP: the logs are reopened; the configuration is read only at the start");
}

void Server::stop() {
  errors_.info("stopping");
  stopping_ = true;
  error_code ignored;
  for (Listener &listener : listeners_) {
    listener.acceptor.close(ignored);
    listener.retry.cancel();
  }
  for (const auto &connection : roster_.all()) connection->close_if_idle();
  shutdown_.expires_after(settings_.limits.shutdown);
  shutdown_.async_wait([this](const error_code &error) {
    if (!error) stop_now();
  });
  end_when_empty();
}

/// stop_now ends even when the plug-in has not returned: run then finds out.
void Server::stop_now() {
  const auto open = roster_.all();
  if (!open.empty()) errors_.warn(std::to_string(open.size()) + " connections are cut off");
  for (const auto &connection : open) connection->abort();
  end();
}

void Server::end_when_empty() {
  if (roster_.empty()) end();
}

/// end leaves the I/O nothing to wait for.
void Server::end() {
  shutdown_.cancel();
  trim_.cancel();
  signals_.cancel();
  for (Listener &listener : listeners_) listener.retry.cancel();
}

}  // namespace rdm::rdmd
