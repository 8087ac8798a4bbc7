// SPDX-License-Identifier: MIT
/// Limits on slow, silent and greedy clients.

#include <sys/resource.h>
#include <sys/socket.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "hosts/rdmd/pace.h"
#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::HttpResponse;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class HostLimits : public support::ServerTest {};

/// drip sends a byte every 20 ms until the server answers or closes.
void drip(HttpClient &client) {
  while (!client.readable(20ms)) client.send("x");
}

/// take reads `size` bytes at a time, with pauses, until the connection ends.
std::string take(const HttpClient &client, std::size_t size, std::chrono::milliseconds pause, support::Pace &pace) {
  std::string received, block(size, '\0');
  auto last = Clock::now();
  for (ssize_t got = 0; (got = ::recv(client.descriptor(), block.data(), block.size(), MSG_WAITALL)) > 0;) {
    received.append(block, 0, static_cast<std::size_t>(got));
    std::this_thread::sleep_for(pause);
    pace.step(last);
  }
  return received;
}

TEST_F(HostLimits, AByteAtATimeHoldsNeitherHeadNorBodyOpen) {
  start({"--header-timeout", "1", "--body-timeout", "1"});
  const struct {
    const char *begun, *answer;
  } cases[] = {
      {"GET /rdm/fast HTTP/1.1\r\nHost: ", "The request head did not arrive in time.\n"},
      {"POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 30000\r\n\r\n",
       "The request body did not arrive in time.\n"},
  };
  for (const auto &row : cases) {
    const auto begun = Clock::now();
    HttpClient client(port_);
    client.send(row.begun);
    drip(client);
    EXPECT_GE(Clock::now() - begun, 1s);
    const HttpResponse response = client.receive();
    EXPECT_EQ(response.status, 408);
    EXPECT_EQ(response.body, row.answer);
    EXPECT_EQ(response.field("connection"), "close");
  }
  EXPECT_EQ(journal(), "init\n");
  EXPECT_NE(await_access(2).find("\"POST /rdm/echo HTTP/1.1\" 408 41 "), std::string::npos) << access();
}

TEST_F(HostLimits, AClientThatSendsNothingIsClosed) {
  start({"--header-timeout", "0.2"});
  HttpClient client(port_);
  EXPECT_TRUE(client.ended());
  EXPECT_EQ(access(), "");
}

TEST_F(HostLimits, AConnectionIdleBetweenRequestsIsClosed) {
  start({"--idle-timeout", "0.2"});
  HttpClient client(port_);
  const auto begun = Clock::now();
  client.send(get("/rdm/fast"));
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_TRUE(client.ended());
  EXPECT_GE(Clock::now() - begun, 200ms);
}

TEST_F(HostLimits, ARequestBegunIsNotIdle) {
  start({"--idle-timeout", "0.2", "--header-timeout", "60"});
  HttpClient client(port_);
  client.send(get("/rdm/fast") + "GET /rdm/fast HT");
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_FALSE(client.readable(400ms));
  client.send("TP/1.1\r\nHost: h\r\n\r\n");
  EXPECT_EQ(client.receive().body, "fast\n");
}

TEST_F(HostLimits, EmptyLinesDoNotKeepAConnection) {
  start({"--idle-timeout", "0.3"});
  HttpClient client(port_);
  client.send(get("/rdm/fast"));
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_TRUE(support::eventually([&] {
    client.send("\r\n");
    return client.readable(20ms);
  }));
  EXPECT_TRUE(client.ended());
  EXPECT_EQ(stop(), 0);
  EXPECT_EQ(access().find(" 408 "), std::string::npos) << access();
}

TEST_F(HostLimits, ClientsThatReadNothingDelayNoOthers) {
  start();
  std::vector<std::unique_ptr<HttpClient>> deaf;
  for (int i = 0; i < 8; ++i) {
    deaf.push_back(std::make_unique<HttpClient>(port_, false, 65536));
    deaf.back()->send(get("/rdm/big?8000000"));
  }
  for (int i = 0; i < 20; ++i) EXPECT_EQ(support::http_get(port_, "/rdm/fast").body, "fast\n");
  // All were answered meanwhile, and receive the rest when they read.
  EXPECT_EQ(deaf[3]->receive().body, pattern(8'000'000));
}

TEST_F(HostLimits, ClientsThatSendSlowlyDelayNoOthers) {
  start();
  std::vector<std::unique_ptr<HttpClient>> slow;
  for (int i = 0; i < 50; ++i) {
    slow.push_back(std::make_unique<HttpClient>(port_));
    slow.back()->send(i % 2 == 0 ? "GET /rdm/f"
                                 : "POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 9\r\n\r\nhalf");
  }
  for (int i = 0; i < 20; ++i) EXPECT_EQ(support::http_get(port_, "/rdm/fast").body, "fast\n");
  slow[1]->send(" more");
  EXPECT_NE(slow[1]->receive().body.find("body half more[0]\n"), std::string::npos);
}

