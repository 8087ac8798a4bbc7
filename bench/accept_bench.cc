// SPDX-License-Identifier: MIT
/// Accepting clients: CPU time of the server for a short connection, alone and with 5,000 idle connections (or as many
/// as the limit of open files allows). Prints the ratio of the two, with exit status 1 if it is above the limit: the
/// cost of accepting must not depend on the number of connections.
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "support/directories.h"
#include "support/files.h"

using namespace rdm;

namespace {

constexpr double ratio_limit = 1.5;
constexpr std::size_t many = 5000;
constexpr int short_connections = 200;  // per iteration

/// allowed_clients raises the limit of open files and returns how many clients it allows this program and the server.
std::size_t allowed_clients() {
  struct rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return 100;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_max / 2;
}

/// Server is an rdmd with idle clients.
class Server {
 public:
  Server()
      : config_(directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n")),
        process_({"--listen", "127.0.0.1:0", "--plugin", support::in_build("tests/test_plugin.so"), "--config", config_,
                  "--max-connections", "10000", "--max-connections-per-address", "0", "--header-timeout", "3600"}),
        port_(process_.port()) {}

  void hold(std::size_t clients) {
    while (idle_.size() < clients) idle_.push_back(std::make_unique<support::HttpClient>(port_));
  }

  /// cost returns the CPU time of the server for one short connection, in seconds.
  double cost() const {
    const auto before = process_.cpu_time();
    for (int i = 0; i < short_connections; ++i)
      if (support::http_get(port_, "/nowhere").status != 404) fail();
    return std::chrono::duration<double>(process_.cpu_time() - before).count() / short_connections;
  }

 private:
  [[noreturn]] static void fail() {
    std::cerr << "accept_bench: a client is not answered\n";
    std::exit(1);
  }

  support::TemporaryDirectory directory_;
  std::string config_;
  support::RdmdProcess process_;
  int port_;
  std::vector<std::unique_ptr<support::HttpClient>> idle_;
};

/// short_connection measures with `range` connections open. Each size has a server of its own.
void short_connection(benchmark::State &state) {
  Server server;
  server.hold(static_cast<std::size_t>(state.range(0)));
  server.cost();
  for (auto _ : state) state.SetIterationTime(server.cost());
}

std::size_t most_clients() { return std::min(many, allowed_clients()); }

BENCHMARK(short_connection)
    ->Arg(0)
    ->Arg(static_cast<std::int64_t>(most_clients()))
    ->Iterations(10)
    ->Repetitions(3)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);

/// Figures is the usual report; it also keeps the least time of each size, because other load on the machine only adds
/// time.
class Figures : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      double &least = times_.try_emplace(run.run_name.args, run.GetAdjustedRealTime()).first->second;
      least = std::min(least, run.GetAdjustedRealTime());
    }
  }
  /// ratio returns the time with the most connections divided by the time with the fewest, or 0 if one was not
  /// measured.
  double ratio() const {
    const auto alone = times_.find("0");
    return alone == times_.end() || times_.size() < 2 ? 0 : std::next(alone)->second / alone->second;
  }

 private:
  std::map<std::string, double> times_;
};

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  testing::InitGoogleTest();
  Figures figures;
  benchmark::RunSpecifiedBenchmarks(&figures);
  benchmark::Shutdown();
  if (figures.ratio() == 0) return 0;
  std::printf("with %zu idle connections: %.2f of the time with none; the limit is %.1f\n", most_clients(),
              figures.ratio(), ratio_limit);
  return figures.ratio() <= ratio_limit ? 0 : 1;
}
