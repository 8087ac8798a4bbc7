// SPDX-License-Identifier: MIT
/// The administration endpoint, with the test plug-in.

#include <signal.h>

#include <chrono>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "hosts/rdmd/server_fixture.h"
#include "support/process.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::HttpResponse;

class HostAdmin : public support::ServerTest {
 protected:
  void start_admin(const std::vector<std::string> &more = {}) {
    start(observed(more));
    admin_ = server_->admin_port();
  }
  HttpResponse ask(const std::string &target) const { return support::http_get(admin_, target); }
  /// send returns all that the endpoint sends for these bytes.
  std::string send(const std::string &bytes) const {
    HttpClient client(admin_);
    client.send(bytes);
    return client.receive_rest();
  }

  int admin_ = 0;
};

TEST_F(HostAdmin, SaysThatItLives) {
  start_admin();
  EXPECT_EQ(send(get("/livez")),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nCache-Control: no-store\r\n"
            "Connection: close\r\nContent-Length: 5\r\n\r\nlive\n");
  EXPECT_EQ(send("HEAD /livez HTTP/1.1\r\nHost: h\r\n\r\n"),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nCache-Control: no-store\r\n"
            "Connection: close\r\nContent-Length: 5\r\n\r\n");
}

TEST_F(HostAdmin, AnswersWhateverFollowsThePath) {
  start_admin();
  EXPECT_EQ(ask("/livez?verbose").body, "live\n");
  EXPECT_EQ(ask("/readyz").body, "ready\n");
  EXPECT_EQ(ask("/readyz").field("content-type"), "text/plain; charset=utf-8");
  EXPECT_EQ(ask("/healthz").body, "{\n  \"status\": \"ok\",\n  \"catalogs\": []\n}\n");
  EXPECT_EQ(ask("/healthz").field("content-type"), "application/json");
  EXPECT_EQ(ask("/metrics").field("content-type"), "text/plain; version=0.0.4; charset=utf-8");
}

TEST_F(HostAdmin, IsNotOnThePublicAddressNorTheServiceOnItsOwn) {
  start_admin();
  for (const char *path : {"/livez", "/readyz", "/healthz", "/metrics"})
    EXPECT_EQ(support::http_get(port_, path).status, 404) << path;
  for (const char *path : {"/rdm/fast", "/", "/livez/", "/LIVEZ", "//livez", "http://h/livez", "/livez%00"})
    EXPECT_EQ(ask(path).status, 404) << path;
  EXPECT_FALSE(called("service"));
}

TEST_F(HostAdmin, RefusesBadInput) {
  start_admin();
  const std::pair<std::string, std::string> rows[] = {
      {"nonsense\r\n\r\n", "400 Bad Request"},
      {"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03\r\n\r\n", "400 Bad Request"},
      {std::string("GET /livez\0 HTTP/1.1\r\n\r\n", 24), "400 Bad Request"},
      {"GET /livez HTTP/9.9\r\n\r\n", "400 Bad Request"},
      {"GET /livez\r\n\r\n", "400 Bad Request"},
      {"GET /livez HTTP/1.1\r\nHost : h\r\n\r\n", "400 Bad Request"},
      {"GET /livez HTTP/1.1\r\nContent-Length: x\r\n\r\n", "400 Bad Request"},
      {"GET /livez HTTP/1.1\r\nA: " + std::string(9000, 'a') + "\r\n\r\n", "431 Request Header Fields Too Large"},
      {"GET /" + std::string(9000, 'a'), "431 Request Header Fields Too Large"},
      {"POST /livez HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", "405 Method Not Allowed"},
      {"DELETE /metrics HTTP/1.1\r\n\r\n", "405 Method Not Allowed"},
      {"BREW /livez HTTP/1.1\r\n\r\n", "405 Method Not Allowed"},
  };
  for (const auto &[bytes, status] : rows) {
    const std::string answer = send(bytes);
    EXPECT_EQ(answer.substr(0, answer.find("\r\n")), "HTTP/1.1 " + status) << bytes.substr(0, 60);
  }
  EXPECT_NE(send("PUT /livez HTTP/1.1\r\n\r\n").find("\r\nAllow: GET, HEAD\r\n"), std::string::npos);
  EXPECT_EQ(ask("/livez").body, "live\n");
}

