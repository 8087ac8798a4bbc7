// SPDX-License-Identifier: MIT
/// The server: it accepts connections, knows those alive, and ends in good order.
#ifndef HOSTS_RDMD_SERVER_H
#define HOSTS_RDMD_SERVER_H

#include <atomic>
#include <list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "hosts/common/plugin.h"
#include "hosts/rdmd/io.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/roster.h"
#include "hosts/rdmd/service_thread.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class Connection;

class Server {
 public:
  /// Binds the addresses to listen on, "HOST:PORT" or "[IPV6]:PORT"; throws ListenError. Clients are refused until
  /// listen.
  Server(const Settings &settings, hosts::Plugin &plugin, ErrorLog &errors, AccessLog &access);
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;
  ~Server();

  /// listen lets clients connect, who then wait for run; throws ListenError. To be called once, when the plug-in can
  /// serve them.
  void listen();

  /// address names all addresses that are bound, as "127.0.0.1:8380, [::1]:8380", with the port that was free when 0
  /// was asked for.
  const std::string &address() const { return address_; }

  /// run serves until SIGTERM or SIGINT, then lets answers under way end within the shutdown limit, and the
  /// plug-in's last call within as much again. SIGUSR1 and SIGHUP reopen the logs, those of the plug-in as well.
  /// Returns false if the plug-in did not return in that time; its thread then still runs.
  bool run();

  /* ---- What connections use, from any thread ---- */

  const Limits &limits() const { return settings_.limits; }
  hosts::Plugin &plugin() { return plugin_; }
  ServiceThread &service() { return service_; }
  ErrorLog &errors() { return errors_; }
  AccessLog &access() { return access_; }
  bool stopping() const { return stopping_; }
  Roster &roster() { return roster_; }
  /// forget takes out a connection that ends.
  void forget(Roster::Place &place);
  /// released notes that a request let go of its memory. What the process no longer uses soon goes back to the system.
  /// Throws nothing.
  void released();

 private:
  /// Listener is a socket that clients connect to. `retry` ends a pause in accepting.
  struct Listener {
    Listener(const io::Executor &strand, io::Tcp family) : protocol(family), acceptor(strand), retry(strand) {}
    const io::Tcp protocol;
    io::Acceptor acceptor;
    io::Timer retry;
  };

  void limit_clients();
  void bind();
  void work();
  std::vector<std::thread> start_threads();
  void accept(Listener &listener);
  void accept_after(Duration rest, Listener &listener);
  Duration take_client(Listener &listener);
  Duration not_accepted(int error);
  void accepted(io::Socket socket);
  void note_shortage(const std::string &reason);
  bool make_room();
  bool evict();
  void await_signal();
  void handle(int signal);
  void reopen_logs(int signal);
  void trim_soon();
  void trim();
  void stop();
  void stop_now();
  void end_when_empty();
  void end();

  const Settings &settings_;
  hosts::Plugin &plugin_;
  ErrorLog &errors_;
  AccessLog &access_;

  Roster roster_;
  std::atomic<bool> stopping_ = false;
  std::atomic<bool> running_ = true;
  std::atomic<bool> memory_released_ = false;  // and not yet given back
  std::string address_;
  std::size_t client_limit_ = 0;
  bool full_ = false;                // the last client was turned away
  io::Clock::time_point next_line_;  // when the next line about a shortage may be written

  ServiceThread service_;
  boost::asio::io_context context_;
  io::Executor strand_;  // of everything below
  std::list<Listener> listeners_;
  io::Signals signals_;
  io::Timer shutdown_;
  io::Timer trim_;
};

}  // namespace rdm::rdmd

#endif
