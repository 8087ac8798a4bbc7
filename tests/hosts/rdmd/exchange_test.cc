// SPDX-License-Identifier: MIT
/// The request as the plug-in sees it, and the answer as the client receives it.

#include <iterator>
#include <regex>
#include <set>
#include <string>

#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using support::HttpResponse;

class HostExchange : public support::ServerTest {};

TEST_F(HostExchange, ThePluginSeesTheWholeRequest) {
  start();
  HttpClient client(port_);
  client.send(
      "POST /rdm/ec%68o?a=%41&b HTTP/1.1\r\nHOST: h\r\nContent-Length: 5\r\nX-Two: 1\r\nx-two: 2\r\n"
      "User-Agent: test\r\n\r\nhello");
  EXPECT_EQ(client.receive().body,
            "client ip=127.0.0.1\n"
            "line method=POST\n"
            "line uri=/rdm/echo\n"
            "line query=a=%41&b\n"
            "header host=h\n"
            "header content-length=5\n"
            "header x-two=1, 2\n"
            "header user-agent=test\n"
            "body hello[0]\n");
}

TEST_F(HostExchange, AnEmptyQueryIsPresentAndAMissingOneIsNot) {
  start();
  EXPECT_NE(support::http_get(port_, "/rdm/echo?").body.find("\nline query=\n"), std::string::npos);
  EXPECT_EQ(support::http_get(port_, "/rdm/echo").body.find("query"), std::string::npos);
}

TEST_F(HostExchange, TheHeadIsStatusLineDateServerAndThePluginsFields) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/fast"));
  const HttpResponse response = client.receive();
  EXPECT_TRUE(std::regex_match(
      response.head,
      std::regex("HTTP/1\\.1 200 OK\r\n"
                 "Date: (Mon|Tue|Wed|Thu|Fri|Sat|Sun), \\d\\d [A-Z][a-z][a-z] \\d{4} \\d\\d:\\d\\d:\\d\\d GMT\r\n"
                 "Server: rdmd/\\d+\\.\\d+\\.\\d+\r\n"
                 "X-Request-Id: [0-9a-z]{26}\r\n"
                 "content-type: text/x-test\r\n"
                 "content-length: 5\r\n\r\n")))
      << response.head;
  EXPECT_EQ(response.body, "fast\n");
}

TEST_F(HostExchange, TypeServiceAndLogAreCalledInTurnOnOneThread) {
  start_single();
  for (const char *target : {"/rdm/fast", "/rdm/nothing", "/rdm/fast"}) support::http_get(port_, target);
  EXPECT_EQ(stop(), 0);
  const std::regex expected(
      "init\n"
      "type /rdm/fast\nservice /rdm/fast on (\\d+)\nlog /rdm/fast\n"
      "type /rdm/nothing\nservice /rdm/nothing on \\1\nlog /rdm/nothing\n"
      "type /rdm/fast\nservice /rdm/fast on \\1\nlog /rdm/fast\n"
      "exit first\nexit second\nexit third\n");
  EXPECT_TRUE(std::regex_match(journal(), expected)) << journal();
}

TEST_F(HostExchange, OnlyPathsUnderRdmReachThePlugin) {
  start();
  for (const char *target : {"/", "/rdm", "/rdmx/fast", "/index.html", "/x/rdm/fast"}) {
    const HttpResponse response = support::http_get(port_, target);
    EXPECT_EQ(response.status, 404) << target;
    EXPECT_EQ(response.reason, "Not Found") << target;
    EXPECT_EQ(response.body, "There is no such resource here.\n") << target;
    EXPECT_EQ(response.field("content-type"), "text/plain") << target;
  }
  EXPECT_EQ(journal(), "init\n");
  EXPECT_NE(support::http_get(port_, "/RDM/echo").body.find("line uri=/RDM/echo\n"), std::string::npos);
  EXPECT_NE(support::http_get(port_, "http://host/%72dm/x").body.find("line uri=/rdm/x\n"), std::string::npos);
}

