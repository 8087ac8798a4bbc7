// SPDX-License-Identifier: MIT
/// Messages to the service manager.

#include "hosts/rdmd/systemd.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "hosts/rdmd/notification_socket.h"
#include "support/environment.h"
#include "support/files.h"

using namespace rdm;

namespace {

using namespace std::chrono_literals;
using rdmd::ServiceManager;
using support::Environment;
using support::NotificationSocket;

class Notifications : public ::testing::Test {
 protected:
  const support::TemporaryDirectory directory_;
};

TEST_F(Notifications, SayWhatTheServerDoes) {
  for (const std::string &name : {directory_.path("notify"), "@rdmd-test-" + std::to_string(::getpid())}) {
    NotificationSocket socket(name);
    const Environment variable("NOTIFY_SOCKET", name.c_str());
    const ServiceManager manager;
    manager.ready("Listening on 127.0.0.1:8380");
    EXPECT_EQ(socket.receive(), "READY=1\nSTATUS=Listening on 127.0.0.1:8380\n");
    manager.reloading();
    const std::string reloading = socket.receive(), start = "RELOADING=1\nMONOTONIC_USEC=";
    ASSERT_EQ(reloading.substr(0, start.size()), start);
    const std::chrono::microseconds said(std::stoll(reloading.substr(start.size())));
    EXPECT_LE(said, std::chrono::steady_clock::now().time_since_epoch());
    EXPECT_GE(said, std::chrono::steady_clock::now().time_since_epoch() - 60s);
    manager.alive();
    EXPECT_EQ(socket.receive(), "WATCHDOG=1\n");
    manager.taken_over(1234);
    EXPECT_EQ(socket.receive(), "MAINPID=1234\n");
    manager.stopping();
    EXPECT_EQ(socket.receive(), "STOPPING=1\nSTATUS=Finishing answers under way\n");
  }
}

TEST_F(Notifications, AreDroppedWithoutAUsableSocket) {
  const std::string long_path = "/" + std::string(200, 'x'), none = directory_.path("none");
  for (const char *name : {"", "@", "relative", long_path.c_str(), none.c_str()}) {
    const Environment variable("NOTIFY_SOCKET", name), time("WATCHDOG_USEC", "1000000");
    ServiceManager().ready("unheard");
  }
  const Environment variable("NOTIFY_SOCKET", nullptr), time("WATCHDOG_USEC", "1000000");
  EXPECT_EQ(ServiceManager().watchdog(), std::nullopt);
}

TEST_F(Notifications, TheWatchdogIsFedTwiceInItsTime) {
  const std::string self = std::to_string(::getpid());
  const std::tuple<const char *, const char *, std::optional<std::chrono::microseconds>> cases[] = {
      {"3000000", nullptr, 1500ms},        {"3000000", self.c_str(), 1500ms}, {"3000000", "1", std::nullopt},
      {"3000000", "x", std::nullopt},      {nullptr, nullptr, std::nullopt},  {"0", nullptr, std::nullopt},
      {"-3000000", nullptr, std::nullopt}, {"soon", nullptr, std::nullopt},
  };
  const Environment variable("NOTIFY_SOCKET", "/nowhere");
  for (const auto &[time, process, expected] : cases) {
    const Environment limit("WATCHDOG_USEC", time), whose("WATCHDOG_PID", process);
    EXPECT_EQ(ServiceManager().watchdog(), expected) << (time != nullptr ? time : "none");
  }
}

}  // namespace
