// SPDX-License-Identifier: MIT
/// Upgrades under load: clients ask for the status and harvest while the program is replaced every three seconds
/// (SIGUSR2). A kept connection that the server closes between two answers is no failure. Prints the answers, and the
/// open files of master and front along the way. Exit status 1 if a request failed, or if files or processes are left.
///
/// Usage: upgrade_trial [SECONDS]
#include <signal.h>

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

constexpr std::chrono::seconds interval{3};

/// open_files returns the number of descriptors of a process.
std::size_t open_files(pid_t process) {
  const std::filesystem::directory_iterator files("/proc/" + std::to_string(process) + "/fd"), end;
  return static_cast<std::size_t>(std::distance(files, end));
}

/// Upgrades replaces the program again and again. The error output of all of them is that of the first.
class Upgrades {
 public:
  explicit Upgrades(support::RdmdProcess &server) : server_(server), master_(server.pid()) {}

  /// replace waits until the new program has taken over.
  void replace() {
    ::kill(master_, SIGUSR2);
    ++count_;
    const std::string mark = " has taken over\n";
    std::string text;
    const bool replaced = support::eventually([&] {
      text = server_.errors().substr(read_);
      return text.find(mark) != std::string::npos;
    });
    if (!replaced) fail("upgrade " + std::to_string(count_) + " did not happen: " + text);
    const std::size_t end = text.find(mark);
    master_ = std::stoi(text.substr(text.rfind(' ', end - 1)));
    read_ += end + mark.size();
  }

  void print() const {
    std::printf("after %3d upgrades: the master, process %d, has %zu open files\n", count_, master_,
                open_files(master_));
    std::fflush(stdout);
  }
  pid_t master() const { return master_; }

 private:
  support::RdmdProcess &server_;
  pid_t master_;
  int count_ = 0;
  std::size_t read_ = 0;  // bytes of the error output that have been looked at
};

/// replace_for upgrades for this time, and returns the last master.
pid_t replace_for(support::RdmdProcess &server, std::chrono::seconds time, bool &good) {
  const auto end = std::chrono::steady_clock::now() + time;
  Upgrades upgrades(server);
  upgrades.replace();
  upgrades.print();
  const std::size_t files = open_files(upgrades.master());
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(interval);
    upgrades.replace();
  }
  upgrades.print();
  good = good && open_files(upgrades.master()) <= files;
  return upgrades.master();
}

bool measure(std::chrono::seconds time) {
  const Site site(1000);
  const auto server = site.start({"--workers", "2"});
  bool good = true;
  Load load(server->port(), {{status_target, 6, Connections::kept},
                             {status_target, 6, Connections::new_for_each_request},
                             {harvest_target, 2, Connections::kept},
                             {harvest_target, 2, Connections::new_for_each_request}});
  const pid_t master = replace_for(*server, time, good);
  const Served got = load.end();
  std::printf("%zu right answers, %zu kept connections closed between answers, %zu other failures\n", got.right,
              got.closed, got.wrong - got.closed);
  ::kill(master, SIGTERM);
  // The last process of the server closes its standard error.
  const int status = server->wait();
  const std::size_t files = site.files_left(), processes = site.processes_left();
  std::printf("exit status %d, %zu files and %zu processes left\n", status, files, processes);
  return good && got.right > 0 && got.wrong == got.closed && status == 0 && files == 0 && processes == 0;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleTest();
  return run_bench([&] { return measure(std::chrono::seconds(argc > 1 ? std::stol(argv[1]) : 300)); });
}
