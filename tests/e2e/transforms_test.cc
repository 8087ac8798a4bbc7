// SPDX-License-Identifier: MIT
/// What the server makes of the answers of the service: compression, and validators of prepared answers.

#include <map>
#include <string>

#include "e2e/service.h"
#include "support/gunzip.h"

using namespace rdm::e2e;
using namespace rdm;

namespace {

using support::gunzip;
using support::HttpClient;
using support::HttpResponse;

class Transforms : public ServiceTest {
 protected:
  HttpResponse ask(const std::string &target, const std::string &fields) const {
    HttpClient client(port_);
    client.send("GET " + target + " HTTP/1.1\r\nHost: h\r\n" + fields + "\r\n");
    return client.receive();
  }
  HttpResponse ask_gzip(const std::string &target) const { return ask(target, "Accept-Encoding: gzip\r\n"); }
};

TEST_F(Transforms, CompressedAnswersHaveTheBytesOfThePlainOnes) {
  start();
  for (const std::string &csid : {rfc, classics})
    for (const std::string target :
         {"schema-description-request?", "taxonomy-description-request?", "rd-request?ql=gatherer&scope=all&",
          "rd-request?ql=gatherer&scope=all&view-hits=3&"}) {
      const std::string path = "/rdm/" + target + "csid=" + csid;
      const HttpResponse plain = get(path), compressed = ask_gzip(path);
      EXPECT_EQ(compressed.field("content-encoding"), "gzip") << path;
      EXPECT_EQ(gunzip(compressed.body), plain.body) << path;
      EXPECT_EQ(plain.field("vary"), "Accept-Encoding") << path;
      EXPECT_EQ(compressed.field("content-type"), plain.field("content-type")) << path;
    }
  const std::string request = rd_request(rfc, attribute("scope", "all"));
  const HttpResponse harvest = post("/rdm/rd-request", request, "Accept-Encoding: gzip\r\n");
  EXPECT_EQ(gunzip(harvest.body), post("/rdm/rd-request", request).body);
  EXPECT_EQ(harvest.field("content-encoding"), "gzip");
  EXPECT_EQ(ask_gzip("/rdm/status-request").fields.count("vary"), 0U) << "a short answer";
}

TEST_F(Transforms, TheTransactionLogCountsTheBytesOfTheService) {
  start();
  const HttpResponse compressed = ask_gzip("/rdm/rd-request?ql=gatherer&scope=all&csid=" + rfc);
  const std::string plain_size = std::to_string(gunzip(compressed.body).size());
  EXPECT_EQ(stop(), 0);
  EXPECT_TRUE(transactions().ends_with(" - " + plain_size + "\n")) << transactions();
  EXPECT_NE(access().find("\" 200 " + std::to_string(compressed.body.size()) + " "), std::string::npos) << access();
}

TEST_F(Transforms, DescriptionsAreSentOnceToAClientThatKeepsThem) {
  start();
  const std::string path = "/rdm/taxonomy-description-request?csid=" + rfc;
  for (const std::string coding : {"", "Accept-Encoding: gzip\r\n"}) {
    const HttpResponse first = ask(path, coding);
    ASSERT_NE(first.field("etag"), "") << first.head;
    for (const std::string &condition :
         {"If-None-Match: " + first.field("etag"), "If-Modified-Since: " + first.field("last-modified")}) {
      HttpClient client(port_);
      client.send("GET " + path + " HTTP/1.1\r\nHost: h\r\n" + coding + condition + "\r\n\r\n" +
                  "GET /rdm/status-request HTTP/1.1\r\nHost: h\r\n\r\n");
      const HttpResponse again = client.receive(true);
      EXPECT_EQ(again.status, 304) << condition;
      EXPECT_EQ(again.field("etag"), first.field("etag")) << condition;
      EXPECT_EQ(client.receive().body, answer_header("status-response") + "\n\nOnline.\n") << condition;
    }
  }
  EXPECT_EQ(stop(), 0);
  const std::string log = transactions();
  std::size_t sent = 0;
  for (std::size_t at = 0; (at = log.find("\"Sent Taxonomy\" - -\n", at)) != std::string::npos; ++at) ++sent;
  EXPECT_EQ(sent, 6U) << log;
}

TEST_F(Transforms, OnlyPreparedAnswersHaveValidators) {
  start();
  const std::string request = request_header("taxonomy-description-request", rfc) + "\n";
  for (const char *target :
       {"status-request", "rd-request?ql=gatherer&scope=all", "schema-description-request?csid=none"})
    EXPECT_EQ(get(std::string("/rdm/") + target).fields.count("etag"), 0U) << target;
  EXPECT_EQ(post("/rdm/incoming", request).fields.count("etag"), 0U);
  EXPECT_EQ(get("/rdm/server-description-request").fields.count("etag"), 1U);
}

}  // namespace
