// SPDX-License-Identifier: MIT
/// Clients behind proxies. The proxy is 127.0.0.1; other addresses of the loopback network are not trusted.

#include <chrono>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "hosts/rdmd/front/refused_requests.h"
#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::HttpResponse;

const std::string v1 = "PROXY TCP4 192.0.2.1 198.51.100.2 56324 443\r\n";
const std::string v2("\r\n\r\n\0\r\nQUIT\n\x21\x11\x00\x0c\xc0\x00\x02\x02\xc6\x33\x64\x02\xdc\x04\x01\xbb", 28);
const std::string local("\r\n\r\n\0\r\nQUIT\n\x20\x00\x00\x00", 16);

/// behind returns the version 1 header of a client.
std::string behind(const std::string &client) { return "PROXY TCP4 " + client + " 198.51.100.2 1 2\r\n"; }

class HostProxies : public support::ServerTest {
 protected:
  void start_behind_proxy(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"--trusted-proxy", "127.0.0.1", "--proxy-protocol"});
    start(more);
  }
  void start_forwarding(std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"--trusted-proxy", "127.0.0.1", "--trusted-proxy", "10.0.0.0/8"});
    start(more);
  }

  /// address_of returns the client's address in an answer of /rdm/echo.
  static std::string address_of(const HttpResponse &response) {
    const std::string name = "client ip=";
    const auto at = response.body.find(name);
    if (at == std::string::npos) return "status " + std::to_string(response.status);
    return response.body.substr(at + name.size(), response.body.find('\n', at) - at - name.size());
  }

  /// ask sends a request with these fields and returns the address that the plug-in sees.
  std::string ask(HttpClient &client, const std::string &fields = "") const {
    client.send(get("/rdm/echo", fields));
    return address_of(client.receive());
  }

  /// is_served_soon tells whether the client of the version 1 header gets an answer, at once or after a refusal.
  bool is_served_soon() const {
    return support::eventually([this] {
      HttpClient client(port_);
      client.send(v1);
      return ask(client) == "192.0.2.1";
    });
  }

  bool told(const std::string &reason, const std::string &client) {
    return server_->await_error("[warning] rdmd: " + reason + " (client " + client);
  }
};

constexpr const char *bad_header = "closed without an answer: the PROXY header is malformed or did not arrive in time";

TEST_F(HostProxies, AProxyHeaderNamesTheClientOfTheConnection) {
  start_behind_proxy();
  const std::pair<std::string, std::string> cases[] = {
      {v1, "192.0.2.1"}, {v2, "192.0.2.2"}, {"PROXY TCP6 2001:db8::1 2001:db8::2 1 2\r\n", "2001:db8::1"}};
  for (const auto &[header, address] : cases) {
    HttpClient client(port_);
    client.send(header);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(ask(client), address);
  }
  EXPECT_NE(await_access(9).find("2001:db8::1 - - ["), std::string::npos) << access();
  EXPECT_EQ(access().find("127.0.0.1"), std::string::npos) << access();
}

