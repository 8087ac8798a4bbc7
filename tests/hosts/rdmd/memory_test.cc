/// What the server does where its own memory fails.

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "hosts/common/plugin.h"
#include "hosts/rdmd/connection.h"
#include "hosts/rdmd/rdmd_process.h"
#include "hosts/rdmd/server.h"
#include "support/files.h"
#include "support/refused_new.h"

namespace {

/// A server within the test program. It has nothing to serve, and says so.
class HostMemory : public ::testing::Test {
 protected:
  HostMemory() {
    thread_ = std::thread([this] { EXPECT_TRUE(server_.run()); });
  }
  ~HostMemory() override {
    ::kill(::getpid(), SIGTERM);
    thread_.join();
  }

  static rdmd::Settings settings() {
    rdmd::Settings settings;
    settings.listen = "127.0.0.1:0";
    return settings;
  }
  int port() const {
    const std::string address = server_.address();
    return std::stoi(address.substr(address.rfind(':') + 1));
  }

  const support::TemporaryFolder folder_;
  const rdmd::Settings settings_ = settings();
  rdmd::ErrorLog errors_{folder_.path("errors")};
  rdmd::AccessLog access_{""};
  hosts::Plugin plugin_{BINARY_DIR "/tests/test_plugin.so"};
  rdmd::Server server_{settings_, plugin_, errors_, access_};
  std::thread thread_;
};

TEST_F(HostMemory, AClientThatThereIsNoMemoryForIsTheOnlyOneLost) {
  // The server waited for the next client only when it had taken in the one before: the first that it had no memory for
  // was the last that it ever heard of.
  {
    const support::RefusedNew connection(sizeof(rdmd::Connection), sizeof(rdmd::Connection) + 64);
    support::HttpClient unlucky(port());
    EXPECT_TRUE(unlucky.ended());
    EXPECT_TRUE(connection.done());
  }
  EXPECT_EQ(support::http_get(port(), "/").body, "There is no such resource here.\n");
  const std::string log = support::read_file(folder_.path("errors"));
  EXPECT_NE(log.find("[error] rdmd: a connection failed: std::bad_alloc\n"), std::string::npos) << log;
}

}  // namespace
