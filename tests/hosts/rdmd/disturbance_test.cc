// SPDX-License-Identifier: MIT
/// Random sequences of what can happen to the processes of a server: they end, lack descriptors, find mistakes in the
/// configuration, and are replaced. Afterwards as many serve as before.

#include <signal.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <list>
#include <random>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/server_fixture.h"
#include "support/environment.h"

using namespace rdm;
using namespace std::chrono_literals;

namespace {

using support::HttpClient;
using support::HttpResponse;

constexpr int worker_count = 3;
constexpr std::size_t answer_size = 200'000;

/// disturbances returns how many a test makes: RDM_DISTURBANCES, or 60. RDM_SEED repeats a run.
int disturbances() { return support::number_from("RDM_DISTURBANCES", 60); }

/// open_files returns the number of descriptors of a process, or 0 if it has ended.
rlim_t open_files(pid_t process) {
  std::error_code ended;
  const std::filesystem::directory_iterator files("/proc/" + std::to_string(process) + "/fd", ended);
  return ended ? 0 : static_cast<rlim_t>(std::distance(files, std::filesystem::directory_iterator()));
}

/// limit_open_files sets a limit, up to the hard one. It fails for a process that has ended meanwhile.
void limit_open_files(pid_t process, rlim_t limit) {
  struct rlimit limits {};
  if (::prlimit(process, RLIMIT_NOFILE, nullptr, &limits) != 0) return;
  limits.rlim_cur = std::min(limit, limits.rlim_max);
  ::prlimit(process, RLIMIT_NOFILE, &limits, nullptr);
}

class HostDisturbance : public support::ServerTest {
 protected:
  HostDisturbance() {
    start({"--workers", std::to_string(worker_count)});
    client_ = std::thread([this] { request(); });
  }
  ~HostDisturbance() override {
    finished_ = true;
    client_.join();
  }

  /// request checks that an answer under way is right, broken off, or a refusal.
  void request() {
    const std::string right = pattern(answer_size);
    while (!finished_ && !HasFailure()) {
      const HttpResponse response = support::http_get(port_, "/rdm/big?" + std::to_string(answer_size));
      EXPECT_TRUE(std::set({0, 200, 500, 503}).contains(response.status)) << response.status;
      EXPECT_TRUE(response.status != 200 || right.starts_with(response.body)) << response.body.size();
      right_answers_ += response.body == right ? 1 : 0;
    }
  }

  std::vector<pid_t> workers() const { return server_->children("rdmd-worker"); }
  std::vector<pid_t> fronts() const { return server_->children("rdmd-front"); }

  int random(int below) { return std::uniform_int_distribution(0, below - 1)(random_); }
  void kill_one(const std::vector<pid_t> &processes) {
    if (processes.empty()) return;
    killed_.push_back(processes[random(static_cast<int>(processes.size()))]);
    ::kill(killed_.back(), SIGKILL);
  }
  void limit_for_a_while(const std::vector<pid_t> &processes) {
    for (const pid_t process : processes) limit_open_files(process, open_files(process));
    const int more = random(4);
    for (int i = 0; i < more; ++i) disturb(random(short_disturbances));
    for (const pid_t process : processes) limit_open_files(process, RLIM_INFINITY);
  }

  /// configure replaces the configuration for the plug-ins that start from now on.
  void configure(const std::string &more) const {
    std::filesystem::rename(directory_.write("next.conf", "journal=\"" + directory_.path("journal") + "\"\n" + more),
                            config_);
  }

  static constexpr int short_disturbances = 9, all_disturbances = 12;

  void disturb(int kind) {
    switch (kind) {
      case 0:
      case 1:
        return kill_one(workers());
      case 2:
        return kill_one(fronts());
      case 3:
        return server_->signal(SIGHUP);
      case 4:
        return server_->signal(SIGUSR1);
      case 5:
      case 6:
        return std::this_thread::sleep_for(std::chrono::milliseconds(random(100)));
      case 7:
        return configure("fail=\"no stars\"\n");
      case 8:
        return configure("");
      case 9:
        return limit_for_a_while({server_->pid()});
      case 10:
        return limit_for_a_while(fronts());
      case 11:
        return limit_for_a_while(workers());
    }
  }

  /// calls returns how many held requests the plug-in has begun.
  long calls() const {
    const std::string text = support::read_file(directory_.path("journal")), line = "service /rdm/slow";
    long count = 0;
    for (std::size_t at = 0; (at = text.find(line, at)) != std::string::npos; at += line.size()) ++count;
    return count;
  }

  /// await_killed waits until the master has noticed every end.
  void await_killed() {
    for (const pid_t process : killed_)
      EXPECT_TRUE(support::eventually([&] { return ::kill(process, 0) != 0; })) << process;
    killed_.clear();
  }

  /// expect_recovery expects a front and every worker to serve.
  void expect_recovery() {
    configure("");
    await_killed();
    EXPECT_TRUE(support::eventually([this] { return fronts().size() == 1 && workers().size() == worker_count; }))
        << fronts().size() << " fronts, " << workers().size() << " workers";
    std::filesystem::remove(directory_.path("released"));
    const long before = calls();
    std::list<HttpClient> clients;
    for (int i = 0; i < worker_count; ++i) clients.emplace_back(port_).send(get(held()));
    EXPECT_TRUE(support::eventually([&] { return calls() == before + worker_count; })) << calls() - before;
    release();
    for (HttpClient &client : clients) EXPECT_EQ(client.receive().body, "slow\n");
  }

  const std::mt19937::result_type seed_ = support::number_from("RDM_SEED", std::random_device{}());
  std::mt19937 random_{seed_};
  std::vector<pid_t> killed_;
  std::atomic<bool> finished_ = false;
  std::atomic<long> right_answers_ = 0;
  std::thread client_;
};

TEST_F(HostDisturbance, AfterwardsAsManyProcessesServeAsBefore) {
  for (int left = disturbances(); left > 0 && !HasFailure(); expect_recovery())
    for (const int end = left - 1 - random(10); left > end; --left) disturb(random(all_disturbances));
  EXPECT_GT(right_answers_, 0);
  finished_ = true;
  EXPECT_EQ(stop(), 0);
  EXPECT_FALSE(HasFailure()) << "RDM_SEED=" << seed_ << '\n' << server_->errors();
}

}  // namespace