TEST_F(HostAdmin, ABodyIsNotReadAndDoesNotCostTheAnswer) {
  start_admin();
  const std::string answer = send("GET /livez HTTP/1.1\r\nContent-Length: 200000\r\n\r\n" + std::string(200'000, 'b'));
  EXPECT_TRUE(answer.ends_with("\r\n\r\nlive\n")) << answer;
}

TEST_F(HostAdmin, OneRequestIsServedOnAConnection) {
  start_admin();
  const std::string answer = send(get("/livez") + get("/livez"));
  EXPECT_EQ(answer.find("HTTP/1.1"), answer.rfind("HTTP/1.1"));
  EXPECT_TRUE(answer.ends_with("\r\n\r\nlive\n"));
}

TEST_F(HostAdmin, AClientThatSendsSlowlyIsCutOff) {
  start_admin();
  const auto begun = std::chrono::steady_clock::now();
  HttpClient silent(admin_), slow(admin_);
  std::string sent = "GET /livez HTTP/1.1\r\nA: ";
  while (!slow.readable(std::chrono::milliseconds(500))) slow.send(std::exchange(sent, "a"));
  EXPECT_GE(std::chrono::steady_clock::now() - begun, std::chrono::seconds(4));
  EXPECT_TRUE(silent.ended());
  EXPECT_EQ(ask("/livez").body, "live\n");
}

TEST_F(HostAdmin, ConnectionsBeyondTheLimitEndTheOldest) {
  start_admin();
  std::vector<std::unique_ptr<HttpClient>> clients;
  for (int i = 0; i < 16; ++i) clients.push_back(std::make_unique<HttpClient>(admin_));
  EXPECT_EQ(ask("/livez").body, "live\n");
  EXPECT_TRUE(clients.front()->ended());
  clients.back()->send(get("/livez"));
  EXPECT_EQ(clients.back()->receive().body, "live\n");
}

TEST_F(HostAdmin, AFloodOfConnectionsDoesNotDelayTheService) {
  start_admin();
  std::vector<std::unique_ptr<HttpClient>> clients;
  for (int i = 0; i < 300; ++i) {
    clients.push_back(std::make_unique<HttpClient>(admin_));
    clients.back()->send("GET /met");
  }
  EXPECT_EQ(support::http_get(port_, "/rdm/fast").body, "fast\n");
  EXPECT_EQ(ask("/readyz").body, "ready\n");
  EXPECT_LE(server_->open_files(), 100u);
}

TEST_F(HostAdmin, AServerThatStopsLivesButIsNotReady) {
  start_admin();
  HttpClient slow(port_);
  slow.send(get(held()));
  EXPECT_TRUE(support::eventually([this] { return called("service /rdm/slow"); }));
  server_->signal(SIGTERM);
  HttpResponse ready;
  // The master has said so when the front does not yet know it.
  EXPECT_TRUE(support::eventually([&] { return (ready = ask("/readyz")).status == 503; }));
  EXPECT_EQ(ready.body, "the server is stopping\n");
  EXPECT_EQ(ask("/livez").status, 200);
  release();
  EXPECT_EQ(slow.receive().body, "slow\n");
  HttpClient idle(admin_);
  EXPECT_EQ(server_->wait(), 0);
}

TEST_F(HostAdmin, AServiceThatIsBusyForLongIsNotReady) {
  start_admin({"--workers", "0"});
  HttpClient slow(port_);
  slow.send(get(held()));
  EXPECT_TRUE(support::eventually([this] { return called("service /rdm/slow"); }));
  EXPECT_EQ(ask("/readyz").status, 200);
  EXPECT_TRUE(support::eventually([this] { return ask("/readyz").status == 503; }));
  EXPECT_EQ(ask("/readyz").body, "every worker has been busy with one request for more than 10 seconds\n");
  EXPECT_EQ(ask("/livez").status, 200);
  EXPECT_NE(ask("/metrics").body.find("\nrdmd_ready 0\n"), std::string::npos);
  release();
  EXPECT_EQ(slow.receive().body, "slow\n");
  EXPECT_TRUE(support::eventually([this] { return ask("/readyz").status == 200; }));
}

TEST_F(HostAdmin, MetricsCountWhatClientsDo) {
  start_admin({"--header-timeout", "1"});
  support::http_get(port_, "/rdm/fast");
  support::http_get(port_, "/rdm/labels");
  support::http_get(port_, "/rdm/nothing");
  support::http_get(port_, "/elsewhere");
  HttpClient late(port_);
  late.send("GET /");
  EXPECT_EQ(late.receive().status, 408);
  await_access(5);
  const std::string text = "\n" + ask("/metrics").body;
  for (const char *line : {
           "rdmd_requests_total{type=\"rd-request\",catalog=\"unknown\",outcome=\"answered\"} 1",
           "rdmd_requests_total{type=\"unknown\",catalog=\"unknown\",outcome=\"answered\"} 1",
           "rdmd_requests_total{type=\"unknown\",catalog=\"unknown\",outcome=\"failed\"} 1",
           "rdmd_requests_total{type=\"http\",catalog=\"unknown\",outcome=\"not_found\"} 1",
           "rdmd_requests_total{type=\"http\",catalog=\"unknown\",outcome=\"refused\"} 1",
           "rdmd_descriptions_sent_total 3",
           "rdmd_service_seconds_count 3",
           "rdmd_sending_seconds_count 5",
           "rdmd_limits_hit_total{kind=\"late_head\"} 1",
           "rdmd_limits_hit_total{kind=\"late_body\"} 0",
           "rdmd_connections_accepted_total 5",
       })
    EXPECT_NE(text.find("\n" + std::string(line) + "\n"), std::string::npos) << line << text;
}

TEST_F(HostAdmin, MetricsShowConnectionsByState) {
  start_admin();
  HttpClient idle(port_), head(port_), service(port_);
  idle.send(get("/rdm/fast"));
  idle.receive();
  head.send("GET /");
  service.send(get(held()));
  EXPECT_TRUE(support::eventually([this] {
    const std::string text = ask("/metrics").body;
    return text.find(
               "rdmd_connections{state=\"idle\"} 1\nrdmd_connections{state=\"head\"} 1\n"
               "rdmd_connections{state=\"body\"} 0\nrdmd_connections{state=\"service\"} 1\n") != text.npos;
  }));
  release();
  service.receive();
}

TEST_F(HostAdmin, MetricsShowTheBytesInTemporaryFiles) {
  start_admin();
  const auto shows = [this](const std::string &value) {
    const std::regex line("\nrdmd_spill_bytes " + value + "\n");
    return support::eventually([&] { return std::regex_search(ask("/metrics").body, line); });
  };
  EXPECT_TRUE(shows("0"));
  {
    HttpClient silent(port_, false, 65536);
    silent.send(get("/rdm/big?12000000"));
    EXPECT_TRUE(shows("1[012]\\d{6}")) << "all but what is in memory";
  }
  EXPECT_TRUE(shows("0"));
}

TEST_F(HostAdmin, MetricsShowWorkersAndTheirRestarts) {
  start_admin({"--workers", "2"});
  const auto shows = [this](const std::string &line) {
    return support::eventually([&] { return ask("/metrics").body.find("\n" + line + "\n") != std::string::npos; });
  };
  EXPECT_TRUE(shows("rdmd_workers{state=\"idle\"} 2"));
  EXPECT_TRUE(shows("rdmd_worker_restarts_total 0"));
  const std::vector<pid_t> workers = server_->children("rdmd-worker");
  ASSERT_EQ(workers.size(), 2u);
  ::kill(workers.front(), SIGKILL);
  EXPECT_TRUE(shows("rdmd_worker_restarts_total 1"));
  EXPECT_TRUE(shows("rdmd_workers{state=\"idle\"} 2"));
}

TEST_F(HostAdmin, ListensOnAUnixSocket) {
  const std::string path = directory_.path("admin.socket");
  start({"--admin", "unix:" + path});
  EXPECT_TRUE(server_->await_error("rdmd: administration on unix:" + path + "\n"));
  {
    HttpClient client(path);
    client.send(get("/livez"));
    EXPECT_EQ(client.receive().body, "live\n");
  }
  EXPECT_EQ(stop(), 0);
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(HostAdmin, AnAddressOfTheServiceIsRefusedAtTheStart) {
  config_ = directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n");
  const std::string path = directory_.path("socket");
  const support::ReservedPort reserved;
  const std::string port = std::to_string(reserved.number());
  const struct {
    std::string listen, admin, message;
  } rows[] = {
      {"127.0.0.1:" + port, "127.0.0.1:" + port,
       "cannot listen on 127.0.0.1:" + port + ": --admin needs an address that --listen does not have\n"},
      {"unix:" + path, "unix:" + path,
       "cannot listen on unix:" + path + ": --admin needs an address that --listen does not have\n"},
      {"0.0.0.0:" + port, "127.0.0.1:" + port, "cannot listen on 0.0.0.0:" + port + ": Address already in use\n"},
      {"127.0.0.1:0", "nonsense", "cannot listen on nonsense: HOST:PORT is required\n"},
      {"127.0.0.1:0", "198.51.100.1:8381", "cannot listen on 198.51.100.1:8381: Cannot assign requested address\n"},
  };
  for (const auto &row : rows) {
    support::RdmdProcess server(
        {"--listen", row.listen, "--admin", row.admin, "--plugin", plugin(), "--config", config_});
    EXPECT_EQ(server.wait(), 1) << row.admin;
    EXPECT_TRUE(server.errors().ends_with("[error] rdmd: " + row.message)) << server.errors();
  }
}

TEST_F(HostAdmin, IsCheckedLikeTheOtherAddresses) {
  config_ = directory_.write("rdm.conf", "");
  support::RdmdProcess server({"--check", "--config", config_, "--plugin", plugin(), "--listen", "127.0.0.1:0",
                               "--admin", "198.51.100.1:8381"});
  EXPECT_EQ(server.wait(), 1);
  EXPECT_NE(server.errors().find("rdmd: error: cannot listen on 198.51.100.1:8381: Cannot assign requested address\n"),
            std::string::npos)
      << server.errors();
}

}  // namespace
