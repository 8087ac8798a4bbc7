// SPDX-License-Identifier: MIT
/// Clients that load a server.
#ifndef BENCH_LOAD_H
#define BENCH_LOAD_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace rdm::bench {

enum class Connections { kept, new_for_each_request };

/// What clients got. `wrong` counts answers that were not 200 with the body of the first answer, and requests without
/// an answer.
struct Served {
  double rate = 0;  // right answers per second
  std::size_t right = 0, wrong = 0;
  // Of the wrong ones:
  std::size_t failed = 0;   // 500 with Retry-After and without a body
  std::size_t refused = 0;  // no connection could be made
  std::size_t closed = 0;   // the server closed a connection after an answer; the client had begun to ask again
  std::size_t lost = 0;     // a new connection ended before the first byte of its answer
  std::size_t cut = 0;      // a connection ended within an answer
  std::chrono::duration<double> median{};
};

/// ask_for runs clients, each of which asks for the target again and again, for this time.
Served ask_for(int port, const std::string &target, std::size_t clients, Connections connections,
               std::chrono::milliseconds time);

/// Load runs clients, as ask_for does, from its construction until end is called.
class Load {
 public:
  struct Clients {
    std::string target;
    std::size_t count;
    Connections connections;
  };

  Load(int port, const std::vector<Clients> &groups);
  Load(const Load &) = delete;
  Load &operator=(const Load &) = delete;
  ~Load();

  /// end waits for the last answers and returns what all clients together got, without rate and median.
  Served end();

 private:
  struct Group;
  std::atomic<bool> ends_{false};
  std::vector<std::unique_ptr<Group>> groups_;
};

/// Crowd is a thread that keeps many connections to a server, each from one of 200 addresses of the loopback network.
/// A connection that the server closes is made anew.
class Crowd {
 public:
  /// Stalled clients ask for a harvest and read nothing; slow ones send a request at a byte a second; idle ones send
  /// nothing.
  struct Size {
    std::size_t stalled = 0, slow = 0, idle = 0;
  };

  Crowd(int port, Size size);
  Crowd(const Crowd &) = delete;
  Crowd &operator=(const Crowd &) = delete;
  ~Crowd();

  /// connected returns the number of connections that are established, made_again the number of those that the server
  /// had closed.
  std::size_t connected() const { return connected_; }
  std::size_t made_again() const { return made_again_; }

 private:
  struct Client;
  void run();
  void join(Client &client);
  void step(Client &client, std::uint32_t events);
  void leave(Client &client);
  void tell_slow_ones();

  int port_, events_;
  std::atomic<bool> ends_{false};
  std::atomic<std::size_t> connected_{0}, made_again_{0};
  std::vector<Client> clients_;
  std::thread thread_;
};

}  // namespace rdm::bench

#endif
