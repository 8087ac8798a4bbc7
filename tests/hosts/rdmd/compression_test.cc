// SPDX-License-Identifier: MIT
/// Answers that the server compresses for clients that accept it.

#include <regex>
#include <string>
#include <vector>

#include "hosts/rdmd/server_fixture.h"
#include "support/gunzip.h"

using namespace rdm;

namespace {

using support::accept_gzip;
using support::gunzip;
using support::HttpClient;
using support::HttpResponse;

class HostCompression : public support::ServerTest {
 protected:
  HttpResponse ask(const std::string &target, const std::string &fields) const {
    HttpClient client(port_);
    client.send(get(target, fields));
    return client.receive();
  }

  /// without_own_fields returns a head without the fields that differ from answer to answer.
  static std::string without_own_fields(const std::string &head) {
    return std::regex_replace(head, std::regex("(Date|X-Request-Id): [^\r]*\r\n"), "");
  }
};

TEST_F(HostCompression, ACompressedAnswerHasTheBytesOfThePlainOne) {
  start();
  for (const std::size_t size : {1'024, 65'536, 65'537, 5'000'000}) {
    const HttpResponse response = ask("/rdm/big?" + std::to_string(size), accept_gzip);
    EXPECT_EQ(gunzip(response.body), pattern(size));
    EXPECT_LT(response.body.size(), size / 2);
    EXPECT_EQ(without_own_fields(response.head),
              "HTTP/1.1 200 OK\r\nServer: " + response.field("server") +
                  "\r\ncontent-type: text/x-test\r\ncontent-length: " + std::to_string(response.body.size()) +
                  "\r\nVary: Accept-Encoding\r\nContent-Encoding: gzip\r\n\r\n");
  }
}

TEST_F(HostCompression, AFileIsCompressedToo) {
  start();
  const std::string content = pattern(300'000), file = directory_.write("file", content);
  EXPECT_EQ(gunzip(ask("/rdm/shared-file?" + file, accept_gzip).body), content);
  EXPECT_EQ(ask("/rdm/shared-file?" + file, "").body, content);
  EXPECT_EQ(gunzip(ask("/rdm/file?" + file, accept_gzip).body), content) << "which the plug-in has removed";
}

TEST_F(HostCompression, TheConnectionIsKeptAndFurtherAnswersFollow) {
  start();
  HttpClient client(port_);
  client.send(get("/rdm/big?200000", accept_gzip) + get("/rdm/fast", accept_gzip) + get("/rdm/big?200000") +
              post("/rdm/big?3000", "body", accept_gzip));
  EXPECT_EQ(gunzip(client.receive().body), pattern(200'000));
  EXPECT_EQ(client.receive().body, "fast\n");
  EXPECT_EQ(client.receive().body, pattern(200'000));
  EXPECT_EQ(gunzip(client.receive().body), pattern(3'000));
}

TEST_F(HostCompression, ClientsThatDoNotAcceptItGetThePlainAnswer) {
  start();
  const std::vector<std::string> fields = {
      "",
      "Accept-Encoding: identity\r\n",
      "Accept-Encoding: gzip;q=0, *\r\n",
      "Accept-Encoding: gzip;q=0.5\r\nAccept-Encoding: identity\r\n",
  };
  for (const std::string &field : fields) {
    const HttpResponse response = ask("/rdm/big?4000", field);
    EXPECT_EQ(response.body, pattern(4'000)) << field;
    EXPECT_EQ(response.field("vary"), "Accept-Encoding") << field;
    EXPECT_EQ(response.field("content-encoding"), "") << field;
  }
  EXPECT_EQ(gunzip(ask("/rdm/big?4000", "Accept-Encoding: br\r\nAccept-Encoding: gzip\r\n").body), pattern(4'000));
}

TEST_F(HostCompression, ShortAnswersAndAnswersToHeadStayAsThePluginMadeThem) {
  start();
  const HttpResponse brief = ask("/rdm/big?1023", accept_gzip);
  EXPECT_EQ(brief.body, pattern(1'023));
  EXPECT_EQ(brief.fields.count("vary"), 0U);
  HttpClient client(port_);
  client.send("HEAD /rdm/big?4000 HTTP/1.1\r\nHost: h\r\nAccept-Encoding: gzip\r\n\r\n" + get("/rdm/fast"));
  const HttpResponse head = client.receive(true);
  EXPECT_EQ(head.field("content-length"), "4000");
  EXPECT_EQ(head.fields.count("content-encoding"), 0U);
  EXPECT_EQ(client.receive().body, "fast\n");
}

TEST_F(HostCompression, CanBeSwitchedOff) {
  start({"--no-gzip"});
  const HttpResponse response = ask("/rdm/big?4000", accept_gzip);
  EXPECT_EQ(response.body, pattern(4'000));
  EXPECT_EQ(response.fields.count("vary"), 0U);
}

TEST_F(HostCompression, TheAccessLogCountsTheBytesSent) {
  start();
  const std::string size = std::to_string(ask("/rdm/big?100000", accept_gzip).body.size());
  EXPECT_NE(await_access(1).find("\"GET /rdm/big?100000 HTTP/1.1\" 200 " + size + " "), std::string::npos) << access();
}

TEST_F(HostCompression, OnlyTheCompressedFileCountsTowardsTheSpillLimit) {
  start({"--spill-limit", "3M"});
  EXPECT_EQ(ask("/rdm/big?4000000", "").status, 503);
  EXPECT_EQ(gunzip(ask("/rdm/big?4000000", accept_gzip).body), pattern(4'000'000));
  EXPECT_TRUE(support::eventually([this] { return server_->temporary_files() == 0; }));
}

}  // namespace
