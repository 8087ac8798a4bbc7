// SPDX-License-Identifier: MIT
/// What the server tells its service manager.

#include <signal.h>

#include <string>

#include "hosts/rdmd/notification_socket.h"
#include "hosts/rdmd/server_fixture.h"
#include "support/environment.h"

using namespace rdm;

namespace {

class HostNotifications : public support::ServerTest {
 protected:
  const support::NotificationSocket socket_{directory_.path("notify")};
  const support::Environment variable_{"NOTIFY_SOCKET", directory_.path("notify").c_str()};

  /// ready returns the message of a server that serves.
  std::string ready() const { return "READY=1\nSTATUS=Listening on 127.0.0.1:" + std::to_string(port_) + "\n"; }
};

TEST_F(HostNotifications, FollowTheLifeOfTheServer) {
  start();
  EXPECT_EQ(socket_.receive(), ready());
  server_->signal(SIGHUP);
  EXPECT_EQ(socket_.receive().substr(0, 27), "RELOADING=1\nMONOTONIC_USEC=");
  EXPECT_EQ(socket_.receive(), ready());
  EXPECT_EQ(stop(), 0);
  EXPECT_EQ(socket_.receive().substr(0, 11), "STOPPING=1\n");
}

TEST_F(HostNotifications, SayWhyAReloadFailed) {
  start({"--workers", "1"});
  EXPECT_EQ(socket_.receive(), ready());
  directory_.write("rdm.conf", "fail=\"The stars are wrong.\"\n");
  server_->signal(SIGHUP);
  EXPECT_EQ(socket_.receive().substr(0, 12), "RELOADING=1\n");
  const std::string listening = ready().substr(0, ready().size() - 1);
  EXPECT_EQ(socket_.receive(), listening + "; reload: " + config_ +
                                   ": The stars are wrong.; still serving with the former configuration\n");
}

TEST_F(HostNotifications, FeedTheWatchdog) {
  const support::Environment time("WATCHDOG_USEC", "200000"), whose("WATCHDOG_PID", nullptr);
  start();
  int fed = 0;
  for (int message = 0; message < 6; ++message) fed += socket_.receive() == "WATCHDOG=1\n" ? 1 : 0;
  EXPECT_EQ(fed, 5);
  EXPECT_EQ(support::http_get(port_, "/nowhere").status, 404);
  EXPECT_EQ(stop(), 0);
}

TEST_F(HostNotifications, AServerThatCannotStartIsNotReady) {
  config_ = directory_.write("rdm.conf", "");
  support::RdmdProcess server({"--plugin", "/nowhere.so", "--config", config_, "--listen", "127.0.0.1:0"});
  EXPECT_EQ(server.wait(), 1);
  start();
  std::string message = socket_.receive();
  if (message.starts_with("STOPPING=1")) message = socket_.receive();
  EXPECT_EQ(message, ready());
}

}  // namespace
