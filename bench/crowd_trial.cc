// SPDX-License-Identifier: MIT
/// Status requests beside 10,000 other connections: 2,000 clients that read nothing of a harvest of 5 MB, 2,000 that
/// send a request at a byte a second, and 6,000 that send nothing. Prints the rate of 16 status clients beside them as
/// a ratio of the rate without them, for connections that are kept and for a connection per request, the server's own
/// memory for each client that reads nothing, and what is left when the crowd has gone. Exit status 1 if one of them is
/// beyond its limit.
///
/// Usage: crowd_trial [WORKERS]
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "load.h"
#include "site.h"

using namespace rdm;
using namespace rdm::bench;

namespace {

constexpr double rate_limit = 0.7;
constexpr double memory_limit = 16 * 1024;
constexpr Crowd::Size everybody{2000, 2000, 6000};
constexpr std::size_t records = 2500;
constexpr std::size_t status_clients = 16;
constexpr std::chrono::seconds patience{600}, measured{10};

bool good = true;

void judge(const char *what, double value, double limit, bool fits) {
  std::printf("%-58s %10.2f   limit %.2f%s\n", what, value, limit, fits ? "" : "   EXCEEDED");
  good = good && fits;
}

/// State is what a server holds.
struct State {
  std::size_t memory, files, temporary_files;
};

State state_of(const support::RdmdProcess &server) {
  return {server.own_memory(), server.open_files(), server.temporary_files()};
}

struct Rates {
  Served kept, fresh;
};

Rates rates(int port) {
  return {ask_for(port, status_target, status_clients, Connections::kept, measured),
          ask_for(port, status_target, status_clients, Connections::new_for_each_request, measured)};
}

void print(const char *when, const Rates &rates) {
  std::printf("%-30s %8.0f answers/s, median %.2f ms; with new connections %8.0f, median %.2f ms; wrong %zu\n", when,
              rates.kept.rate, 1000 * rates.kept.median.count(), rates.fresh.rate, 1000 * rates.fresh.median.count(),
              rates.kept.wrong + rates.fresh.wrong);
  good = good && rates.kept.wrong + rates.fresh.wrong == 0;
}

/// sending returns the number of connections with an answer that the client has not taken.
std::size_t sending(support::RdmdProcess &server) {
  const std::string metrics = support::http_get(server.admin_port(), "/metrics").body;
  const std::string sample = "\nrdmd_connections{state=\"sending\"} ";
  const std::size_t at = metrics.find(sample);
  return at == std::string::npos ? 0 : std::stoul(metrics.substr(at + sample.size()));
}

/// await_answers waits until all clients that read nothing have an answer to wait with.
void await_answers(support::RdmdProcess &server) {
  const auto end = std::chrono::steady_clock::now() + patience;
  while (sending(server) < everybody.stalled) {
    if (std::chrono::steady_clock::now() > end) fail("the stalled clients have not all got an answer to wait with");
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
}

/// memory_per_reader returns the front's own memory for each of the clients that read nothing.
double memory_per_reader(support::RdmdProcess &server, int port, const State &before) {
  const Crowd readers(port, {everybody.stalled, 0, 0});
  await_answers(server);
  return (static_cast<double>(server.own_memory()) - static_cast<double>(before.memory)) / everybody.stalled;
}

void beside_the_crowd(support::RdmdProcess &server, int port, const Rates &alone) {
  const Crowd crowd(port, everybody);
  await_answers(server);
  const Rates beside = rates(port);
  print("beside the crowd", beside);
  std::printf("the crowd: %zu connected, %zu made again\n", crowd.connected(), crowd.made_again());
  const double kept = beside.kept.rate / alone.kept.rate, fresh = beside.fresh.rate / alone.fresh.rate;
  judge("rate beside the crowd, of the rate alone", kept, rate_limit, kept >= rate_limit);
  judge("the same, a connection per request", fresh, rate_limit, fresh >= rate_limit);
}

void judge_what_is_left(const support::RdmdProcess &server, const State &before) {
  support::eventually([&] { return server.open_files() <= before.files; });
  const State after = state_of(server);
  judge("open files left", static_cast<double>(after.files), static_cast<double>(before.files),
        after.files <= before.files);
  judge("temporary files left", static_cast<double>(after.temporary_files), 0, after.temporary_files == 0);
}

void measure(const std::string &workers) {
  const Site site(records);
  const auto server = site.start({"--workers", workers, "--admin", "127.0.0.1:0", "--max-connections", "12000",
                                  "--max-connections-per-address", "0", "--queue-length", "10000", "--queue-time",
                                  "600", "--write-timeout", "3600", "--min-send-rate", "0", "--spill-limit", "0"});
  const int port = server->port();
  const Rates alone = rates(port);
  print("alone", alone);
  // The server keeps a database open from the first harvest on.
  support::http_get(port, harvest_target);
  const State before = state_of(*server);
  const double memory = memory_per_reader(*server, port, before);
  judge("memory per client that reads nothing, bytes", memory, memory_limit, memory <= memory_limit);
  support::eventually([&] { return server->open_files() <= before.files; });
  beside_the_crowd(*server, port, alone);
  judge_what_is_left(*server, before);
  server->signal(SIGTERM);
  if (server->wait() != 0) fail("the server ended badly: " + server->errors());
  judge("files left in tmpdir", static_cast<double>(site.files_left()), 0, site.files_left() == 0);
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest();
  return run_bench([&] {
    if (use_all_files() < 16384) fail("crowd_trial needs 16384 open files");
    measure(argc > 1 ? argv[1] : "2");
    return good;
  });
}