TEST_F(HostExchange, ADeclinedRequestIsNotFound) {
  start();
  const HttpResponse response = support::http_get(port_, "/rdm/declined");
  EXPECT_EQ(response.status, 404);
  EXPECT_EQ(response.body, "There is no such resource here.\n");
  EXPECT_EQ(journal(), "init\ntype /rdm/declined\n");
}

TEST_F(HostExchange, ARequestAbortedInTheTypeStepIsNotServed) {
  start();
  const HttpResponse response = support::http_get(port_, "/rdm/aborted");
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.body, "");
  EXPECT_EQ(journal(), "init\ntype /rdm/aborted\n");
}

TEST_F(HostExchange, AMalformedTargetIsRefused) {
  start();
  for (const char *target : {"/rdm/%00", "/rdm/%4", "rdm/fast"}) {
    const HttpResponse response = support::http_get(port_, target);
    EXPECT_EQ(response.status, 400) << target;
    EXPECT_EQ(response.body, "The request target is malformed.\n") << target;
    EXPECT_EQ(response.field("connection"), "close") << target;
  }
  EXPECT_EQ(journal(), "init\n");
}

TEST_F(HostExchange, APluginThatSendsNothingGivesAnEmptyServerError) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/nothing"));
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.reason, "Internal Server Error");
  EXPECT_EQ(response.field("content-length"), "0");
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(server_->await_error("[error] rdmd: the plug-in sent no answer (client 127.0.0.1, request "));
}

TEST_F(HostExchange, AnAnswerThatMayBeIncompleteIsNotSent) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/incomplete"));
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.status, 500);
  EXPECT_EQ(response.body, "");
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_TRUE(client.ended());
  EXPECT_TRUE(server_->await_error(
      "[error] rdmd: cannot answer a request: No such file or directory (client 127.0.0.1, request "));
  EXPECT_EQ(support::http_get(port_, "/rdm/fast").body, "fast\n");
}

TEST_F(HostExchange, AnAnswerThatIsNotSentTakesNoRoomOnTheDisk) {
  // Regression: the part already written stayed on a full disk until the connection was closed, and other requests
  // failed.
  start({"--linger-timeout", "60"});
  HttpClient client(port_);
  client.send(get("/rdm/big-incomplete?3000000"));
  EXPECT_EQ(client.receive().status, 500);
  EXPECT_EQ(server_->temporary_files(), 0U);
}

TEST_F(HostExchange, AHeadWithoutLengthOrBodyIsSentAsItIsAndTheConnectionCloses) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/head-alone"));
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.fields.count("content-length"), 0u);
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_EQ(response.body, "");
}

TEST_F(HostExchange, AnAnswerWithoutLengthEndsWithTheConnection) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/undeclared"));
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.field("connection"), "close");
  EXPECT_EQ(response.body, "as long as it is");
}

TEST_F(HostExchange, LessThanDeclaredIsFollowedByTheEndOfTheConnection) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/too-little") + get("/rdm/fast"));
  const std::string head = client.receive_head();
  EXPECT_NE(head.find("content-length: 100\r\n"), std::string::npos);
  EXPECT_NE(head.find("Connection: close\r\n"), std::string::npos);
  EXPECT_EQ(client.receive_rest(), "ten bytes.");
  EXPECT_FALSE(called("service /rdm/fast"));
}

TEST_F(HostExchange, NoMoreThanDeclaredIsSent) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/too-much") + get("/rdm/fast"));
  EXPECT_EQ(client.receive().body, "ten bytes.");
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_TRUE(called("wrote -1\n"));
}

TEST_F(HostExchange, LargeAnswersArriveWhole) {
  start();
  for (const std::size_t size : {std::size_t{1} << 20, (std::size_t{1} << 20) + 1, std::size_t{20'000'000}}) {
    const HttpResponse response = support::http_get(port_, "/rdm/big?" + std::to_string(size));
    EXPECT_EQ(response.body.size(), size);
    EXPECT_EQ(response.body, pattern(size));
  }
}

