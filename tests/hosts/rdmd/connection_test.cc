// SPDX-License-Identifier: MIT
/// Framing, pipelining and refusal of requests.

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::HttpResponse;

class HostConnection : public support::ServerTest {};

void reset_at_close(const HttpClient &client) {
  const struct linger at_once { 1, 0 };
  ::setsockopt(client.descriptor(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
}

TEST_F(HostConnection, StaysOpenBetweenRequests) {
  start();
  HttpClient client(port_);
  for (int i = 0; i < 3; ++i) {
    client.send(post("/rdm/echo", "body " + std::to_string(i)));
    const HttpResponse response = client.receive();
    EXPECT_EQ(response.fields.count("connection"), 0u);
    EXPECT_NE(response.body.find("body body " + std::to_string(i) + "[0]\n"), std::string::npos);
  }
}

TEST_F(HostConnection, ClosesWhenTheClientAsksForIt) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/fast", "Connection: close\r\n"));
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_EQ(response.body, "fast\n");
  EXPECT_TRUE(client.ended());
}

TEST_F(HostConnection, Http10ClosesUnlessTheClientAsksForKeepAlive) {
  start();
  HttpClient client(port_);
  client.send("GET /rdm/fast HTTP/1.0\r\nConnection: keep-alive\r\n\r\n");
  HttpResponse response = client.receive();
  EXPECT_EQ(response.field("connection"), "keep-alive");
  EXPECT_EQ(response.body, "fast\n");
  client.send("GET /rdm/fast HTTP/1.0\r\n\r\n");
  response = client.receive();
  EXPECT_EQ(response.head.substr(0, 17), "HTTP/1.1 200 OK\r\n");
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_EQ(response.body, "fast\n");
  EXPECT_TRUE(client.ended());
}

TEST_F(HostConnection, AnswersPipelinedRequestsInOrder) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/slow?100") + post("/rdm/echo", "one") + get("/nowhere") + "\r\n" + get("/rdm/big?2000000") +
              post("/rdm/echo", "two") + get("/rdm/fast", "Connection: close\r\n") + get("/rdm/unanswered"));
  EXPECT_EQ(client.receive().body, "slow\n");
  EXPECT_NE(client.receive().body.find("body one[0]\n"), std::string::npos);
  EXPECT_EQ(client.receive().status, 404);
  EXPECT_EQ(client.receive().body, pattern(2'000'000));
  EXPECT_NE(client.receive().body.find("body two[0]\n"), std::string::npos);
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_TRUE(client.ended());
  EXPECT_FALSE(called("type /rdm/unanswered"));
}

TEST_F(HostConnection, AnswersAThousandRequestsOfOnePacket) {
  start();
  HttpClient client(port_);
  std::string requests;
  for (int i = 0; i < 1000; ++i) requests += get("/x");
  std::thread sending([&] { client.send(requests); });
  int answered = 0;
  while (answered < 1000 && client.receive().status == 404) ++answered;
  sending.join();
  EXPECT_EQ(answered, 1000);
}

TEST_F(HostConnection, AnswersAClientThatHasFinishedSending) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/slow?50"));
  client.finish_sending();
  EXPECT_EQ(client.receive().body, "slow\n");
  EXPECT_TRUE(client.ended());
}

TEST_F(HostConnection, ABodyWithGetIsReadSoThatTheNextRequestIsFound) {
  start();
  HttpClient client(port_);
  client.send("GET /rdm/fast HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\n\r\nhello" + get("/rdm/fast"));
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_EQ(client.receive().body, "fast\n");
}

TEST_F(HostConnection, TheLargestBodyIsReadWhole) {
  start();
  HttpClient client(port_);
  const std::string body = pattern(32768);
  client.send(post("/rdm/echo", body) + get("/rdm/fast"));
  EXPECT_NE(client.receive().body.find("body " + body + "[0]\n"), std::string::npos);
  EXPECT_EQ(client.receive().body, "fast\n");
}

