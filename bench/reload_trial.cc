// SPDX-License-Identifier: MIT
/// Reloads under load: 16 clients ask for the status and two harvest while the server reloads every ten seconds, every
/// fifth time with a configuration that is broken. Prints the answers, and the memory and open files of the front and
/// the number of workers along the way. Exit status 1 if a request failed or if memory or open files grew.
///
/// Usage: reload_trial [SECONDS [WORKERS]]
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "load.h"
#include "site.h"

using namespace rdm;
using namespace rdm::bench;

namespace {

constexpr std::chrono::seconds interval{10};
/// What is measured after this many reloads is the base: allocators and caches have their size then.
constexpr int settled = 6;
constexpr double growth_limit = 1.2;

struct Sample {
  std::size_t memory, files, workers;
};

Sample sample(const support::RdmdProcess &server, int reloads) {
  const Sample now{server.own_memory(), server.open_files(), server.children("rdmd-worker").size()};
  std::printf("after %3d reloads: %8zu bytes, %4zu files, %zu workers\n", reloads, now.memory, now.files, now.workers);
  std::fflush(stdout);
  return now;
}

/// occurrences counts a text in the error log.
std::size_t occurrences(support::RdmdProcess &server, std::string_view text) {
  const std::string log = server.errors();
  std::size_t count = 0;
  for (std::size_t at = 0; (at = log.find(text, at)) != std::string::npos; ++at) ++count;
  return count;
}

/// reload_for reloads again and again, and returns the growth of memory since the service settled.
double reload_for(const Site &site, const support::RdmdProcess &server, std::chrono::seconds time) {
  const std::string path = site.path("rdm.conf"), right = support::read_file(path);
  // The service needs the first line.
  const std::string broken = right.substr(right.find('\n') + 1);
  const auto end = std::chrono::steady_clock::now() + time;
  Sample base{}, now{};
  for (int reloads = 1; std::chrono::steady_clock::now() + interval <= end; ++reloads) {
    support::write_file(path, reloads % 5 == 0 ? broken : right);
    server.signal(SIGHUP);
    std::this_thread::sleep_for(interval);
    now = sample(server, reloads);
    if (reloads <= settled) base = now;
  }
  support::write_file(path, right);
  return base.memory == 0 ? 1 : static_cast<double>(now.memory) / static_cast<double>(base.memory);
}

bool measure(std::chrono::seconds time, const std::string &workers) {
  const Site site(1000);
  const auto server = site.start({"--workers", workers});
  const int port = server->port();
  const auto load = [&](const char *target, std::size_t clients, Connections connections) {
    return std::async(std::launch::async, [=] { return ask_for(port, target, clients, connections, time); });
  };
  auto kept = load(status_target, 8, Connections::kept),
       fresh = load(status_target, 8, Connections::new_for_each_request),
       harvests = load(harvest_target, 2, Connections::new_for_each_request);
  const double growth = reload_for(site, *server, time);
  bool good = growth <= growth_limit;
  for (auto *clients : {&kept, &fresh, &harvests}) {
    const Served served = clients->get();
    std::printf("%zu right answers, %zu wrong or none\n", served.right, served.wrong);
    good = good && served.right > 0 && served.wrong == 0;
  }
  const std::size_t reloads = occurrences(*server, "reload: logs reopened"),
                    refused = occurrences(*server, "still serving with the former configuration");
  std::printf("%zu reloads, %zu of them refused\n", reloads, refused);
  good = good && refused == reloads / 5;
  std::printf("memory has grown to %.2f of its size; the limit is %.1f\n", growth, growth_limit);
  server->signal(SIGTERM);
  return server->wait() == 0 && site.files_left() == 0 && good;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest();
  const std::chrono::seconds time(argc > 1 ? std::stol(argv[1]) : 600);
  return run_bench([&] { return measure(time, argc > 2 ? argv[2] : "2"); });
}
