// SPDX-License-Identifier: MIT
/// Processes of the server are killed at random under load: 14 clients ask for the status and two harvest while 200
/// workers, then 20 fronts, then 20 masters end by SIGKILL. After a master, the server is started again on the same
/// port. Prints what the clients got. Exit status 1 if
///
/// - an answer had a wrong byte;
/// - a worker's end cost more than one request, or more than a 500;
/// - a front's end cost more than one request of each client, or a client was refused;
/// - a master's end cost an answer under way;
/// - a process or a file is left.
///
/// Usage: kill_trial [WORKERS_KILLED [FRONTS_KILLED [MASTERS_KILLED]]]
#include <signal.h>

#include <cstdio>
#include <functional>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "load.h"
#include "loopback.h"
#include "site.h"

using namespace rdm;
using namespace rdm::bench;
using std::chrono::milliseconds;

namespace {

constexpr std::size_t kept_clients = 8, fresh_clients = 6, harvesters = 2;
constexpr std::size_t clients = kept_clients + fresh_clients + harvesters;

/// random_pause lets the load go on for some time up to `longest`.
void random_pause(milliseconds longest) {
  static std::mt19937 generator(std::random_device{}());
  std::this_thread::sleep_for(milliseconds(std::uniform_int_distribution<long>(1, longest.count())(generator)));
}

/// under_load calls `kill` this often, with pauses, while clients ask. Returns what they got.
Served under_load(int port, int kills, milliseconds longest_pause, const std::function<void()> &kill) {
  Load load(port, {{status_target, kept_clients, Connections::kept},
                   {status_target, fresh_clients, Connections::new_for_each_request},
                   {harvest_target, harvesters, Connections::new_for_each_request}});
  for (int i = 0; i < kills; ++i) {
    random_pause(longest_pause);
    kill();
  }
  random_pause(longest_pause);
  return load.end();
}

/// judge prints what the clients got, and returns `good` if no answer was wrong.
bool judge(const char *what, int kills, const Served &got, bool good) {
  const std::size_t unlike = got.wrong - got.failed - got.refused - got.closed - got.lost - got.cut;
  std::printf("%4d %s killed: %zu right answers; %zu failed, %zu refused, %zu closed, %zu lost, %zu cut, %zu wrong%s\n",
              kills, what, got.right, got.failed, got.refused, got.closed, got.lost, got.cut, unlike,
              good ? "" : "   EXCEEDED");
  std::fflush(stdout);
  return good && unlike == 0 && got.right > 0;
}

void kill_worker(const support::RdmdProcess &server) {
  std::vector<pid_t> workers;
  support::eventually([&] { return !(workers = server.children("rdmd-worker")).empty(); });
  ::kill(workers.at(static_cast<std::size_t>(std::random_device{}()) % workers.size()), SIGKILL);
}

/// kill_front waits until another one has taken the place.
void kill_front(const support::RdmdProcess &server) {
  const pid_t front = server.front();
  ::kill(front, SIGKILL);
  support::eventually([&] {
    const std::vector<pid_t> now = server.children("rdmd-front");
    return !now.empty() && now.front() != front;
  });
}

class Trial {
 public:
  bool run(int workers, int fronts, int masters) {
    start();
    const bool good[] = {kill_workers(workers), kill_fronts(fronts), kill_masters(masters), nothing_is_left()};
    return good[0] && good[1] && good[2] && good[3];
  }

 private:
  void start() {
    server_ = site_.start({"--workers", "2", "--listen", "127.0.0.1:" + std::to_string(port_)});
    if (server_->port() == 0) fail("the server did not start");
  }

  bool kill_workers(int kills) {
    const Served got = under_load(port_, kills, milliseconds(500), [this] { kill_worker(*server_); });
    return judge("workers", kills, got, got.failed <= static_cast<std::size_t>(kills) && got.wrong == got.failed);
  }

  bool kill_fronts(int kills) {
    const Served got = under_load(port_, kills, milliseconds(2000), [this] { kill_front(*server_); });
    const bool fits = got.closed + got.lost + got.cut <= static_cast<std::size_t>(kills) * clients;
    return judge("fronts", kills, got, fits && got.refused == 0);
  }

  bool kill_masters(int kills) {
    const Served got = under_load(port_, kills, milliseconds(2000), [this] {
      server_->signal(SIGKILL);
      // The last process of the server closes its standard error.
      server_->wait();
      start();
    });
    return judge("masters", kills, got, got.failed + got.cut == 0);
  }

  bool nothing_is_left() {
    server_->signal(SIGTERM);
    const int status = server_->wait();
    const std::size_t files = site_.files_left(), processes = site_.processes_left();
    std::printf("exit status %d, %zu files and %zu processes left\n", status, files, processes);
    return status == 0 && files == 0 && processes == 0;
  }

  const Site site_{1000};
  const int port_ = free_port();
  std::unique_ptr<support::RdmdProcess> server_;
};

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest();
  const auto number = [&](int index, int usual) { return argc > index ? std::stoi(argv[index]) : usual; };
  return run_bench([&] { return Trial().run(number(1, 200), number(2, 20), number(3, 20)); });
}
