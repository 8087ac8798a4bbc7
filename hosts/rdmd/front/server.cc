// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include <boost/asio/post.hpp>

#include "hosts/rdmd/front/connection.h"
#include "hosts/rdmd/transform/transform.h"

namespace rdm::rdmd {
namespace {

using boost::system::error_code;

/// How long accepting pauses when the process is out of descriptors or memory, and how long after a
/// connection has made way for that reason.
constexpr Duration accept_pause{100}, made_way_pause{10};
/// limit_segments sets TCP_MAXSEG to 16 KiB. The loopback interface uses segments of 64 KiB otherwise, and a client
/// that reads slowly acknowledges nothing until it has read a whole segment.
void limit_segments(io::Acceptor &acceptor) {
  using SegmentSize = boost::asio::detail::socket_option::integer<IPPROTO_TCP, TCP_MAXSEG>;
  error_code ignored;
  acceptor.set_option(SegmentSize(16384), ignored);
}

/// is_shortage returns true if accept() failed because the process or the system is out of descriptors or memory.
bool is_shortage(int error) { return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM; }

}  // namespace

Server::Server(const Settings &settings, hosts::Plugin &plugin, ErrorLog &errors, AccessLog &access,
               std::vector<ListeningSocket> sockets, TlsContextPtr tls)
    : Server(settings, errors, access, std::move(sockets), std::move(tls)) {
  signals_.emplace(strand_, SIGHUP, SIGUSR1, SIGUSR2);
  const auto call = [&plugin, gzip = settings.gzip](hosts::ServiceRequest &&request) {
    return answer_request(plugin, std::move(request), gzip);
  };
  local_worker_ = std::make_shared<LocalWorker>(call, strand_, dispatcher_);
  dispatcher_.add(local_worker_, 0);
}

Server::Server(const Settings &settings, HostFileGuard control, ErrorLog &errors, AccessLog &access,
               std::vector<ListeningSocket> sockets, TlsContextPtr tls)
    : Server(settings, errors, access, std::move(sockets), std::move(tls)) {
  master_.emplace(
      std::move(control), strand_, dispatcher_, errors_, [this](const ControlMessage &message) { obey(message); },
      [this] {
        errors_.error("the master process has ended");
        order_stop();
      });
}

Server::Server(const Settings &settings, ErrorLog &errors, AccessLog &access, std::vector<ListeningSocket> sockets,
               TlsContextPtr tls)
    : settings_(settings),
      errors_(errors),
      access_(access),
      proxies_(settings.trusted_proxies),
      spill_budget_(static_cast<std::int64_t>(settings.limits.spill),
                    static_cast<std::int64_t>(settings.limits.spill_per_address.value_or(settings.limits.spill / 2))),
      admission_(settings, proxies_, roster_, errors),
      context_(settings.threads),
      strand_(context_.get_executor()),
      tls_(std::move(tls)),
      memory_trim_(strand_),
      dispatcher_(settings.limits, strand_),
      shutdown_(strand_),
      watchdog_(strand_) {
  for (ListeningSocket &socket : sockets) add_socket(std::move(socket));
}

void Server::add_socket(ListeningSocket socket) {
  if (socket.admin) {
    if (!admin_) admin_.emplace(context_, settings_.config, admin_source());
    return admin_->add(std::move(socket));
  }
  address_ += (address_.empty() ? "" : ", ") + socket.address + (socket.tls ? " (TLS)" : "");
  limit_segments(listeners_.emplace_back(strand_, std::move(socket)).acceptor());
}

/// Connections still open are destroyed with the I/O context; `running_` tells them not to post work to it.
Server::~Server() {
  running_ = false;
  memory_trim_.stop();
}

void Server::listen() {
  // Not before: while the plug-in starts, they end the process.
  if (signals_)
    for (const int signal : {SIGTERM, SIGINT}) signals_->add(signal);
  if (admin_) admin_->listen();
  for (Listener &listener : listeners_) listener.listen();
}

bool Server::run() {
  boost::asio::post(strand_, [this] {
    if (signals_) await_signal();
    feed_watchdog();
    if (master_) master_->start();
    for (Listener &listener : listeners_) listener.start([this](Listener &from) { return take_client(from); });
  });
  if (admin_) admin_->start();
  std::vector<std::thread> threads = start_threads();
  work();
  for (std::thread &thread : threads) thread.join();
  running_ = false;
  return !local_worker_ || local_worker_->stop(settings_.limits.shutdown);
}

/// start_threads starts the I/O threads beside this one. If the system refuses a thread, the server continues with
/// fewer.
std::vector<std::thread> Server::start_threads() {
  std::vector<std::thread> threads;
  try {
    for (int i = 1; i < settings_.threads; ++i) threads.emplace_back([this] { work(); });
  } catch (const std::exception &error) {
    errors_.failure("start I/O thread", error, ErrorLog::Severity::warning);
  }
  return threads;
}

/// work runs the I/O context until it is out of work. An exception, such as bad_alloc, abandons only the handler that
/// threw it: a handler of a connection, of accepting, of a signal or of trimming memory.
void Server::work() {
  for (;;) {
    try {
      context_.run();
      return;
    } catch (const std::exception &error) {
      errors_.failure("a connection failed", error);
    }
  }
}

/* ---- Accepting ---- */

/// take_client accepts a client if one is waiting, and returns how long to pause before the next.
Duration Server::take_client(Listener &listener) {
  try {
    // Make the strand before accept(): if memory is short, the client stays in the accept queue.
    io::Socket socket(boost::asio::make_strand(context_));
    sockaddr_storage address{};
    if (const int error = listener.accept(socket, address)) return not_accepted(error);
    accepted(std::move(socket), client_of(reinterpret_cast<const sockaddr *>(&address)), listener.speaks_tls());
    return Duration::zero();
  } catch (const std::exception &error) {
    errors_.failure("a connection failed", error);
    return accept_pause;
  }
}

/// take_waiting accepts the clients whose connections the end of the listening socket would reset. No more than its
/// queue holds: others may come all the time.
void Server::take_waiting(Listener &listener) {
  for (int taken = 0; taken < SOMAXCONN && listener.has_client(); ++taken)
    if (take_client(listener) != Duration::zero()) return;
}

/// not_accepted returns how long to pause after accept() has failed. On a shortage a waiting connection makes way.
Duration Server::not_accepted(int error) {
  if (error == EAGAIN || error == EINTR || error == ECONNABORTED) return Duration::zero();
  if (!is_shortage(error)) return accept_pause;
  return admission_.relieve(std::generic_category().message(error)) ? made_way_pause : accept_pause;
}

void Server::accepted(io::Socket socket, const Client &client, bool tls) {
  if (reads_proxy_headers() && !proxies_.trusts(client)) return errors_.trouble(Trouble::not_a_proxy, client.text);
  const std::optional<Trouble> refused = admission_.find_refusal(client);
  if (refused && !admission_.may_turn_away(client.key, *refused))
    return errors_.trouble(Trouble::disconnected, client.text);
  SslPtr session = tls ? tls_->session(socket.native_handle()) : nullptr;
  auto connection = std::make_shared<Connection>(std::move(socket), *this, client, std::move(session));
  roster_.admit(connection->roster_entry(), connection, client.key, refused.has_value());
  if (refused)
    connection->turn_away(*refused);
  else
    connection->start();
}

void Server::forget(Roster::Entry &entry) {
  roster_.remove(entry);
  if (!running_) return;
  memory_trim_.released();
  if (!stopping_) return;
  try {
    boost::asio::post(strand_, [this] { end_when_empty(); });
  } catch (const std::bad_alloc &) {
    // If this was the last connection, the shutdown timeout ends the server.
  }
}

/* ---- Observing ---- */

Moment Server::moment() const {
  Moment moment;
  moment.connections = roster_.count_states();
  moment.accepted = connections_.load(std::memory_order_relaxed);
  const Dispatcher::Status status = dispatcher_.status();
  const auto set = [&moment](WorkerState state, std::size_t count) {
    moment.workers[static_cast<std::size_t>(state)] = count;
  };
  moment.queued = status.queued;
  set(WorkerState::idle, status.free);
  set(WorkerState::busy, status.busy);
  set(WorkerState::stopping, status.retired);
  moment.spilled = spill_budget_.used();
  return moment;
}

AdminSource Server::admin_source() {
  const auto metrics = [this](std::vector<CatalogFigures> catalogs, bool ready) {
    Moment now = moment();
    now.catalogs = std::move(catalogs);
    now.ready = ready;
    return metrics_.text(now, errors_);
  };
  return {[this] { return not_ready(); }, metrics,
          [this](const std::vector<std::string> &csids) { metrics_.set_catalogs(csids); }};
}

std::string Server::not_ready() const {
  if (stopping_) return "the server is stopping";
  const Dispatcher::Status status = dispatcher_.status();
  if (status.free + status.busy == 0) return "no worker is ready";
  if (status.responsive == 0) return "every worker has been busy with one request for more than 10 seconds";
  return {};
}

/* ---- Signals and the end ---- */

void Server::await_signal() {
  signals_->async_wait([this](const error_code &error, int signal) {
    // After the end another signal may be left in the queue: waiting for the next would keep the server.
    if (error || ended_) return;
    await_signal();
    handle(signal);
  });
}

void Server::handle(int signal) {
  if (signal == SIGUSR2)
    return errors_.warn("SIGUSR2: ignored: without worker processes, only a restart replaces the program");
  if (signal != SIGUSR1 && signal != SIGHUP) return order_stop();
  if (manager_ != nullptr && signal == SIGHUP) manager_->reloading();
  reopen_logs();
  errors_.info(signal == SIGUSR1 ? "SIGUSR1: logs reopened"
                                 : "SIGHUP: logs reopened; without worker processes the configuration is read only at "
                                   "start-up");
  if (signal == SIGHUP) reload_tls();
  if (manager_ != nullptr && signal == SIGHUP) manager_->ready("Listening on " + address_);
}

/// feed_watchdog tells the service manager at intervals that this strand runs.
void Server::feed_watchdog() {
  if (manager_ == nullptr || !manager_->watchdog() || ended_) return;
  manager_->alive();
  watchdog_.expires_after(*manager_->watchdog());
  watchdog_.async_wait([this](const error_code &error) {
    if (!error) feed_watchdog();
  });
}

void Server::obey(const ControlMessage &message) {
  if (message.kind == ControlMessage::Kind::stop) order_stop();
  if (message.kind == ControlMessage::Kind::reopen) reopen_logs();
  if (message.kind == ControlMessage::Kind::reload) reload();
  if (message.kind == ControlMessage::Kind::ended && !message.text.empty()) metrics_.worker_restarted();
}

/// reload reads again what the reload of the workers does not: certificates, and the list of catalogs.
void Server::reload() {
  reload_tls();
  if (admin_) admin_->reload();
}

/// order_stop lets the answers under way finish; a second order, or too little memory for the first, cuts them off.
void Server::order_stop() {
  try {
    stopping_ ? stop_now() : stop();
  } catch (const std::bad_alloc &error) {
    errors_.failure("stop", error);
    ended_ = true;
    context_.stop();
  }
}

/// reload_tls reads the certificate and the key again, for new connections. If they cannot be used, it keeps the old
/// ones and logs why.
void Server::reload_tls() {
  if (!tls_) return;
  try {
    tls_ = std::make_shared<const TlsContext>(settings_.tls);
    for (const std::string &warning : tls_->warnings()) errors_.warn(warning);
    errors_.info("SIGHUP: TLS certificate read again: " + settings_.tls.certificate);
  } catch (const std::exception &error) {
    errors_.error(std::string(error.what()) + "; new connections still use the certificate read before");
  }
}

void Server::reopen_logs() {
  errors_.reopen();
  if (!access_.reopen())
    errors_.error("reopen the access log: " + std::generic_category().message(errno) +
                  "; still writing to the old file");
  dispatcher_.reopen_logs();
}

void Server::stop() {
  if (!master_) errors_.info("stopping");
  if (manager_ != nullptr) manager_->stopping();
  stopping_ = true;
  memory_trim_.stop();
  for (Listener &listener : listeners_) {
    take_waiting(listener);
    listener.stop();
    listener.file().remove();
  }
  for (const auto &connection : roster_.all()) connection->close_if_idle();
  shutdown_.expires_after(settings_.limits.shutdown);
  shutdown_.async_wait([this](const error_code &error) {
    if (!error) stop_now();
  });
  end_when_empty();
}

/// stop_now closes all connections. It does not wait for the plug-in; run waits for it afterwards.
void Server::stop_now() {
  const auto open = roster_.all();
  if (!open.empty()) errors_.warn("closing " + std::to_string(open.size()) + " open connections");
  for (const auto &connection : open) connection->abort();
  end();
}

void Server::end_when_empty() {
  if (roster_.empty()) end();
}

/// end cancels everything the I/O context waits for, so that work returns.
void Server::end() {
  ended_ = true;
  if (admin_) admin_->stop();
  shutdown_.cancel();
  watchdog_.cancel();
  if (signals_) signals_->cancel();
  if (master_) master_->stop();
  try {
    dispatcher_.stop();
  } catch (const std::bad_alloc &) {
    // Workers that could not be told still wait.
    context_.stop();
  }
}

}  // namespace rdm::rdmd
