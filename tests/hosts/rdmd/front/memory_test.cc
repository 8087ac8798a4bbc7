// SPDX-License-Identifier: MIT
/// The server while memory allocations of its own fail.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "hosts/common/exchange.h"
#include "hosts/rdmd/front/connection.h"
#include "hosts/rdmd/front/server_within.h"
#include "hosts/rdmd/rdmd_process.h"
#include "support/refused_new.h"

using namespace rdm;

namespace {

/// Runs a server on a thread of the test program.
class HostMemory : public ::testing::Test {
 protected:
  void start() {
    thread_ = std::thread([this] { EXPECT_TRUE(server_->run()); });
  }
  ~HostMemory() override {
    if (!thread_.joinable()) return;
    ::kill(::getpid(), SIGTERM);
    thread_.join();
  }

  static rdmd::Settings settings() {
    rdmd::Settings settings;
    settings.limits.header = std::chrono::seconds(2);
    return settings;
  }
  int port() const {
    const std::string address = server_->address();
    return std::stoi(address.substr(address.rfind(':') + 1));
  }

  void expect_service() const { EXPECT_EQ(support::http_get(port(), "/").body, "There is no such resource here.\n"); }
  std::string errors() const { return server_.errors(); }

  support::ServerWithin server_{settings()};
  std::thread thread_;
};

TEST_F(HostMemory, AFailedConnectionAllocationLosesOnlyThatClient) {
  // Regression: the server re-armed accept only after it had set up a client: if allocation failed for one, it never
  // accepted another.
  start();
  {
    const support::RefusedNew connection(sizeof(rdmd::Connection), sizeof(rdmd::Connection) + 64);
    support::HttpClient unlucky(port());
    EXPECT_TRUE(unlucky.ended());
    EXPECT_TRUE(connection.done());
  }
  expect_service();
  EXPECT_NE(errors().find("[error] rdmd: a connection failed: std::bad_alloc\n"), std::string::npos) << errors();
}

TEST_F(HostMemory, ARequestEndsWithItsDeadlineIfAllocationFails) {
  start();
  support::HttpClient client(port());
  const support::RefusedNew job(sizeof(rdmd::Job), sizeof(rdmd::Job));
  client.send("GET /rdm/fast HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_EQ(client.receive().status, 408);
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(job.done());
  expect_service();
  EXPECT_NE(errors().find("[error] rdmd: a connection failed: std::bad_alloc\n"), std::string::npos) << errors();
}

TEST_F(HostMemory, AClientThatCannotBeAcceptedYetWaits) {
  start();
  const int port = this->port();
  support::HttpClient idle(port);
  idle.send("GET / HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_EQ(idle.receive().status, 404);
  const support::RefusedNew any(1, 1000);
  support::HttpClient client(port);
  EXPECT_TRUE(support::eventually([&] { return any.done(); }));
  client.send("GET / HTTP/1.0\r\n\r\n");
  EXPECT_EQ(client.receive().status, 404);
  EXPECT_NE(errors().find("[error] rdmd: a connection failed: std::bad_alloc\n"), std::string::npos) << errors();
}

TEST_F(HostMemory, AnAnswerWithoutMemoryForItsHeadIsCutOffAndLogged) {
  // Regression: neither the logs nor the metrics said anything of the request.
  start();
  support::HttpClient client(port());
  const support::RefusedNew head(501, 501);
  client.send("GET /rdm/fast HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(head.done());
  EXPECT_NE(errors().find("[error] rdmd: a connection failed: std::bad_alloc\n"), std::string::npos) << errors();
  EXPECT_TRUE(support::eventually([this] {
    return server_.access().find("\"GET /rdm/fast HTTP/1.1\" 500 - \"-\" \"-\"\n") != std::string::npos;
  })) << server_.access();
  const std::string metrics = server_->metrics().text(server_->moment(), server_->errors());
  EXPECT_NE(metrics.find("outcome=\"gone\"} 1\n"), std::string::npos) << metrics;
  expect_service();
}

TEST_F(HostMemory, AnOrderToStopWithoutMemoryEndsTheServer) {
  // Regression: the order was lost, and the server ran on without accepting clients.
  start();
  support::HttpClient client(port());
  client.send("GET / HTTP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_EQ(client.receive().status, 404);
  const support::RefusedNew all(sizeof(std::shared_ptr<void>), sizeof(std::shared_ptr<void>));
  ::kill(::getpid(), SIGTERM);
  thread_.join();
  EXPECT_TRUE(all.done());
  EXPECT_NE(errors().find("[error] rdmd: stop: std::bad_alloc\n"), std::string::npos) << errors();
}

TEST_F(HostMemory, TheServerRunsWithoutAThreadThatCannotBeAllocated) {
  {
    const support::RefusedNew place(sizeof(std::thread), sizeof(std::thread));
    start();
    EXPECT_TRUE(support::eventually([&] { return place.done(); }));
  }
  expect_service();
  EXPECT_NE(errors().find("[warning] rdmd: start I/O thread: std::bad_alloc\n"), std::string::npos) << errors();
}

}  // namespace