TEST_F(HostExchange, AFileIsSentWholeAlthoughItIsClosedAndRemovedMeanwhile) {
  start();
  const std::string text = pattern(5'000'000);
  const std::string path = directory_.write("file", text);
  const HttpResponse response = support::http_get(port_, "/rdm/file?" + path);
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.body, text);
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(HostExchange, ThePluginCannotSplitTheResponse) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/split") + get("/rdm/fast"));
  const HttpResponse response = client.receive();
  EXPECT_EQ(response.status, 403);
  EXPECT_EQ(response.reason, "No  x-reason: yes");
  EXPECT_EQ(response.field("x-evil"), "a  x-injected: yes    body");
  for (const char *name : {"x-injected", "x-reason", "x bad", "transfer-encoding", "connection"})
    EXPECT_EQ(response.fields.count(name), 0u) << name;
  EXPECT_EQ(response.body, "ok");
  EXPECT_EQ(client.receive().body, "fast\n");
}

TEST_F(HostExchange, HeadIsAnsweredWithoutBody) {
  start();
  HttpClient client(port_);
  for (const char *target : {"/rdm/fast", "/rdm/big?3000000", "/rdm/undeclared", "/nowhere"})
    client.send(std::string("HEAD ") + target + " HTTP/1.1\r\nHost: h\r\n\r\n");
  client.send(get("/rdm/fast"));
  EXPECT_EQ(client.receive(true).field("content-length"), "5");
  EXPECT_EQ(client.receive(true).field("content-length"), "3000000");
  EXPECT_EQ(client.receive(true).status, 200);
  EXPECT_EQ(client.receive(true).status, 404);
  EXPECT_EQ(client.receive().body, "fast\n");
}

TEST_F(HostExchange, ReportsOfThePluginGoToTheErrorLogAsOneLine) {
  start();
  EXPECT_EQ(support::http_get(port_, "/rdm/report").body, "reported\n");
  EXPECT_TRUE(server_->await_error("[error] rdmd: test-plugin: a \"bad\" thing\\nhappened (client 127.0.0.1, request "))
      << server_->errors();
}

TEST_F(HostExchange, AReportNamesTheRequestByTheIdOfItsAnswer) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/report", "X-Request-Id: chosen by the client\r\n"));
  const std::string id = client.receive().field("x-request-id");
  EXPECT_TRUE(std::regex_match(id, std::regex("[0-9a-z]{26}"))) << id;
  EXPECT_TRUE(server_->await_error("happened (client 127.0.0.1, request " + id + ")\n")) << server_->errors();
}

