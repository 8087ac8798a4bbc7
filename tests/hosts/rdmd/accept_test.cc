// SPDX-License-Identifier: MIT
/// The cost of accepting a client, and accepting without free descriptors.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using Clients = std::vector<std::unique_ptr<HttpClient>>;

/// MoreFiles raises RLIMIT_NOFILE to its hard limit for its lifetime.
class MoreFiles {
 public:
  MoreFiles() {
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &before_), 0);
    const struct rlimit most = {before_.rlim_max, before_.rlim_max};
    EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &most), 0);
  }
  MoreFiles(const MoreFiles &) = delete;
  MoreFiles &operator=(const MoreFiles &) = delete;
  ~MoreFiles() { ::setrlimit(RLIMIT_NOFILE, &before_); }

  /// most returns `wanted`, or half of the hard limit if that is less.
  std::size_t most(std::size_t wanted) const { return std::min<std::size_t>(wanted, before_.rlim_max / 2); }

 private:
  struct rlimit before_;
};

class HostAccepting : public support::ServerTest {
 protected:
  /// for_workers returns how many descriptors are reserved for the workers.
  static unsigned for_workers() { return 6 * static_cast<unsigned>(std::stoul(support::tested_workers())); }

  /// connect returns a client that has received a 404 and whose connection is idle.
  std::unique_ptr<HttpClient> connect() const {
    auto client = std::make_unique<HttpClient>(port_);
    client->send(get("/nowhere"));
    EXPECT_EQ(client->receive().status, 404);
    return client;
  }

  /// cost returns the CPU time of the server for 300 short connections, the best of some trials: three or, while it is
  /// not below `limit`, up to thirty. Other work of the machine only adds to it.
  std::chrono::nanoseconds cost(std::chrono::nanoseconds limit = std::chrono::nanoseconds::max()) const {
    auto least = std::chrono::nanoseconds::max();
    for (int trial = 0; trial < 3 || (trial < 30 && least >= limit); ++trial) {
      const auto before = server_->cpu_time();
      for (int i = 0; i < 300; ++i) EXPECT_EQ(support::http_get(port_, "/nowhere").status, 404);
      least = std::min(least, server_->cpu_time() - before);
    }
    return least;
  }

  /// lines counts the lines of the error log that contain `text`.
  long lines(const std::string &text) const {
    const std::string log = server_->errors();
    long count = 0;
    for (std::size_t at = 0; (at = log.find(text, at)) != std::string::npos; at += text.size()) ++count;
    return count;
  }
};

TEST_F(HostAccepting, CostsTheSameHoweverManyConnectionsAreOpen) {
  // The server visited all connections for each new client: with 9,000 open, accepting cost five times as much.
  const MoreFiles files;
  start({"--max-connections", "10000", "--max-connections-per-address", "0", "--header-timeout", "600"});
  const auto alone = cost();
  Clients idle;
  for (std::size_t i = files.most(5000); i > 0; --i) idle.push_back(std::make_unique<HttpClient>(port_));
  EXPECT_LT(cost(2 * alone), 2 * alone) << "with " << idle.size() << " connections open";
}

TEST_F(HostAccepting, WithoutDescriptorsTheConnectionIdleLongestIsClosed) {
  // Regression: new clients waited until an idle connection timed out, and no log said why.
  start({"--idle-timeout", "600"});
  Clients clients;
  for (int i = 0; i < 5; ++i) clients.push_back(connect());
  struct rlimit before;
  ASSERT_EQ(::prlimit(server_->front(), RLIMIT_NOFILE, nullptr, &before), 0);
  const struct rlimit used = {server_->open_files(), before.rlim_max};
  ASSERT_EQ(::prlimit(server_->front(), RLIMIT_NOFILE, &used, nullptr), 0);
  for (int i = 0; i < 5; ++i) clients.push_back(connect());
  EXPECT_TRUE(clients.front()->ended());
  EXPECT_FALSE(clients.back()->readable(std::chrono::milliseconds(0)));
  EXPECT_EQ(lines("[warning] rdmd: accept: Too many open files: closing idle connections to serve new "
                  "clients\n"),
            1)
      << server_->errors();
}

TEST_F(HostAccepting, LeavesDescriptorsForFilesOfTheService) {
  // Regression: clients took the last descriptor, and the service could not open the files that it answers from. With a
  // low limit, clients took all but a quarter, fewer than the server itself has open.
  for (const unsigned limit : {56 + for_workers(), 128 + for_workers()}) {
    start({"--idle-timeout", "600"}, limit);
    Clients clients;
    const std::string file = directory_.write("file", "shared\n");
    for (unsigned i = 0; i < limit + 20; ++i) {
      clients.push_back(connect());
      clients.back()->send(get("/rdm/shared-file?" + file));
      EXPECT_EQ(clients.back()->receive().body, "shared\n") << i;
    }
    EXPECT_EQ(lines("[warning] rdmd: accept: the limit of open files is reached: closing idle connections to serve new "
                    "clients\n"),
              1)
        << server_->errors();
  }
}

TEST_F(HostAccepting, ALimitOfOpenFilesBelowThatOfConnectionsIsToldAtStart) {
  const unsigned enough = 296 + for_workers();
  start({"--max-connections", "100"}, enough - 1);
  EXPECT_TRUE(server_->await_error("[warning] rdmd: the limit of open files is " + std::to_string(enough - 1) +
                                   ", but 100 connections may need " + std::to_string(enough) +
                                   "; raise it (ulimit -n, LimitNOFILE) or lower --max-connections\n"))
      << server_->errors();
  start({"--max-connections", "100"}, enough);
  EXPECT_EQ(lines("the limit of open files"), 0) << server_->errors();
}

}  // namespace
