// SPDX-License-Identifier: MIT
/// Limits for each address, and connections that make way. Addresses of the loopback network are different clients.

#include <sys/resource.h>

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::HttpResponse;

constexpr const char *full = "The server has as many connections as it can take.\n";
constexpr const char *expecting_request =
    "POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n";
constexpr const char *address_full = "There are too many connections from this address.\n";

class HostAddresses : public support::ServerTest {
 protected:
  HttpClient &connect(const std::string &from) { return clients_.emplace_back(from, port_); }

  /// idle returns a client that has received an answer and waits.
  HttpClient &idle(const std::string &from) {
    HttpClient &client = connect(from);
    client.send(get("/rdm/fast"));
    EXPECT_EQ(client.receive().body, "fast\n");
    return client;
  }

  /// begin_request connects a client, whose request lacks its body, and returns the head that it receives.
  std::string begin_request(const std::string &from) {
    HttpClient &client = connect(from);
    client.send(expecting_request);
    return client.receive_head();
  }

  /// busy returns a client whose request lacks its body.
  HttpClient &busy(const std::string &from) {
    EXPECT_EQ(begin_request(from), "HTTP/1.1 100 Continue\r\n\r\n");
    return clients_.back();
  }

  /// finishes returns true if a busy client is answered.
  static bool finishes(HttpClient &client) {
    client.send("body");
    return client.receive().body.find("body body[0]\n") != std::string::npos;
  }

  /// served returns true if a new client is served.
  bool served(const std::string &from) {
    HttpClient client(from, port_);
    client.send(get("/rdm/fast", "Connection: close\r\n"));
    return client.receive().status == 200;
  }

  void expect_turned_away(const std::string &from, const std::string &text) {
    const HttpResponse response = connect(from).receive();
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(response.field("retry-after"), "5");
    EXPECT_EQ(response.field("connection"), "close");
    EXPECT_EQ(response.body, text);
  }

  bool told(const std::string &reason, const std::string &client) {
    return server_->await_error("[warning] rdmd: " + reason + " (client " + client);
  }

  /// start_in_turn runs the server with one I/O thread: once a client has an answer, its connection waits for the next
  /// request before another one is accepted.
  void start_in_turn(std::vector<std::string> more) {
    more.insert(more.end(), {"--threads", "1"});
    start(more);
  }

  /// begin_head connects a client of whose request the server has read a part.
  HttpClient &begin_head(const std::string &from) {
    HttpClient &client = connect(from);
    client.send("GET /rdm/fast HTTP/1.1\r\nHo");
    EXPECT_TRUE(client.await_read());
    return client;
  }

  std::list<HttpClient> clients_;
};

TEST_F(HostAddresses, AnAddressBeyondItsConnectionsIsTurnedAwayAndOthersAreServed) {
  start({"--max-connections-per-address", "2"});
  HttpClient &first = busy("127.0.0.2"), &second = busy("127.0.0.2");
  expect_turned_away("127.0.0.2", address_full);
  EXPECT_TRUE(told("503: connection limit of the address reached", "127.0.0.2"));
  EXPECT_TRUE(served("127.0.0.3"));
  EXPECT_TRUE(finishes(first));
  EXPECT_TRUE(finishes(second));
}

TEST_F(HostAddresses, AtItsLimitAnAddressGetsThePlaceOfItsLongestWaitingConnection) {
  start_in_turn({"--max-connections-per-address", "2"});
  HttpClient &other = idle("127.0.0.3"), &oldest = idle("127.0.0.2"), &newer = idle("127.0.0.2");
  idle("127.0.0.2");
  EXPECT_TRUE(oldest.ended());
  EXPECT_TRUE(told("waiting connection ended in favour of a new client", "127.0.0.2"));
  for (HttpClient *client : {&other, &newer}) {
    client->send(get("/rdm/fast"));
    EXPECT_EQ(client->receive().body, "fast\n");
  }
}

TEST_F(HostAddresses, ByDefaultAnAddressGetsHalfOfTheConnections) {
  start({"--max-connections", "200"});
  for (int i = 0; i < 100; ++i) busy("127.0.0.2");
  expect_turned_away("127.0.0.2", address_full);
  EXPECT_TRUE(served("127.0.0.3"));
}

TEST_F(HostAddresses, OfASmallLimitAnAddressMayHave64Connections) {
  start({"--max-connections", "70"});
  for (int i = 0; i < 64; ++i) busy("127.0.0.2");
  expect_turned_away("127.0.0.2", address_full);
  EXPECT_TRUE(served("127.0.0.3"));
}

TEST_F(HostAddresses, ALimitOfZeroIsNone) {
  start({"--max-connections", "70", "--max-connections-per-address", "0"});
  for (int i = 0; i < 70; ++i) busy("127.0.0.2");
  expect_turned_away("127.0.0.2", full);
}

TEST_F(HostAddresses, NewConnectionsOfAnAddressHaveARate) {
  start({"--rate-per-address", "0.02"});
  HttpClient &first = idle("127.0.0.2");
  expect_turned_away("127.0.0.2", "There are too many new connections from this address.\n");
  EXPECT_TRUE(told("503: too many new connections of the address", "127.0.0.2"));
  EXPECT_TRUE(served("127.0.0.3"));
  // Requests of a connection do not count.
  for (int i = 0; i < 10; ++i) {
    first.send(get("/rdm/fast"));
    EXPECT_EQ(first.receive().body, "fast\n");
  }
}