TEST_F(HostConnection, ALargerAnnouncedLengthIsPassedOnUnread) {
  start();
  const struct {
    const char *announced, *seen;
  } cases[] = {{"32769", "32769"}, {"2147483648", "2147483647"}, {"18446744073709551615", "2147483647"}};
  for (const auto &row : cases) {
    HttpClient client(port_);
    client.send(std::string("POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: ") + row.announced + "\r\n\r\n");
    const HttpResponse response = client.receive();
    EXPECT_EQ(response.status, 200);
    EXPECT_NE(response.body.find(std::string("header content-length=") + row.seen + "\nbody [0]\n"), std::string::npos)
        << response.body;
    EXPECT_EQ(response.field("connection"), "close");
    EXPECT_TRUE(client.ended());
  }
}

TEST_F(HostConnection, AClientThatSendsItsWholeLargeBodyStillReadsTheAnswer) {
  start();
  HttpClient client(port_);
  client.send(post("/rdm/echo", std::string(3'000'000, 'x')));
  client.finish_sending();
  EXPECT_NE(client.receive().body.find("body [0]\n"), std::string::npos);
  EXPECT_TRUE(client.ended());
}

TEST_F(HostConnection, ContinueIsAnsweredBeforeTheBodyIsSent) {
  start();
  HttpClient client(port_);
  client.send("POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\nExpect: 100-continue\r\n\r\n");
  EXPECT_EQ(client.receive_head(), "HTTP/1.1 100 Continue\r\n\r\n");
  EXPECT_FALSE(client.readable(std::chrono::milliseconds(50)));
  client.send("hello");
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.status, 200);
  EXPECT_NE(response.body.find("body hello[0]\n"), std::string::npos);
}

TEST_F(HostConnection, ContinueIsNotSentIfTheBodyIsNotAwaited) {
  start();
  const std::string expect = "Expect: 100-continue\r\n";
  const std::string requests[] = {
      post("/rdm/echo", "already here", expect),
      get("/rdm/echo", expect),
      "POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 32769\r\n" + expect + "\r\n",
      "POST /rdm/echo HTTP/1.0\r\nContent-Length: 2\r\n" + expect + "\r\nok",
      "POST /nowhere HTTP/1.1\r\nHost: h\r\nContent-Length: 2\r\n" + expect + "\r\n",
  };
  for (const std::string &request : requests) {
    HttpClient client(port_);
    client.send(request);
    EXPECT_GE(client.receive().status, 200) << request;
  }
}

TEST_F(HostConnection, ABodyThatDiesOnTheWayNeverReachesThePlugin) {
  start();
  HttpClient client(port_);
  client.send("POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 100\r\n\r\nnot a hundred bytes");
  client.finish_sending();
  EXPECT_EQ(client.receive_rest(), "");
  EXPECT_NE(await_access(1).find("\"POST /rdm/echo HTTP/1.1\" 400 - "), std::string::npos) << access();
  EXPECT_EQ(support::http_get(port_, "/rdm/fast").body, "fast\n");
  EXPECT_FALSE(called("type /rdm/echo"));
}

TEST_F(HostConnection, AClientThatResetsItWhileItIsAnsweredIsGivenUp) {
  start();
  {
    HttpClient client(port_, false, 65536);
    client.send(get("/rdm/big?8000000"));
    EXPECT_TRUE(client.readable(support::timeout));
    reset_at_close(client);
  }
  const std::string log = await_access(1);
  EXPECT_NE(log.find("\"GET /rdm/big?8000000 HTTP/1.1\" 200 "), std::string::npos) << log;
  EXPECT_EQ(log.find(" 200 8000000 "), std::string::npos) << log;
  EXPECT_EQ(support::http_get(port_, "/rdm/fast").body, "fast\n");
}

TEST_F(HostConnection, TheRequestOfAClientThatClosesBeforeItsTurnIsDropped) {
  start_single(observed());
  HttpClient busy(port_);
  begin_held(busy);
  HttpClient half_closed(port_);
  half_closed.send(get("/rdm/echo"));
  half_closed.finish_sending();
  EXPECT_TRUE(await_queued(1));
  release();
  EXPECT_EQ(half_closed.receive().status, 0);
  EXPECT_EQ(busy.receive().body, "slow\n");
  EXPECT_NE(await_access(2).find("\"GET /rdm/echo HTTP/1.1\" 503 - "), std::string::npos) << access();
  EXPECT_FALSE(called("type /rdm/echo"));
}

