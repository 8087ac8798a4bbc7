// SPDX-License-Identifier: MIT
/// The server accepts connections, keeps a roster of them, and shuts down in order.
#ifndef HOSTS_RDMD_FRONT_SERVER_H
#define HOSTS_RDMD_FRONT_SERVER_H

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "hosts/common/plugin.h"
#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/front/admin.h"
#include "hosts/rdmd/front/admission.h"
#include "hosts/rdmd/front/client.h"
#include "hosts/rdmd/front/dispatcher.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/listener.h"
#include "hosts/rdmd/front/local_worker.h"
#include "hosts/rdmd/front/master_link.h"
#include "hosts/rdmd/front/memory_trim.h"
#include "hosts/rdmd/front/metrics.h"
#include "hosts/rdmd/front/proxies.h"
#include "hosts/rdmd/front/roster.h"
#include "hosts/rdmd/front/spill_budget.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/settings.h"
#include "hosts/rdmd/systemd.h"
#include "hosts/rdmd/tls_context.h"

namespace rdm::rdmd {

class Connection;

class Server {
 public:
  /// Makes a server whose process calls the plug-in and gets the signals. It takes bound sockets. Connections are
  /// refused until listen is called, except by a socket that listens already. `tls` is the
  /// context of the sockets that speak TLS; null if none does.
  Server(const Settings &settings, hosts::Plugin &plugin, ErrorLog &errors, AccessLog &access,
         std::vector<ListeningSocket> sockets, TlsContextPtr tls = nullptr);
  /// Makes a server whose master, at the other end of `control`, sends it workers and orders. The sockets listen.
  Server(const Settings &settings, HostFileGuard control, ErrorLog &errors, AccessLog &access,
         std::vector<ListeningSocket> sockets, TlsContextPtr tls = nullptr);
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;
  ~Server();

  /// listen makes the kernel accept connections, which wait until run is called; throws ListenError. Call it once, when
  /// the plug-in is ready.
  void listen();

  /// report_to makes the server tell `manager` while it runs that it is alive, reloads and stops. Call it before run.
  void report_to(const ServiceManager &manager) { manager_ = &manager; }

  /// address returns all addresses, such as "127.0.0.1:8380, [::1]:8380, 127.0.0.1:8443 (TLS)". For port 0 it shows the
  /// port that the system chose.
  const std::string &address() const { return address_; }
  /// admin_address returns the addresses of the administration endpoint, or an empty string if there is none.
  std::string admin_address() const { return admin_ ? admin_->address() : std::string(); }

  /// run serves until SIGTERM or SIGINT, or until the master's order or end. Then it gives the answers under way up to
  /// the shutdown timeout, and the plug-in's last call in this process the same time again. SIGUSR1 and SIGHUP reopen
  /// all logs, the plug-in's logs included; SIGUSR2 is only logged. Returns false if the plug-in has not returned by
  /// then; its thread is still running in that case.
  bool run();

  /// moment returns what the metrics say of this moment, but for the catalogs and readiness.
  Moment moment() const;
  /// not_ready returns why the server cannot answer requests at present, or an empty string if it can.
  std::string not_ready() const;

  /* ---- For connections, from any thread ---- */

  const Limits &limits() const { return settings_.limits; }
  const Settings &settings() const { return settings_; }
  Dispatcher &dispatcher() { return dispatcher_; }
  ErrorLog &errors() { return errors_; }
  AccessLog &access() { return access_; }
  Metrics &metrics() { return metrics_; }
  bool stopping() const { return stopping_; }
  /// next_connection returns the number of a new connection, from 1.
  std::uint64_t next_connection() { return connections_.fetch_add(1, std::memory_order_relaxed) + 1; }
  Roster &roster() { return roster_; }
  Admission &admission() { return admission_; }
  MemoryTrim &memory_trim() { return memory_trim_; }
  const Proxies &proxies() const { return proxies_; }
  SpillBudget &spill_budget() { return spill_budget_; }
  /// reads_proxy_headers returns true if each connection begins with a header of its proxy.
  bool reads_proxy_headers() const { return settings_.proxy_protocol; }
  /// forget removes the entry of a connection that is being destroyed.
  void forget(Roster::Entry &entry);

 private:
  Server(const Settings &settings, ErrorLog &errors, AccessLog &access, std::vector<ListeningSocket> sockets,
         TlsContextPtr tls);
  void reload();
  void reload_tls();
  void add_socket(ListeningSocket socket);
  AdminSource admin_source();
  void work();
  std::vector<std::thread> start_threads();
  Duration take_client(Listener &listener);
  void take_waiting(Listener &listener);
  Duration not_accepted(int error);
  void accepted(io::Socket socket, const Client &client, bool tls);
  void await_signal();
  void handle(int signal);
  void reopen_logs();
  void obey(const ControlMessage &message);
  void order_stop();
  void feed_watchdog();
  void stop();
  void stop_now();
  void end_when_empty();
  void end();

  const Settings &settings_;
  ErrorLog &errors_;
  AccessLog &access_;

  Metrics metrics_;
  Roster roster_;
  std::atomic<bool> stopping_ = false;
  std::atomic<bool> running_ = true;
  std::atomic<std::uint64_t> connections_ = 0;  // accepted so far
  std::string address_;
  Proxies proxies_;
  SpillBudget spill_budget_;
  Admission admission_;
  bool ended_ = false;  // nothing more is awaited

  boost::asio::io_context context_;
  io::Executor strand_;  // of everything below
  std::list<Listener> listeners_;
  TlsContextPtr tls_;  // of new connections; null: no socket speaks TLS
  MemoryTrim memory_trim_;
  Dispatcher dispatcher_;
  std::optional<MasterLink> master_;           // in a process that has a master
  std::optional<io::Signals> signals_;         // in the others
  std::shared_ptr<LocalWorker> local_worker_;  // in the others
  io::Timer shutdown_;
  io::Timer watchdog_;
  const ServiceManager *manager_ = nullptr;
  std::optional<Admin> admin_;
};

}  // namespace rdm::rdmd

#endif
