// SPDX-License-Identifier: MIT
/// Limits on the answers that wait in temporary files. The test plug-in's /rdm/big?N keeps a mebibyte in memory and the
/// rest in a file.

#include <sys/socket.h>

#include <chrono>
#include <list>
#include <string>
#include <thread>

#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::HttpResponse;
using namespace std::chrono_literals;

constexpr std::size_t big = 4'000'000;  // about 3 MB of it in a file

class HostSpill : public support::ServerTest {
 protected:
  /// deaf returns a client that has asked for a big answer, whose beginning has arrived, and reads nothing.
  HttpClient &deaf(const std::string &from) {
    HttpClient &client = clients_.emplace_back(from, port_);
    client.send(get("/rdm/big?" + std::to_string(big)));
    EXPECT_TRUE(client.readable(support::timeout));
    return client;
  }

  HttpResponse ask(const std::string &from, const std::string &target) const {
    HttpClient client(from, port_);
    client.send(get(target, "Connection: close\r\n"));
    return client.receive();
  }
  bool has_room(const std::string &from) const {
    return ask(from, "/rdm/big?" + std::to_string(big)).body == pattern(big);
  }

  /// expect_no_room expects a 503, and that the connection is kept.
  void expect_no_room(const std::string &from) {
    HttpClient client(from, port_);
    client.send(get("/rdm/big?" + std::to_string(big)));
    const HttpResponse response = client.receive();
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(response.field("retry-after"), "5");
    EXPECT_EQ(response.body, "There are too many answers waiting to be sent.\n");
    client.send(get("/rdm/fast"));
    EXPECT_EQ(client.receive().body, "fast\n");
  }

  bool told(const std::string &reason, const std::string &client) {
    return server_->await_error("[warning] rdmd: " + reason + " (client " + client);
  }

  std::list<HttpClient> clients_;
};

TEST_F(HostSpill, AnAnswerBeyondTheLimitIsRefusedBeforeItBegins) {
  start({"--spill-limit", "4M", "--spill-limit-per-address", "0"});
  HttpClient &first = deaf("127.0.0.2");
  expect_no_room("127.0.0.2");
  expect_no_room("127.0.0.3");
  EXPECT_TRUE(told("503: too many bytes of answers wait in temporary files", "127.0.0.3"));
  EXPECT_EQ(first.receive().body, pattern(big));
  EXPECT_TRUE(support::eventually([this] { return has_room("127.0.0.3"); }));
  EXPECT_TRUE(support::eventually([this] { return server_->temporary_files() == 0; }));
}

TEST_F(HostSpill, AnAddressHasALimitOfItsOwn) {
  start({"--spill-limit", "100M", "--spill-limit-per-address", "4M"});
  HttpClient &first = deaf("127.0.0.2");
  expect_no_room("127.0.0.2");
  EXPECT_TRUE(has_room("127.0.0.3"));
  EXPECT_EQ(first.receive().body, pattern(big));
}

TEST_F(HostSpill, ByDefaultAnAddressHasHalfOfTheLimit) {
  start({"--spill-limit", "8M"});
  deaf("127.0.0.2");
  expect_no_room("127.0.0.2");
  EXPECT_TRUE(has_room("127.0.0.3"));
}

TEST_F(HostSpill, AClientThatGoesAwayGivesItsRoomBack) {
  start({"--spill-limit", "4M", "--spill-limit-per-address", "0"});
  for (int i = 0; i < 5; ++i) {
    EXPECT_TRUE(support::eventually([this] { return has_room("127.0.0.3"); })) << i;
    deaf("127.0.0.2");
    clients_.clear();
  }
  EXPECT_TRUE(support::eventually([this] { return server_->temporary_files() == 0; }));
}

TEST_F(HostSpill, OnlyFilesWithoutANameCount) {
  start({"--spill-limit", "1M"});
  const std::string content(3'000'000, 'x'), file = directory_.write("file", content);
  EXPECT_EQ(ask("127.0.0.2", "/rdm/shared-file?" + file).body, content);
  // The plug-in removes this one, as the service removes its temporary files.
  EXPECT_EQ(ask("127.0.0.2", "/rdm/file?" + file).status, 503);
}

TEST_F(HostSpill, ALimitOfZeroIsNone) {
  start({"--spill-limit", "0"});
  for (int i = 0; i < 3; ++i) deaf("127.0.0.2");
  EXPECT_TRUE(has_room("127.0.0.2"));
}

}  // namespace