TEST_F(HostConnection, TheRequestOfAClientThatResetsItIsNotHandedToThePlugin) {
  start_single({"--half-close"});
  const std::string pipe = directory_.path("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  HttpClient busy(port_);
  busy.send(get("/rdm/file?" + pipe));  // waits until the pipe is opened for writing
  ASSERT_TRUE(support::eventually([&] { return called("service /rdm/file"); }));
  HttpClient half_closed(port_);
  half_closed.send(get("/rdm/fast"));
  half_closed.finish_sending();
  {
    HttpClient client(port_);
    client.send(get("/nowhere") + get("/rdm/echo"));
    EXPECT_EQ(client.receive().status, 404);
    reset_at_close(client);
  }
  EXPECT_NE(await_access(2).find("\"GET /rdm/echo HTTP/1.1\" 503 - "), std::string::npos) << access();
  ::close(::open(pipe.c_str(), O_WRONLY));
  EXPECT_EQ(busy.receive().status, 200);
  EXPECT_EQ(half_closed.receive().body, "fast\n");
  EXPECT_EQ(support::http_get(port_, "/rdm/fast").body, "fast\n");
  EXPECT_FALSE(called("type /rdm/echo"));
}

TEST_F(HostConnection, ABodyForAnUnknownPathIsNotAwaited) {
  start();
  HttpClient client(port_);
  client.send("POST /nowhere HTTP/1.1\r\nHost: h\r\nContent-Length: 100\r\n\r\n");
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.status, 404);
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_TRUE(client.ended());
}

TEST_F(HostConnection, RefusesAmbiguousFramingAndCloses) {
  start();
  const std::string post_line = "POST /rdm/echo HTTP/1.1\r\nHost: h\r\n";
  const struct {
    const char *what;
    std::string request;
    int status;
  } cases[] = {
      {"no HTTP at all", "hello there\r\n", 400},
      {"TLS", std::string("\x16\x03\x01\x00\xa5\x01\x00\x00\xa1", 9), 400},
      {"a malformed Host", "GET /rdm/fast HTTP/1.1\r\nHost: a/../@b c\r\n\r\n", 400},
      {"a fragment", get("/rdm/fast#x"), 400},
      {"Transfer-Encoding alone", post_line + "Transfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 411},
      {"Transfer-Encoding after a length", post_line + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\nhello",
       400},
      {"Transfer-Encoding before a length", post_line + "Transfer-Encoding: chunked\r\nContent-Length: 5\r\n\r\nhello",
       400},
      {"a long head", post_line + "X-A: " + std::string(17'000, 'x') + "\r\n\r\n", 431},
      {"a long target", get("/rdm/" + std::string(9'000, 'x')), 414},
      {"an expectation", get("/rdm/fast", "Expect: wonders\r\n"), 417},
  };
  for (const auto &row : cases) {
    HttpClient client(port_);
    client.send(row.request + get("/rdm/smuggled"));
    const HttpResponse response = client.receive();
    EXPECT_EQ(response.status, row.status) << row.what;
    EXPECT_EQ(response.field("connection"), "close") << row.what;
    EXPECT_EQ(response.field("content-type"), "text/plain") << row.what;
    EXPECT_NE(response.body, "") << row.what;
    EXPECT_TRUE(client.ended()) << row.what;
  }
  EXPECT_EQ(journal(), "init\n");
}

TEST_F(HostConnection, AnswersRefusedInTheMiddleOfAPipelineInOrder) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/slow?50") + "broken\r\n" + get("/rdm/smuggled"));
  EXPECT_EQ(client.receive().body, "slow\n");
  EXPECT_EQ(client.receive().status, 400);
  EXPECT_TRUE(client.ended());
  EXPECT_FALSE(called("type /rdm/smuggled"));
}

TEST_F(HostConnection, ManyClientsAtOnceGetTheirOwnAnswers) {
  start();
  std::vector<std::thread> clients;
  for (int i = 0; i < 16; ++i)
    clients.emplace_back([this, i] {
      HttpClient client(port_);
      for (int j = 0; j < 20; ++j) {
        const std::string body = std::to_string(i) + "." + std::to_string(j);
        client.send(post("/rdm/echo", body));
        EXPECT_NE(client.receive().body.find("body " + body + "[0]\n"), std::string::npos);
      }
    });
  for (std::thread &client : clients) client.join();
}

}  // namespace