TEST_F(HostExchange, EveryAnswerHasAnIdOfItsOwn) {
  start({"--header-timeout", "1", "--body-timeout", "1"});
  const std::string requests[] = {
      get("/rdm/fast"),
      get("/rdm/fast"),
      get("/"),
      get("/rdm/nothing"),
      get("/rdm/declined"),
      get("/rdm/split"),
      get("/rdm/%"),
      "HEAD /rdm/fast HTTP/1.0\r\n\r\n",
      "nonsense\r\n",
      "GET /rdm/la",
      "GET /rdm/fast HTTP/1.1\r\n\r\n",
      "GET /" + std::string(20'000, 'x') + " HTTP/1.1\r\n",
      "POST /rdm/fast HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n",
      "POST /rdm/fast HTTP/1.1\r\nHost: h\r\nContent-Length: 9\r\n\r\n",
  };
  std::set<std::string> ids;
  for (const std::string &request : requests) {
    HttpClient client(port_);
    client.send(request);
    const HttpResponse response = client.receive(request.starts_with("HEAD"));
    const std::string id = response.field("x-request-id");
    EXPECT_TRUE(std::regex_match(id, std::regex("[0-9a-z]{26}"))) << request << response.head;
    EXPECT_EQ(response.head.find("X-Request-Id"), response.head.rfind("X-Request-Id")) << response.head;
    ids.insert(id);
  }
  EXPECT_EQ(ids.size(), std::size(requests));
}

TEST_F(HostExchange, TheJsonAccessLogHasEachRequestWithItsId) {
  start({"--access-log-format", "json"});
  HttpClient client(port_);
  client.send(get("/rdm/fast?q", "Referer: http://here/\r\nUser-Agent: \"\xff\"\r\n"));
  const std::string first = client.receive().field("x-request-id");
  client.send(get("/rdm/labels", "Connection: close\r\n"));
  const std::string second = client.receive().field("x-request-id");
  await_access(2);
  HttpClient other(port_);
  other.send("nonsense\r\n");
  const std::string third = other.receive().field("x-request-id");

  // Times and workers differ from run to run.
  const std::string times =
      std::regex_replace(std::regex_replace(await_access(3), std::regex(R"(_ms":\d+\.\d+)"), "_ms\":0"),
                         std::regex(R"("time":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}[+-]\d\d:\d\d")"), "\"time\":0");
  const std::string log = std::regex_replace(times, std::regex(R"(,"worker":[1-9]\d*)"), "");
  EXPECT_EQ(log, R"({"time":0,"client":"127.0.0.1","method":"GET","target":"/rdm/fast?q","protocol":"HTTP/1.1",)"
                 R"("status":200,"bytes":5,"referer":"http://here/","agent":"\"\ufffd\"","request_id":")" +
                     first +
                     R"(","connection":1,"queue_ms":0,"service_ms":0,"sending_ms":0})"
                     "\n"
                     R"({"time":0,"client":"127.0.0.1","method":"GET","target":"/rdm/labels","protocol":"HTTP/1.1",)"
                     R"("status":200,"bytes":8,"request_id":")" +
                     second +
                     R"(","connection":1,"type":"rd-request","catalog":"x-catalog://localhost:80/test","hits":3,)"
                     R"("queue_ms":0,"service_ms":0,"sending_ms":0,"closed_by":"client"})"
                     "\n"
                     R"({"time":0,"client":"127.0.0.1","line":"nonsense","status":400,"bytes":31,"request_id":")" +
                     third +
                     R"(","connection":2,"sending_ms":0,"closed_by":"server"})"
                     "\n");
}

TEST_F(HostExchange, TheAccessLogHasOneExactLineForEachRequest) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/fast?q", "Referer: http://here/\r\nUser-Agent: \"test\"\r\n"));
  client.receive();
  client.send("HEAD /rdm/fast HTTP/1.1\r\nHost: h\r\n\r\n");
  client.receive(true);
  client.send("nonsense\r\n");
  client.receive();
  const std::regex expected(
      R"(127\.0\.0\.1 - - \[\d\d/[A-Z][a-z][a-z]/\d{4}:\d\d:\d\d:\d\d [+-]\d{4}\] "GET /rdm/fast\?q HTTP/1\.1" 200 5 "http://here/" "\\"test\\""
127\.0\.0\.1 - - \[\S+ [+-]\d{4}\] "HEAD /rdm/fast HTTP/1\.1" 200 - "-" "-"
127\.0\.0\.1 - - \[\S+ [+-]\d{4}\] "nonsense" 400 31 "-" "-"
)");
  EXPECT_TRUE(std::regex_match(await_access(3), expected)) << access();
}

TEST_F(HostExchange, ServesIpv6) {
  config_ = directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n");
  support::RdmdProcess server({"--listen", "[::1]:0", "--plugin", plugin(), "--config", config_});
  HttpClient client(server.port(), true);
  client.send(get("/rdm/echo"));
  EXPECT_EQ(client.receive().body.substr(0, 14), "client ip=::1\n");
  EXPECT_NE(server.errors().find("rdmd: listening on [::1]:"), std::string::npos);
}

TEST_F(HostExchange, AnIpv4ClientOfAnIpv6SocketHasAnIpv4Address) {
  config_ = directory_.write("rdm.conf", "journal=\"" + directory_.path("journal") + "\"\n");
  support::RdmdProcess server({"--listen", "[::]:0", "--plugin", plugin(), "--config", config_});
  HttpClient client(server.port());
  client.send(get("/rdm/echo"));
  EXPECT_EQ(client.receive().body.substr(0, 20), "client ip=127.0.0.1\n");
}

}  // namespace
