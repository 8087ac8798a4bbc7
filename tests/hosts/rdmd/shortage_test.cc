// SPDX-License-Identifier: MIT
/// Servers that are short of descriptors, and processes that end again and again.

#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/server_fixture.h"
#include "support/process.h"

using namespace rdm;
using namespace std::chrono_literals;

namespace {

using support::HttpClient;
using support::RdmdProcess;

std::set<rlim_t> descriptors_of(pid_t process) {
  std::set<rlim_t> numbers;
  for (const auto &file : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/fd"))
    numbers.insert(std::stoul(file.path().filename().string()));
  return numbers;
}

/// limit_leaving returns the limit of open files with which a process can open `free` more.
rlim_t limit_leaving(pid_t process, int free) {
  const std::set<rlim_t> used = descriptors_of(process);
  rlim_t limit = 0;
  for (; free > 0 || used.contains(limit); ++limit) free -= used.contains(limit) ? 0 : 1;
  return limit;
}

/// With this limit a process can open nothing, whatever it closes: the standard streams take the numbers below it.
constexpr rlim_t no_more_files = 3;

/// OpenFileLimit is a limit of open files of a process during its lifetime.
class OpenFileLimit {
 public:
  OpenFileLimit(pid_t process, rlim_t limit) : process_(process) {
    EXPECT_EQ(::prlimit(process, RLIMIT_NOFILE, nullptr, &before_), 0);
    const struct rlimit few = {limit, before_.rlim_max};
    EXPECT_EQ(::prlimit(process, RLIMIT_NOFILE, &few, nullptr), 0);
  }
  OpenFileLimit(const OpenFileLimit &) = delete;
  OpenFileLimit &operator=(const OpenFileLimit &) = delete;
  ~OpenFileLimit() { ::prlimit(process_, RLIMIT_NOFILE, &before_, nullptr); }

 private:
  const pid_t process_;
  struct rlimit before_ {};
};

class HostShortage : public support::ServerTest {
 protected:
  void start_workers(int count, std::vector<std::string> more = {}, unsigned descriptors = 0) {
    more.insert(more.end(), {"--workers", std::to_string(count)});
    start(more, descriptors);
  }

  std::string get_body(const std::string &target) const { return support::http_get(port_, target).body; }

  std::size_t workers() const { return server_->children("rdmd-worker").size(); }
};

TEST_F(HostShortage, TooLowALimitOfOpenFilesIsRefusedWithTheNumberThatIsNeeded) {
  for (const auto &[workers, needed] : {std::pair{0, 50}, {1, 56}, {4, 74}}) {
    const std::string count = std::to_string(workers);
    RdmdProcess server({"--listen", "127.0.0.1:0", "--plugin", plugin(), "--config", directory_.write("rdm.conf", ""),
                        "--workers", count},
                       needed - 1);
    EXPECT_EQ(server.wait(), 1);
    EXPECT_NE(server.errors().find("[error] rdmd: the limit of open files is " + std::to_string(needed - 1) +
                                   ", but the server needs " + std::to_string(needed) + " with --workers " + count +
                                   "; raise it (ulimit -n, LimitNOFILE)\n"),
              std::string::npos)
        << server.errors();
  }
}

// Sanitizers reserve more address space themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(HostShortage, TooLowALimitOfAddressSpaceIsRefusedWithTheNumberThatIsNeeded) {
  // Regression: the server started, and crashed when clients came: in the C library, which ends a process without
  // memory, and in Asio. Stacks took what a limit that sufficed for two threads left.
  const auto refused = [&](const char *workers, int threads, const std::string &needed) {
    const std::string count = std::to_string(threads);
    const support::Finished finished =
        support::run({"/usr/bin/prlimit", "--as=33554432", "--stack=8388608", support::in_build("bin/rdmd"), "--listen",
                      "127.0.0.1:0", "--plugin", plugin(), "--config", directory_.write("rdm.conf", ""), "--workers",
                      workers, "--threads", count});
    EXPECT_EQ(finished.status, 1);
    return finished.errors.find("[error] rdmd: the limit of address space is 32768 KiB, but the server needs " +
                                needed + " with --threads " + count + "; raise it (ulimit -v, LimitAS)\n") !=
           std::string::npos;
  };
  for (const char *const workers : {"0", "1"}) {
    EXPECT_TRUE(refused(workers, 2, "73728"));
    EXPECT_TRUE(refused(workers, 64, "835584"));
  }
}
#endif

TEST_F(HostShortage, TheLeastLimitOfOpenFilesSufficesForAnswersAndReloads) {
  const std::string file = directory_.write("file", "shared\n");
  for (const auto &[workers, needed] : {std::pair{0, 50}, {1, 56}, {4, 74}}) {
    start_workers(workers, observed(), needed);
    server_->signal(SIGHUP);
    EXPECT_TRUE(server_->await_error(workers > 0 ? "the workers of generation 2 serve\n" : "SIGHUP: logs reopened"));
    EXPECT_EQ(get_body("/rdm/shared-file?" + file), "shared\n");
    EXPECT_EQ(get_body("/rdm/big?1000000"), pattern(1'000'000));
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(server_->errors().find("Too many open files"), std::string::npos) << server_->errors();
  }
}

TEST_F(HostShortage, AnAnswerWhoseFileTheFrontCannotTakeCostsOneRequestAndNoWorker) {
  // Regression: the front killed the worker, and had no descriptors for the socket of the next one either.
  start_workers(1);
  const std::string file = directory_.write("file", "shared\n");
  EXPECT_EQ(get_body("/rdm/shared-file?" + file), "shared\n");
  const std::vector<pid_t> before = server_->children("rdmd-worker");
  HttpClient client(port_);
  client.send(get("/rdm/fast"));
  EXPECT_EQ(client.receive().body, "fast\n");
  {
    const OpenFileLimit none(server_->front(), no_more_files);
    client.send(get("/rdm/shared-file?" + file));
    EXPECT_EQ(client.receive().status, 500);
  }
  EXPECT_TRUE(server_->await_error("[error] rdmd: cannot answer a request: Too many open files (client 127.0.0.1, "))
      << server_->errors();
  EXPECT_EQ(get_body("/rdm/shared-file?" + file), "shared\n");
  EXPECT_EQ(server_->children("rdmd-worker"), before);
}

TEST_F(HostShortage, AWorkerThatTheFrontCannotTakeIsReplacedWhenItCan) {
  start_workers(1);
  {
    const OpenFileLimit none(server_->front(), no_more_files);
    ::kill(server_->children("rdmd-worker").at(0), SIGKILL);
    EXPECT_TRUE(
        server_->await_error("[error] rdmd: a message of the master is lost: take a worker: Too many open files\n"))
        << server_->errors();
  }
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
}

TEST_F(HostShortage, AMasterWithoutDescriptorsStartsTheProcessesWhenItHasSome) {
  // Regression: the places of workers that could not be started after the end of a front stayed empty.
  start_workers(2);
  {
    const OpenFileLimit none(server_->pid(), no_more_files);
    ::kill(server_->front(), SIGKILL);
    EXPECT_TRUE(server_->await_error("[error] rdmd: start a worker: socketpair: Too many open files\n"));
    EXPECT_TRUE(server_->await_error("[error] rdmd: start the front process: socketpair: Too many open files\n"));
  }
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  EXPECT_TRUE(support::eventually([this] { return workers() == 2; }));
}

TEST_F(HostShortage, APlaceThatCouldNotBeFilledBeforeTheFrontEndedIsNotFilledBesidesThoseOfTheNextGeneration) {
  // Regression: three workers served in two places.
  start_workers(2);
  {
    const OpenFileLimit none(server_->pid(), no_more_files);
    ::kill(server_->children("rdmd-worker").at(0), SIGKILL);
    EXPECT_TRUE(server_->await_error("[error] rdmd: start a worker: socketpair: Too many open files\n"));
    ::kill(server_->front(), SIGKILL);
    EXPECT_TRUE(server_->await_error("; no worker serves\n"));
  }
  EXPECT_TRUE(support::eventually([this] { return server_->front() != -1 && workers() >= 2; }));
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  // The place would have been filled after the pauses between the attempts, of 100, 200 and 400 milliseconds.
  std::this_thread::sleep_for(1s);
  EXPECT_EQ(workers(), 2u);
}

TEST_F(HostShortage, AnUpgradeWithoutDescriptorsSaysSoAndTheOldProgramContinues) {
  start_workers(1);
  {
    const OpenFileLimit two(server_->pid(), limit_leaving(server_->pid(), 2));  // for the pipe to the successor
    server_->signal(SIGUSR2);
    EXPECT_TRUE(
        server_->await_error("[error] rdmd: upgrade: the new program ended before it was ready: move the listening "
                             "sockets: Too many open files; the old one continues\n"))
        << server_->errors();
  }
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
}

TEST_F(HostShortage, WorkersThatCrashAsSoonAsTheyAreReadyAreReplacedAtALimitedRate) {
  // Regression: without descriptors for them, they ended and were replaced every few milliseconds.
  start_workers(1);
  const auto begin = std::chrono::steady_clock::now();
  for (int crash = 0; crash < 12; ++crash) EXPECT_EQ(support::http_get(port_, "/rdm/crash").status, 500);
  EXPECT_EQ(get_body("/rdm/fast"), "fast\n");
  // Ten are replaced at once, and one in each second.
  EXPECT_GE(std::chrono::steady_clock::now() - begin, 1s);
}

}  // namespace
