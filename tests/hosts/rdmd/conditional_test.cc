// SPDX-License-Identifier: MIT
/// Validators of prepared answers, and clients that ask whether they still have the current one.

#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <regex>
#include <string>

#include "hosts/rdmd/server_fixture.h"
#include "support/gunzip.h"

using namespace rdm;

namespace {

using support::accept_gzip;
using support::HttpClient;
using support::HttpResponse;

constexpr char then[] = "Sun, 06 Nov 1994 08:49:37 GMT";

class HostConditions : public support::ServerTest {
 protected:
  void SetUp() override { prepare(pattern(5'000)); }

  /// prepare replaces the prepared file by a new one with an old time.
  void prepare(const std::string &content) {
    const std::string path = directory_.write("new", content);
    const struct timespec times[] = {{784111777, 5}, {784111777, 5}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    file_ = directory_.path("file");
    ASSERT_EQ(::rename(path.c_str(), file_.c_str()), 0);
  }

  HttpResponse ask(const std::string &fields = "") const {
    HttpClient client(port_);
    client.send(get("/rdm/shared-file?" + file_, fields));
    return client.receive();
  }
  /// ask_again asks with a condition; no body may follow the head of a 304.
  HttpResponse ask_again(const std::string &fields) const {
    HttpClient client(port_);
    client.send(get("/rdm/shared-file?" + file_, fields) + get("/rdm/fast", "Connection: close\r\n"));
    HttpResponse response = client.receive(true);
    if (response.status == 304) {
      EXPECT_EQ(client.receive().body, "fast\n") << fields;
      EXPECT_TRUE(client.ended()) << fields;
    }
    return response;
  }

  std::string file_;
};

TEST_F(HostConditions, APreparedAnswerIsSentOnce) {
  start();
  for (const std::string coding : {"", accept_gzip}) {
    const HttpResponse first = ask(coding);
    const std::string tag = first.field("etag");
    EXPECT_FALSE(tag.empty());
    EXPECT_EQ(first.field("last-modified"), then);
    for (const std::string &condition : {"If-None-Match: " + tag, "If-None-Match: \"x\"\r\nIf-None-Match: W/" + tag,
                                         std::string("If-None-Match: *"), std::string("If-Modified-Since: ") + then}) {
      const HttpResponse again = ask_again(coding + condition + "\r\n");
      EXPECT_EQ(again.status, 304) << condition;
      EXPECT_EQ(std::regex_replace(again.head, std::regex("(Date|X-Request-Id): [^\r]*\r\n"), ""),
                "HTTP/1.1 304 Not Modified\r\nServer: " + again.field("server") +
                    "\r\nVary: Accept-Encoding\r\nETag: " + tag + "\r\nLast-Modified: " + then + "\r\n\r\n")
          << condition;
      EXPECT_NE(again.field("date"), "") << condition;
    }
  }
}

TEST_F(HostConditions, TheCompressedFormHasATagOfItsOwn) {
  start();
  const HttpResponse plain = ask(), compressed = ask(accept_gzip);
  EXPECT_NE(plain.field("etag"), compressed.field("etag"));
  EXPECT_EQ(support::gunzip(compressed.body), plain.body);
  EXPECT_EQ(ask_again("If-None-Match: " + compressed.field("etag") + "\r\n").status, 200);
}

TEST_F(HostConditions, AReplacedFileIsSentWhateverItsTimeIs) {
  start();
  const std::string tag = ask().field("etag");
  prepare(pattern(5'000));
  EXPECT_EQ(ask_again("If-None-Match: " + tag + "\r\n").status, 200);
  EXPECT_EQ(ask_again("If-None-Match: " + tag + "\r\nIf-Modified-Since: " + then + "\r\n").status, 200);
  EXPECT_EQ(ask_again("If-None-Match: " + ask().field("etag") + "\r\n").status, 304);
}

TEST_F(HostConditions, ThePluginAndTheLogsSeeTheWholeExchange) {
  start();
  const HttpResponse again = ask_again("If-None-Match: *\r\n");
  EXPECT_EQ(again.status, 304);
  EXPECT_NE(await_access(2).find(" HTTP/1.1\" 304 - "), std::string::npos) << access();
  EXPECT_TRUE(called("service /rdm/shared-file"));
  EXPECT_TRUE(called("log /rdm/shared-file"));
}

TEST_F(HostConditions, OtherAnswersAndMethodsKnowNoConditions) {
  start();
  const std::string any = "If-None-Match: *\r\nIf-Modified-Since: Fri, 31 Dec 9999 23:59:59 GMT\r\n";
  HttpClient client(port_);
  client.send(post("/rdm/shared-file?" + file_, "", any) + get("/rdm/big?5000", any) + get("/nowhere", any) +
              "HEAD /rdm/shared-file?" + file_ + " HTTP/1.1\r\nHost: h\r\n" + any + "\r\n");
  const HttpResponse posted = client.receive();
  EXPECT_EQ(posted.body, pattern(5'000));
  EXPECT_EQ(posted.fields.count("etag"), 0U);
  const HttpResponse made = client.receive();
  EXPECT_EQ(made.body, pattern(5'000));
  EXPECT_EQ(made.fields.count("etag") + made.fields.count("last-modified"), 0U);
  EXPECT_EQ(client.receive().status, 404);
  EXPECT_EQ(client.receive(true).status, 200);
}

TEST_F(HostConditions, AFileThatMayStillChangeHasNoValidators) {
  start();
  const std::time_t soon = std::time(nullptr) + 3600;
  const struct timespec times[] = {{soon, 0}, {soon, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
  EXPECT_EQ(ask().fields.count("etag"), 0U);
  EXPECT_EQ(ask_again("If-None-Match: *\r\n").status, 200);
}

}  // namespace