TEST_F(HostAddresses, FarBeyondItsLimitAnAddressIsJustClosed) {
  start({"--max-connections-per-address", "1", "--linger-timeout", "60"});
  HttpClient &first = busy("127.0.0.2");
  for (int i = 0; i < 8; ++i) expect_turned_away("127.0.0.2", address_full);
  EXPECT_TRUE(connect("127.0.0.2").ended());
  EXPECT_TRUE(told("closed without an answer: too many clients beyond a limit on connections", "127.0.0.2"));
  busy("127.0.0.3");
  expect_turned_away("127.0.0.3", address_full);
  EXPECT_TRUE(finishes(first));
}

TEST_F(HostAddresses, WhenFullTheAddressWithMostConnectionsMakesWay) {
  start_in_turn({"--max-connections", "4"});
  HttpClient &alone = idle("127.0.0.2"), &oldest = idle("127.0.0.3"), &newer = idle("127.0.0.3");
  busy("127.0.0.3");
  HttpClient &newest = idle("127.0.0.4");
  EXPECT_TRUE(oldest.ended());
  EXPECT_TRUE(told("waiting connection ended in favour of a new client", "127.0.0.3"));
  for (HttpClient *client : {&alone, &newer, &newest}) {
    client->send(get("/rdm/fast"));
    EXPECT_EQ(client->receive().body, "fast\n");
  }
}

TEST_F(HostAddresses, WhenFullABegunHeadMakesWayWithAnAnswer) {
  start_in_turn({"--max-connections", "2", "--header-timeout", "600"});
  HttpClient &oldest = begin_head("127.0.0.2"), &newer = begin_head("127.0.0.2");
  EXPECT_TRUE(served("127.0.0.3"));
  const HttpResponse response = oldest.receive();
  EXPECT_EQ(response.status, 503);
  EXPECT_EQ(response.field("retry-after"), "5");
  EXPECT_EQ(response.body, full);
  EXPECT_NE(await_access(2).find("127.0.0.2 - - "), std::string::npos) << access();
  EXPECT_NE(access().find("\"GET /rdm/fast HTTP/1.1\" 503 51 "), std::string::npos) << access();
  newer.send("st: h\r\n\r\n");
  EXPECT_EQ(newer.receive().body, "fast\n");
}

TEST_F(HostAddresses, WithoutDescriptorsABegunHeadMakesWay) {
  start_in_turn({"--header-timeout", "600"});
  HttpClient &begun = begin_head("127.0.0.2");
  struct rlimit before;
  ASSERT_EQ(::prlimit(server_->front(), RLIMIT_NOFILE, nullptr, &before), 0);
  const struct rlimit used = {server_->open_files(), before.rlim_max};
  ASSERT_EQ(::prlimit(server_->front(), RLIMIT_NOFILE, &used, nullptr), 0);
  for (int i = 3; i < 13; ++i) {
    HttpClient &next = connect("127.0.0." + std::to_string(i));
    next.send(get("/nowhere"));
    EXPECT_EQ(next.receive().status, 404) << i;
  }
  EXPECT_EQ(begun.receive_rest(), "");
}

TEST_F(HostAddresses, AnAddressThatBeginsHeadsWithoutEndLocksOutNobody) {
  start({"--max-connections", "8", "--header-timeout", "600"});
  for (int i = 0; i < 100; ++i) {
    connect("127.0.0.2").send("GET /rdm/fa");
    if (i % 10 != 9) continue;
    EXPECT_TRUE(support::eventually([this] { return served("127.0.0.3"); })) << i;
  }
}

TEST_F(HostAddresses, AServerThatIsFullByTurnsDoesNotFillItsLog) {
  // Regression: each time the server became full, it wrote a line beside the limited ones.
  start({"--max-connections", "1"});
  for (int i = 0; i < 30; ++i) {
    // The server may not have noticed yet that the clients of the last round have gone.
    ASSERT_TRUE(support::eventually([this] {
      clients_.clear();
      return begin_request("127.0.0.2").starts_with("HTTP/1.1 100 ");
    }));
    expect_turned_away("127.0.0.3", full);
    EXPECT_TRUE(finishes(clients_.front()));
  }
  const std::string log = server_->errors();
  long lines = 0;
  for (std::size_t at = 0; (at = log.find("connection limit", at)) != std::string::npos; ++at) ++lines;
  EXPECT_GE(lines, 1);
  EXPECT_LE(lines, 20) << log;
}

TEST_F(HostAddresses, ClientsOfUnixSocketsHaveNoLimitByAddress) {
  const std::string path = directory_.path("socket");
  start({"--listen", "unix:" + path, "--max-connections-per-address", "1", "--rate-per-address", "0.01"});
  std::list<HttpClient> clients;
  for (int i = 0; i < 5; ++i) {
    clients.emplace_back(path).send(expecting_request);
    EXPECT_EQ(clients.back().receive_head(), "HTTP/1.1 100 Continue\r\n\r\n");
  }
  for (HttpClient &client : clients) EXPECT_TRUE(finishes(client));
}

}  // namespace
