// SPDX-License-Identifier: MIT
/// A proxy that disturbs exchanges.
#ifndef TESTS_TOOLS_RDM_CHAOS_PROXY_H
#define TESTS_TOOLS_RDM_CHAOS_PROXY_H

#include <atomic>
#include <functional>
#include <random>
#include <string>
#include <thread>

namespace rdm::client {

/// Fate is what happens to a connection.
struct Fate {
  bool is_refused = false;  // answered with 503
  size_t cut = SIZE_MAX;    // closed after so many bytes of the answer
  size_t interval = 0;      // `disturb` is called once, after so many bytes of the answer; 0 for never
  bool is_slow = false;     // pauses between pieces
};

/// ChaosProxy relays connections on the loopback interface to a server, one at a time.
class ChaosProxy {
 public:
  using Choose = std::function<Fate()>;
  using Disturb = std::function<void()>;
  /// The callbacks are called on the thread of the proxy.
  ChaosProxy(int server, Choose choose, Disturb disturb);
  ChaosProxy(const ChaosProxy &) = delete;
  ChaosProxy &operator=(const ChaosProxy &) = delete;
  ~ChaosProxy();

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/rdm"; }

 private:
  void serve();
  void relay(int client);
  void answer(int client, int server, Fate fate);

  int server_;
  Choose choose_;
  Disturb disturb_;
  int port_ = 0;  // set by the next member
  int listener_;
  std::atomic<bool> is_ending_ = false;
  std::thread thread_;
};

/// listen_on_loopback returns a listening socket, and connect_to_loopback a connected one or -1.
int listen_on_loopback(int &port);
int connect_to_loopback(int port);

}  // namespace rdm::client

#endif
