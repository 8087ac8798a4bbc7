// SPDX-License-Identifier: MIT
/// The administration endpoint: health and metrics over HTTP, on sockets of its own.
///
/// It answers GET and HEAD of /livez, /readyz, /healthz and /metrics, one request per connection, and is meant for the
/// machine or a network of operators. At most connection_limit connections are open at once; the one open longest makes
/// way for a new one. A connection has request_timeout for its head, and the same for its answer.
///
/// The files of the catalogs are read on a thread of its own, at most once in cache_time. If a file system does not
/// answer within files_timeout, this counts as a failure, and /livez and /metrics answer all the same.
///
/// Members run on the endpoint's strand unless stated otherwise.
#ifndef HOSTS_RDMD_FRONT_ADMIN_H
#define HOSTS_RDMD_FRONT_ADMIN_H

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/thread_pool.hpp>

#include "hosts/rdmd/front/health.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/listener.h"
#include "hosts/rdmd/listeners.h"

namespace rdm::rdmd {

class AdminConnection;

/// AdminSource is what the endpoint asks of the server. Its functions are called on any thread and must not block.
struct AdminSource {
  std::function<std::string()> not_ready;  // why no request can be answered; empty: ready
  std::function<std::string(std::vector<CatalogFigures>, bool)> metrics;  // the text, from the catalogs and readiness
  std::function<void(const std::vector<std::string> &)> set_catalogs;     // takes the CSIDs of the configuration
};

class Admin {
 public:
  static constexpr std::size_t connection_limit = 16;
  static constexpr std::chrono::seconds request_timeout{5}, files_timeout{2}, cache_time{1};

  /// Reads the catalogs from the configuration of the service.
  Admin(boost::asio::io_context &context, std::string config, AdminSource source);
  Admin(const Admin &) = delete;
  Admin &operator=(const Admin &) = delete;
  ~Admin();

  /// add takes a bound socket; call it before start.
  void add(ListeningSocket socket);
  /// listen makes the kernel accept connections; throws ListenError. Call it once, before start.
  void listen();
  /// start begins to accept. It may be called from any thread, once.
  void start();
  /// reload reads the catalogs again, after a new configuration has become valid. It may be called from any thread.
  void reload();
  /// stop closes everything, so that the I/O context runs out of work. It may be called from any thread.
  void stop();

  /// address returns the addresses, such as "127.0.0.1:8381".
  const std::string &address() const { return address_; }

  /* ---- For connections ---- */

  /// State is the state of the catalogs; `health` is null if their files could not be read in time.
  using State = std::shared_ptr<const Health>;
  using Use = std::function<void(const State &)>;
  /// with_health calls `use` with a state not older than cache_time, at once or later.
  void with_health(Use use);
  const AdminSource &source() const { return source_; }

 private:
  Duration take_client(Listener &listener);
  void make_room();
  void read_catalogs();
  void examine_files();
  void examined(State health);
  void answer_waiting(const State &health);

  const std::string config_;
  const AdminSource source_;
  io::Executor strand_;
  std::list<Listener> listeners_;
  std::list<std::weak_ptr<AdminConnection>> connections_;  // in the order in which they were accepted
  std::string address_;

  std::vector<check::ConfiguredCatalog> catalogs_;
  State health_;                         // the last state read
  io::Clock::time_point examined_at_;    // when it was read
  std::atomic<bool> examining_ = false;  // the files are being read
  std::vector<Use> waiting_;             // for the state
  io::Timer files_timer_;
  boost::asio::thread_pool files_{1};  // reads the files; destroyed first
};

}  // namespace rdm::rdmd

#endif
