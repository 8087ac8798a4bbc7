// SPDX-License-Identifier: MIT
/// Answers of the service that the server compresses.

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

}  // namespace
