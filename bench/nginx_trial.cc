// SPDX-License-Identifier: MIT
/// Rates of status requests beside nginx serving the same bytes as a file, with wrk as the client: 1, 32 and 128
/// connections, kept or one per request, and rdmd with 0, 1 and 2 workers. Prints medians of rounds that take turns,
/// and ratios. Exit status 1 if the ratio with 32 kept connections is below its limit.
///
/// Usage: nginx_trial [ROUNDS [SECONDS [NGINX-WORKERS]]]
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "median.h"
#include "nginx.h"
#include "site.h"
#include "support/process.h"

using namespace rdm;
using namespace rdm::bench;

namespace {

/// ratio_limits returns the least ratios to nginx by number of workers; none is stated for 1.
std::map<std::string, double> ratio_limits() { return {{"0", 0.7}, {"2", 0.6}}; }

/// wrk returns the answers per second.
double wrk(const std::string &url, int connections, bool kept, const std::string &seconds) {
  const std::string count = std::to_string(connections);
  const auto finished = support::run(
      {"/bin/sh", "-c", "wrk -t1 -c" + count + " -d" + seconds + "s " + (kept ? "" : "-H 'Connection: close' ") + url});
  const std::string name = "Requests/sec:";
  const std::size_t at = finished.out.find(name);
  if (at == std::string::npos || finished.out.find("Non-2xx") != std::string::npos) fail("wrk: " + finished.out);
  return std::stod(finished.out.substr(at + name.size()));
}

/// Contestant is a server and what it reached in each round.
struct Contestant {
  std::string name, workers, url;
  std::unique_ptr<support::RdmdProcess> server;
};

std::vector<Contestant> contestants(const Site &site, const Nginx &nginx) {
  const std::string nginx_url = "http://127.0.0.1:" + std::to_string(nginx.port()) + "/status";
  std::vector<Contestant> all;
  all.push_back({"nginx", "", nginx_url, nullptr});
  for (const std::string workers : {"0", "1", "2"}) {
    auto server = site.start({"--workers", workers});
    const std::string url = "http://127.0.0.1:" + std::to_string(server->port()) + status_target;
    all.push_back({"rdmd --workers " + workers, workers, url, std::move(server)});
  }
  return all;
}

bool contest(const std::vector<Contestant> &all, int connections, bool kept, int rounds, const std::string &seconds) {
  std::vector<std::vector<double>> rates(all.size());
  for (int round = 0; round < rounds; ++round)
    for (std::size_t i = 0; i < all.size(); ++i) rates[i].push_back(wrk(all[i].url, connections, kept, seconds));
  const std::map<std::string, double> limits = ratio_limits();
  bool good = true;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const double ratio = median(rates[i]) / median(rates[0]);
    const auto limit = limits.find(all[i].workers);
    const bool judged = kept && connections == 32 && limit != limits.end();
    const bool fits = !judged || ratio >= limit->second;
    std::printf("%4d %-8s %-18s %9.0f/s  %.2f x nginx%s\n", connections, kept ? "kept" : "new", all[i].name.c_str(),
                median(rates[i]), ratio, fits ? "" : "  BELOW ITS LIMIT");
    good = good && fits;
  }
  std::fflush(stdout);
  return good;
}

bool measure(int rounds, const std::string &seconds, const std::string &nginx_workers) {
  const Site site(10);
  const Nginx nginx(nginx_workers);
  const auto any = site.start({"--workers", "0"});
  support::write_file(nginx.file("status"), support::http_get(any->port(), status_target).body);
  const std::vector<Contestant> all = contestants(site, nginx);
  bool good = true;
  for (const bool kept : {true, false})
    for (const int connections : {1, 32, 128}) good = contest(all, connections, kept, rounds, seconds) && good;
  return good;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest();
  return run_bench(
      [&] { return measure(argc > 1 ? std::stoi(argv[1]) : 3, argc > 2 ? argv[2] : "2", argc > 3 ? argv[3] : "1"); });
}
