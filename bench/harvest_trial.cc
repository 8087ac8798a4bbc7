// SPDX-License-Identifier: MIT
/// Status requests beside eight clients that harvest a catalog of 20,000 RDs again and again, with two workers. Prints
/// the median time of a status request alone and beside them. Exit status 1 if their ratio is beyond its limit, or if
/// an answer was wrong.
///
/// Usage: harvest_trial [SECONDS]
#include <cstdio>
#include <future>

#include <gtest/gtest.h>

#include "load.h"
#include "site.h"

using namespace rdm;
using namespace rdm::bench;

namespace {

constexpr double ratio_limit = 5;
constexpr std::size_t harvesters = 8;

void print(const char *what, const Served &served) {
  std::printf("%-28s median %9.3f ms, %7zu right answers, %zu wrong\n", what, 1000 * served.median.count(),
              served.right, served.wrong);
}

bool measure(std::chrono::seconds time) {
  const Site site(20000);
  const auto server = site.start({"--workers", "2"});
  const int port = server->port();
  const Served alone = ask_for(port, status_target, 1, Connections::new_for_each_request, time);
  print("status alone", alone);
  auto harvests = std::async(std::launch::async, [&] {
    return ask_for(port, harvest_target, harvesters, Connections::new_for_each_request, time + std::chrono::seconds(2));
  });
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const Served beside = ask_for(port, status_target, 1, Connections::new_for_each_request, time);
  const Served harvested = harvests.get();
  print("status beside harvesters", beside);
  print("harvests", harvested);
  const double ratio = beside.median / alone.median;
  std::printf("the median beside harvesters is %.2f times that alone; the limit is %.0f\n", ratio, ratio_limit);
  return ratio <= ratio_limit && alone.wrong + beside.wrong + harvested.wrong == 0;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest();
  return run_bench([&] { return measure(std::chrono::seconds(argc > 1 ? std::stoi(argv[1]) : 10)); });
}