TEST_F(HostLimits, AClientThatTakesNothingIsCutOff) {
  start({"--write-timeout", "0.3"});
  HttpClient client(port_, false, 65536);
  client.send(get("/rdm/big?12000000"));
  const std::string log = await_access(1);
  EXPECT_NE(log.find("\"GET /rdm/big?12000000 HTTP/1.1\" 200 "), std::string::npos);
  EXPECT_EQ(log.find(" 200 12000000 "), std::string::npos);
  EXPECT_LT(client.receive().body.size(), 12'000'000u);
}

TEST_F(HostLimits, AClientThatKeepsTakingIsNotCutOff) {
  EXPECT_TRUE(support::at_pace(500ms, [this](std::chrono::milliseconds limit, support::Pace &pace) {
    start({"--write-timeout", support::in_seconds(limit)});
    HttpClient client(port_, false, 65536);
    const auto begun = Clock::now();
    client.send(get("/rdm/big?12000000", "Connection: close\r\n"));
    const std::string received = take(client, 400'000, limit / 12, pace);
    return received.ends_with(pattern(12'000'000)) && Clock::now() - begun >= limit * 2;
  }));
}

TEST_F(HostLimits, AClientThatTakesLessThanTheMinimumRateIsCutOff) {
  EXPECT_TRUE(support::at_pace(300ms, [this](std::chrono::milliseconds limit, support::Pace &pace) {
    start({"--write-timeout", support::in_seconds(limit), "--min-send-rate", "1000M"});
    HttpClient client(port_, false, 65536);
    const auto begun = Clock::now();
    client.send(get("/rdm/big?40000000"));
    const std::string received = take(client, 100'000, limit / 15, pace);
    // It may fall behind by five times the write timeout.
    const bool is_late = received.size() < 40'000'000 && Clock::now() - begun >= limit * 5;
    EXPECT_EQ(stop(), 0);
    return is_late && server_->errors().find(
                          "[warning] rdmd: answer cut off: the client took less than the minimum "
                          "send rate (client 127.0.0.1, request ") != std::string::npos;
  }));
}

TEST_F(HostLimits, TheSizeOfARequestHeadIsAnOption) {
  start({"--max-head-bytes", "2K", "--max-head-fields", "3", "--max-target-bytes", "64"});
  const std::pair<std::string, int> cases[] = {
      {get("/rdm/fast?" + std::string(54, 'q')), 200},
      {get("/rdm/fast?" + std::string(55, 'q')), 414},
      {get("/rdm/fast", "A: 1\r\nB: 2\r\n"), 200},
      {get("/rdm/fast", "A: 1\r\nB: 2\r\nC: 3\r\n"), 431},
      {get("/rdm/fast", "A: " + std::string(2048 - 40, 'x') + "\r\n"), 200},
      {get("/rdm/fast", "A: " + std::string(2048 - 39, 'x') + "\r\n"), 431},
  };
  for (const auto &[request, status] : cases) {
    HttpClient client(port_);
    client.send(request);
    EXPECT_EQ(client.receive().status, status) << request.substr(0, 100) << " " << request.size();
  }
  EXPECT_TRUE(
      server_->await_error("[warning] rdmd: 414 or 431: the request head exceeds a limit (client 127.0.0.1, request "));
}

TEST_F(HostLimits, AClientThatNeverClosesIsNotWaitedForLong) {
  start({"--linger-timeout", "0.2"});
  HttpClient client(port_);
  client.send(get("/rdm/fast", "Connection: close\r\n"));
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_TRUE(client.ended());
  // Once the server has closed the connection, sending fails.
  EXPECT_TRUE(support::eventually([&] { return ::send(client.descriptor(), "x", 1, MSG_NOSIGNAL) < 0; }));
}

TEST_F(HostLimits, WithoutDescriptorsClientsWaitUntilThereAreSome) {
  start();
  struct rlimit limit;
  ASSERT_EQ(::prlimit(server_->front(), RLIMIT_NOFILE, nullptr, &limit), 0);
  const struct rlimit none = {3, limit.rlim_max};
  ASSERT_EQ(::prlimit(server_->front(), RLIMIT_NOFILE, &none, nullptr), 0);
  HttpClient client(port_);
  client.send(get("/rdm/fast"));
  EXPECT_FALSE(client.readable(300ms));
  ASSERT_EQ(::prlimit(server_->front(), RLIMIT_NOFILE, &limit, nullptr), 0);
  EXPECT_EQ(client.receive().body, "fast\n");
}

/// hold begins a request that lacks its body, so that the connection cannot make way.
void hold(HttpClient &client) {
  client.send(
      "POST /rdm/echo HTTP/1.1\r\nHost: h\r\nConnection: close\r\nContent-Length: 4\r\nExpect: 100-continue\r\n\r\n");
  EXPECT_EQ(client.receive_head(), "HTTP/1.1 100 Continue\r\n\r\n");
}

TEST_F(HostLimits, ClientsBeyondTheLimitAreTurnedAway) {
  start({"--max-connections", "2"});
  HttpClient first(port_), second(port_);
  for (HttpClient *client : {&first, &second}) hold(*client);
  EXPECT_TRUE(support::eventually([&] { return support::http_get(port_, "/rdm/fast").status == 503; }));
  const HttpResponse response = support::http_get(port_, "/rdm/fast");
  EXPECT_EQ(response.status, 503);
  EXPECT_EQ(response.reason, "Service Unavailable");
  EXPECT_EQ(response.field("retry-after"), "5");
  EXPECT_EQ(response.body, "The server has as many connections as it can take.\n");
  EXPECT_TRUE(server_->await_error("[warning] rdmd: 503: connection limit reached (client 127.0.0.1, request "));
  for (HttpClient *client : {&first, &second}) {
    client->send("body");
    EXPECT_EQ(client->receive().status, 200);
    EXPECT_TRUE(client->ended());
    client->finish_sending();
  }
  EXPECT_TRUE(support::eventually([&] { return support::http_get(port_, "/rdm/fast").status == 200; }));
}

TEST_F(HostLimits, ClientsFarBeyondTheLimitAreJustClosed) {
  start({"--max-connections", "1", "--linger-timeout", "60", "--header-timeout", "60"});
  HttpClient served(port_);
  hold(served);
  std::vector<std::unique_ptr<HttpClient>> beyond;
  for (int i = 0; i < 64; ++i) {
    beyond.push_back(std::make_unique<HttpClient>(port_));
    EXPECT_EQ(beyond.back()->receive().status, 503) << i;
  }
  HttpClient last(port_);
  EXPECT_TRUE(last.ended());
  EXPECT_TRUE(server_->await_error(
      "rdmd: closed without an answer: too many clients beyond a limit on connections (client 127.0.0.1)\n"));
  served.send("body");
  EXPECT_EQ(served.receive().status, 200);
}

TEST_F(HostLimits, AtTheLimitTheConnectionIdleLongestIsClosed) {
  // With one I/O thread, a connection whose client has its answer waits before another one is accepted.
  start({"--max-connections", "2", "--threads", "1"});
  HttpClient oldest(port_);
  oldest.send(get("/rdm/fast"));
  EXPECT_EQ(oldest.receive().body, "fast\n");
  HttpClient newer(port_);
  newer.send(get("/rdm/fast"));
  EXPECT_EQ(newer.receive().body, "fast\n");
  HttpClient newest(port_);
  newest.send(get("/rdm/fast"));
  EXPECT_EQ(newest.receive().body, "fast\n");
  EXPECT_TRUE(oldest.ended());
  newer.send(get("/rdm/fast"));
  EXPECT_EQ(newer.receive().body, "fast\n");
}

/// reset closes the connection of a client with a RST.
void reset(std::unique_ptr<HttpClient> client) {
  const struct linger now = {1, 0};
  EXPECT_EQ(::setsockopt(client->descriptor(), SOL_SOCKET, SO_LINGER, &now, sizeof now), 0);
}

/// HostReasons is for what the error log says of clients that were cut off, or have gone.
class HostReasons : public HostLimits {
 protected:
  bool told(const std::string &reason) {
    return server_->await_error("[warning] rdmd: " + reason + " (client 127.0.0.1, request ");
  }
};

TEST_F(HostReasons, EachClientThatIsTooSlowIsNamed) {
  // Regression: the only trace of a broken-off answer was a short byte count in the access log.
  start({"--header-timeout", "1", "--body-timeout", "1", "--write-timeout", "0.5"});
  HttpClient head(port_);
  head.send("GET /rdm/fa");
  HttpClient body(port_);
  body.send("POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 4\r\n\r\nha");
  HttpClient silent(port_, false, 65536);
  silent.send(get("/rdm/big?12000000"));
  EXPECT_TRUE(told("408: the request head did not arrive in time"));
  EXPECT_TRUE(told("408: the request body did not arrive in time"));
  EXPECT_TRUE(told("answer cut off: the client acknowledged nothing within the write timeout"));
}

TEST_F(HostReasons, EachClientThatHasGoneIsNamed) {
  start_single(observed());
  auto gone = std::make_unique<HttpClient>(port_, false, 65536);
  gone->send(get("/rdm/big?12000000"));
  EXPECT_TRUE(gone->readable(support::timeout));
  reset(std::move(gone));
  EXPECT_TRUE(told("answer cut off: the connection broke, or a file became shorter while it was sent"));
  HttpClient slow(port_);
  slow.send(get(held()));
  EXPECT_TRUE(support::eventually([this] { return called("service /rdm/slow"); }));
  auto waiting = std::make_unique<HttpClient>(port_);
  waiting->send(get("/rdm/fast"));
  EXPECT_TRUE(await_queued(1));
  reset(std::move(waiting));
  EXPECT_TRUE(told("503: the connection was closed before the request was processed"));
  release();
  EXPECT_EQ(slow.receive().body, "slow\n");
}

}  // namespace