TEST_F(HostProxies, AProxyHeaderMayArriveInAnyPieces) {
  start_behind_proxy();
  for (const std::string &header : {v1, v2}) {
    HttpClient at_once(port_);
    at_once.send(header + get("/rdm/echo") + get("/rdm/fast"));
    EXPECT_NE(address_of(at_once.receive()), "127.0.0.1");
    EXPECT_EQ(at_once.receive().body, "fast\n");
    HttpClient in_pieces(port_);
    for (const char byte : header) {
      in_pieces.send(std::string(1, byte));
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_NE(ask(in_pieces), "127.0.0.1");
  }
}

TEST_F(HostProxies, AHeaderWithoutAClientLeavesTheProxysAddress) {
  start_behind_proxy();
  for (const std::string &header : {std::string("PROXY UNKNOWN\r\n"), local}) {
    HttpClient client(port_);
    client.send(header);
    EXPECT_EQ(ask(client), "127.0.0.1");
  }
}

TEST_F(HostProxies, OnlyOneHeaderIsRead) {
  start_behind_proxy();
  HttpClient client(port_);
  client.send(v1 + behind("192.0.2.9") + get("/rdm/echo"));
  EXPECT_EQ(client.receive().status, 400);
  EXPECT_TRUE(client.ended());
}

TEST_F(HostProxies, WithoutAProxyHeaderAConnectionIsClosed) {
  start_behind_proxy();
  for (const std::string &begin :
       {get("/rdm/echo"), std::string("PROXY TCP4 192.0.2.1\r\n"), v2.substr(0, 12) + "\x11"}) {
    HttpClient client(port_);
    client.send(begin);
    EXPECT_EQ(client.receive_rest(), "") << begin;
  }
  EXPECT_TRUE(told(bad_header, "127.0.0.1"));
  EXPECT_EQ(journal(), "init\n");
}

TEST_F(HostProxies, AProxyHeaderMustArriveWithinTheHeaderTimeout) {
  start_behind_proxy({"--header-timeout", "0.3"});
  HttpClient client(port_);
  for (const char byte : v1 + get("/rdm/echo")) {
    if (client.readable(std::chrono::milliseconds(20))) break;
    client.send(std::string(1, byte));
  }
  EXPECT_EQ(client.receive_rest(), "");
  EXPECT_TRUE(told(bad_header, "127.0.0.1"));
}

TEST_F(HostProxies, AConnectionThatIsNotFromATrustedProxyIsClosed) {
  start_behind_proxy();
  HttpClient client("127.0.0.2", port_);
  client.send(v1 + get("/rdm/echo"));
  EXPECT_EQ(client.receive_rest(), "");
  EXPECT_TRUE(told("closed without an answer: not from a trusted proxy", "127.0.0.2"));
  HttpClient proxy(port_);
  proxy.send(v1);
  EXPECT_EQ(ask(proxy), "192.0.2.1");
}

TEST_F(HostProxies, RequestsBehindAHeaderAreRefusedLikeOthers) {
  start_behind_proxy({"--max-target-bytes", "200", "--max-head-bytes", "1000"});
  std::vector<support::RefusedRequest> requests = support::refused_requests(200, 1000);
  for (const char *target : {"/rdm/fast#x", "/rdm/%zz", "/rdm/%00", "rdm/fast"})
    requests.push_back({get(target), 400, "The request target is malformed.\n"});
  for (const auto &row : requests)
    for (const std::string &header : {v1, v2}) {
      HttpClient client(port_);
      client.send(header + row.text + get("/rdm/smuggled"));
      const HttpResponse response = client.receive();
      EXPECT_EQ(response.status, row.status) << row.text;
      EXPECT_EQ(response.body, row.answer) << row.text;
      EXPECT_EQ(response.field("connection"), "close") << row.text;
      EXPECT_TRUE(client.ended()) << row.text;
    }
  EXPECT_EQ(journal(), "init\n");
}

TEST_F(HostProxies, LimitsOfAnAddressHoldForTheClientThatTheHeaderNames) {
  start_behind_proxy({"--max-connections-per-address", "1"});
  std::list<HttpClient> clients;
  const auto hold = [&](const std::string &address) {
    clients.emplace_back(port_).send(behind(address) + "POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\n" +
                                     "Expect: 100-continue\r\n\r\n");
    return clients.back().receive_head();
  };
  EXPECT_EQ(hold("192.0.2.1"), "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_EQ(hold("192.0.2.2"), "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_EQ(hold("192.0.2.1").substr(0, 13), "HTTP/1.1 503 ");
  EXPECT_TRUE(told("503: connection limit of the address reached", "192.0.2.1"));
  clients.front().send("body");
  EXPECT_EQ(address_of(clients.front().receive()), "192.0.2.1");
}

TEST_F(HostProxies, FarBeyondItsLimitAClientThatTheHeaderNamesIsJustClosed) {
  start_behind_proxy({"--rate-per-address", "0.02", "--linger-timeout", "60"});
  std::list<HttpClient> clients;
  const auto begin = [&](const std::string &address) -> HttpClient & {
    clients.emplace_back(port_).send(behind(address));
    return clients.back();
  };
  EXPECT_EQ(ask(begin("192.0.2.1")), "192.0.2.1");
  for (int i = 0; i < 8; ++i) EXPECT_EQ(begin("192.0.2.1").receive().status, 503) << i;
  EXPECT_TRUE(begin("192.0.2.1").ended());
  EXPECT_TRUE(told("closed without an answer: too many clients beyond a limit on connections", "192.0.2.1"));
  EXPECT_EQ(ask(begin("192.0.2.2")), "192.0.2.2");
  EXPECT_EQ(begin("192.0.2.2").receive().status, 503);
}

TEST_F(HostProxies, AProxyThatClosesBeforeItsHeaderCostsNothing) {
  start_behind_proxy({"--max-connections", "2", "--header-timeout", "600"});
  for (int i = 0; i < 10; ++i) HttpClient(port_).send(v1.substr(0, static_cast<std::size_t>(i)));
  // The server may not have noticed yet that the last of them have gone.
  EXPECT_TRUE(is_served_soon());
}

TEST_F(HostProxies, AConnectionWithoutItsHeaderMakesWay) {
  start_behind_proxy({"--max-connections", "1", "--header-timeout", "600"});
  HttpClient waiting(port_);
  waiting.send("PROXY");
  // A connection makes way only after the server has begun to read from it.
  EXPECT_TRUE(is_served_soon());
  EXPECT_TRUE(waiting.ended());
}

TEST_F(HostProxies, XForwardedForOfATrustedProxyNamesTheClientOfTheRequest) {
  start_forwarding();
  HttpClient proxy(port_);
  EXPECT_EQ(ask(proxy, "X-Forwarded-For: 192.0.2.1\r\n"), "192.0.2.1");
  EXPECT_EQ(ask(proxy, "X-Forwarded-For: 203.0.113.9, 192.0.2.2, 10.0.0.1\r\n"), "192.0.2.2");
  EXPECT_EQ(ask(proxy, "X-Forwarded-For: 203.0.113.9\r\nX-Forwarded-For: 192.0.2.3\r\n"), "192.0.2.3");
  EXPECT_EQ(ask(proxy), "127.0.0.1");
  EXPECT_EQ(ask(proxy, "X-Forwarded-For: nonsense\r\n"), "127.0.0.1");
  EXPECT_NE(await_access(5).find("192.0.2.2 - - ["), std::string::npos) << access();
  EXPECT_EQ(access().find("203.0.113.9 - - ["), std::string::npos) << access();
}

TEST_F(HostProxies, XForwardedForOfOthersIsIgnored) {
  start_forwarding();
  HttpClient client("127.0.0.2", port_);
  EXPECT_EQ(ask(client, "X-Forwarded-For: 192.0.2.1\r\n"), "127.0.0.2");
  start();
  HttpClient proxy(port_);
  EXPECT_EQ(ask(proxy, "X-Forwarded-For: 192.0.2.1\r\n"), "127.0.0.1") << "no proxy is trusted by default";
}

TEST_F(HostProxies, LimitsOfAnAddressHoldForTheClientThatXForwardedForNames) {
  start_forwarding({"--rate-per-address", "0.02"});
  HttpClient proxy(port_), again(port_), other(port_);
  EXPECT_EQ(ask(proxy, "X-Forwarded-For: 192.0.2.1\r\n"), "192.0.2.1");
  EXPECT_EQ(ask(again, "X-Forwarded-For: 192.0.2.1\r\n"), "status 503");
  EXPECT_TRUE(told("503: too many new connections of the address", "192.0.2.1, request "));
  EXPECT_EQ(ask(other, "X-Forwarded-For: 192.0.2.2\r\n"), "192.0.2.2");
  EXPECT_EQ(ask(other), "127.0.0.1") << "the proxy itself has no limit";
}

TEST_F(HostProxies, AProxyMayNameClientsInBothWays) {
  start({"--trusted-proxy", "127.0.0.1", "--trusted-proxy", "10.0.0.0/8", "--proxy-protocol"});
  HttpClient by_proxy(port_), direct(port_);
  by_proxy.send(behind("10.0.0.1"));
  EXPECT_EQ(ask(by_proxy, "X-Forwarded-For: 192.0.2.7\r\n"), "192.0.2.7");
  direct.send(behind("192.0.2.8"));
  EXPECT_EQ(ask(direct, "X-Forwarded-For: 192.0.2.7\r\n"), "192.0.2.8");
}

TEST_F(HostProxies, AProxyMayUseAUnixSocket) {
  const std::string path = directory_.path("socket");
  start({"--listen", "unix:" + path, "--trusted-proxy", "unix"});
  HttpClient proxy(path);
  EXPECT_EQ(ask(proxy, "X-Forwarded-For: 192.0.2.1\r\n"), "192.0.2.1");
}

}  // namespace
