// SPDX-License-Identifier: MIT
/// The addresses of the server: several, Unix sockets, and sockets inherited from a service manager.

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "hosts/rdmd/listen_address.h"
#include "hosts/rdmd/pace.h"
#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;

class HostListening : public support::ServerTest {
 protected:
  /// start_on runs the server on these addresses alone, with inherited sockets and more arguments if need be.
  void start_on(const std::vector<std::string> &addresses, const support::Inherited &inherited = {},
                const std::vector<std::string> &more = {}) {
    config_ = directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n");
    std::vector<std::string> arguments = {"--plugin", plugin(),       "--config",
                                          config_,    "--access-log", directory_.path("access")};
    for (const std::string &address : addresses) arguments.insert(arguments.end(), {"--listen", address});
    arguments.insert(arguments.end(), more.begin(), more.end());
    server_ = std::make_unique<support::RdmdProcess>(arguments, 0, inherited);
    port_ = server_->port();
  }

  /// announced returns the addresses of the line on standard error.
  std::string announced() {
    const std::string errors = server_->errors(), start = "rdmd: listening on ";
    const std::size_t at = errors.find(start) + start.size();
    return errors.substr(at, errors.find('\n', at) - at);
  }

  /// answers returns true if a client gets an answer, and another on the same connection.
  static bool answers(HttpClient &client) {
    for (int request = 0; request < 2; ++request) {
      client.send(get("/nowhere"));
      if (client.receive().status != 404) return false;
    }
    return true;
  }

  const std::string path_ = directory_.path("socket");
};

TEST_F(HostListening, ServesEveryAddress) {
  start_on({"127.0.0.1:0", "[::1]:0", "unix:" + path_});
  const std::string all = announced();
  const int v4 = std::stoi(all.substr(all.find(':') + 1)), v6 = std::stoi(all.substr(all.find("]:") + 2));
  EXPECT_EQ(all, "127.0.0.1:" + std::to_string(v4) + ", [::1]:" + std::to_string(v6) + ", unix:" + path_);
  HttpClient first(v4), second(v6, true), third(path_);
  for (HttpClient *client : {&first, &second, &third}) EXPECT_TRUE(answers(*client));
  EXPECT_EQ(stop(), 0);
}

TEST_F(HostListening, AnOptionsFileNamesSeveralAddresses) {
  const std::string options =
      directory_.write("options.toml", "listen = [\"127.0.0.1:0\", \"unix:" + path_ + "\"]\nplugin = \"" + plugin() +
                                           "\"\nconfig = \"" + directory_.write("rdm.conf", "") + "\"\n");
  server_ = std::make_unique<support::RdmdProcess>(std::vector<std::string>{"--options", options});
  server_->port();
  HttpClient client(path_);
  EXPECT_TRUE(answers(client));
  EXPECT_EQ(stop(), 0);
}

TEST_F(HostListening, AUnixSocketServesLargeAnswersAndIsRemovedAtTheEnd) {
  start_on({"unix:" + path_});
  {
    HttpClient client(path_), idle(path_);
    client.send(get("/rdm/big?5000000"));
    EXPECT_EQ(client.receive().body, pattern(5'000'000));
    EXPECT_TRUE(answers(client));
  }
  EXPECT_EQ(await_access(3).substr(0, 9), "unix: - -");
  EXPECT_EQ(stop(), 0);
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(HostListening, AStalledReaderOfAUnixSocketIsCutOff) {
  start_on({"unix:" + path_}, {}, {"--write-timeout", "0.3"});
  HttpClient stalled(path_);
  stalled.send(get("/rdm/big?5000000"));
  EXPECT_TRUE(
      server_->await_error("answer cut off: the client acknowledged nothing within the write timeout (client "
                           "unix:"))
      << server_->errors();
  HttpClient other(path_);
  EXPECT_TRUE(answers(other));
}

TEST_F(HostListening, AReaderOfAUnixSocketThatPausesIsNotTooSlow) {
  // Regression: SIOCOUTQ counts the memory that the kernel needs for the bytes, and the minimum rate took it for bytes
  // that the client had not taken.
  EXPECT_TRUE(support::at_pace(std::chrono::milliseconds(600), [this](auto limit, support::Pace &pace) {
    server_.reset();
    start_on({"unix:" + path_}, {}, {"--write-timeout", support::in_seconds(limit)});
    HttpClient client(path_);
    client.send(get("/rdm/big?5000000"));
    auto last = support::Pace::Clock::now();
    std::this_thread::sleep_for(limit * 2 / 3);
    pace.step(last);
    return client.receive().body == pattern(5'000'000);
  }));
}

TEST_F(HostListening, ASocketFileOfAKilledServerIsReplacedAndOneInUseIsNot) {
  start_on({"unix:" + path_});
  server_->signal(SIGKILL);
  EXPECT_EQ(server_->wait(), 128 + SIGKILL);
  EXPECT_TRUE(std::filesystem::exists(path_));
  start_on({"unix:" + path_});
  support::RdmdProcess second({"--plugin", plugin(), "--config", config_, "--listen", "unix:" + path_});
  EXPECT_EQ(second.wait(), 1);
  EXPECT_NE(second.errors().find("cannot listen on unix:" + path_ + ": Address already in use\n"), std::string::npos)
      << second.errors();
  HttpClient client(path_);
  EXPECT_TRUE(answers(client));
}

TEST_F(HostListening, AnInheritedSocketIsServedAndHiddenFromThePlugin) {
  const rdmd::BoundSockets bound = rdmd::bind_listen("127.0.0.1:0");
  const host_fd socket = bound.sockets.front().get();
  ASSERT_EQ(::listen(socket, 10), 0);
  // The client connects before the server runs, and waits in the socket's queue.
  const std::string address = rdmd::local_address(socket).text();
  HttpClient early(std::stoi(address.substr(address.rfind(':') + 1)));
  start_on({}, {{socket}, "web"});
  EXPECT_EQ(announced(), address);
  EXPECT_TRUE(answers(early));
  HttpClient late(port_);
  EXPECT_TRUE(answers(late));
  const std::string environment = support::read_file("/proc/" + std::to_string(server_->pid()) + "/environ");
  EXPECT_NE(environment.find("LISTEN_FDS=1"), std::string::npos);
  late.send(get("/rdm/environment?LISTEN_FDS"));
  EXPECT_EQ(late.receive().body, "");
}

TEST_F(HostListening, InheritedAndBoundSocketsAreServedTogether) {
  const rdmd::BoundSockets bound = rdmd::bind_listen("127.0.0.1:0"), other = rdmd::bind_listen("127.0.0.1:0");
  ASSERT_EQ(::listen(bound.sockets.front().get(), 10), 0);
  ASSERT_EQ(::listen(other.sockets.front().get(), 10), 0);
  const std::string address = rdmd::local_address(bound.sockets.front().get()).text(),
                    unused = rdmd::local_address(other.sockets.front().get()).text();
  start_on({address, "unix:" + path_}, {{bound.sockets.front().get(), other.sockets.front().get()}, ""});
  EXPECT_EQ(announced(), address + ", unix:" + path_);
  EXPECT_TRUE(server_->await_error("no option names the inherited socket " + unused + ": closed\n"));
  HttpClient client(path_);
  EXPECT_TRUE(answers(client));
}

}  // namespace
