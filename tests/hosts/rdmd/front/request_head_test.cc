// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_head.h"

#include <string>
#include <variant>

#include <gtest/gtest.h>

#include "hosts/rdmd/front/refused_requests.h"

using namespace rdm;

namespace {

using rdmd::HeadReader;
using rdmd::HeadResult;
using rdmd::NeedMore;
using rdmd::Refusal;
using rdmd::RequestHead;

constexpr std::size_t head_limit = 1000, target_limit = 200, field_limit = 200;
constexpr rdmd::HeadLimits limits{head_limit, target_limit, field_limit}, long_head{16384, target_limit, field_limit};

HeadResult read_head(std::string &buffer) { return HeadReader(limits).take(buffer); }

RequestHead accepted(std::string text) {
  const HeadResult result = read_head(text);
  EXPECT_TRUE(std::holds_alternative<RequestHead>(result)) << text;
  return std::holds_alternative<RequestHead>(result) ? std::get<RequestHead>(result) : RequestHead{};
}

std::string fields(const RequestHead &head) {
  std::string text;
  for (const auto &field : head.fields) text += field.name + "=" + field.value + ";";
  return text;
}

TEST(RequestHeadReader, TakesARequestApart) {
  const std::string line = "POST /rdm/rd-request?a=b HTTP/1.1";
  const RequestHead head = accepted(line + "\r\nHost: example\r\nContent-Length: 12\r\nX-Two:  a b \r\n\r\n");
  EXPECT_EQ(head.line, line);
  EXPECT_EQ(head.method, "POST");
  EXPECT_EQ(head.target, "/rdm/rd-request?a=b");
  EXPECT_TRUE(head.http11);
  EXPECT_EQ(fields(head), "host=example;content-length=12;x-two=a b;");
  EXPECT_EQ(head.length, 12u);
  EXPECT_TRUE(head.keep_alive);
  EXPECT_FALSE(head.expects_continue);
  EXPECT_EQ(head.field("host"), "example");
  EXPECT_EQ(head.field("none"), "");
}

TEST(RequestHeadReader, JoinsRepeatedFieldsInThePlaceOfTheFirst) {
  const RequestHead head = accepted("GET / HTTP/1.1\r\nX-A: 1\r\nHost: h\r\nx-a: 2\r\nX-A:\r\n\r\n");
  EXPECT_EQ(fields(head), "x-a=1, 2, ;host=h;");
}

TEST(RequestHeadReader, LeavesTheBytesAfterTheHead) {
  std::string buffer = "GET / HTTP/1.1\r\nHost: h\r\n\r\nGET /next";
  EXPECT_TRUE(std::holds_alternative<RequestHead>(read_head(buffer)));
  EXPECT_EQ(buffer, "GET /next");
}

TEST(RequestHeadReader, TakesAHeadThatArrivesByteByByte) {
  const std::string text = "\r\n\r\nGET /rdm/x HTTP/1.1\r\nHost: h\r\nX-Y: z\r\n\r\n";
  HeadReader reader(limits);
  std::string buffer;
  for (std::size_t i = 0; i < text.size(); ++i) {
    buffer.push_back(text[i]);
    const HeadResult result = reader.take(buffer);
    ASSERT_EQ(std::holds_alternative<NeedMore>(result), i + 1 < text.size()) << i;
    if (i + 1 < text.size()) continue;
    EXPECT_EQ(std::get<RequestHead>(result).target, "/rdm/x");
    EXPECT_EQ(fields(std::get<RequestHead>(result)), "host=h;x-y=z;");
  }
  EXPECT_EQ(buffer, "");
}

/// Regression: a head with two mistakes was refused for the later one if it arrived at once, and for the earlier one if
/// it arrived in pieces.
TEST(RequestHeadReader, RefusesForTheFirstMistakeHoweverTheHeadArrives) {
  const std::string line = "GET / HTTP/1.1\r\n", too_long = "X: " + std::string(head_limit, 'x') + "\r\n";
  std::string many;
  for (int i = 0; i < 300; ++i) many += "A:\r\n";
  const std::pair<std::string, int> rows[] = {
      {"GET /" + std::string(target_limit + 50, 'x') + "\n", 414},
      {"GET /" + std::string(target_limit - 50, 'x') + "\n", 400},
      {"G(T /" + std::string(target_limit + 50, 'x') + "\n", 400},
      {line + too_long + "X: bare\n", 431},
      {line + "X: bare\n" + too_long, 400},
      {line + too_long + many, 431},
  };
  for (const auto &[text, status] : rows)
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, text.size()}) {
      HeadReader reader(limits);
      std::string buffer;
      HeadResult result = NeedMore{};
      for (std::size_t at = 0; at < text.size() && std::holds_alternative<NeedMore>(result); at += piece) {
        buffer += text.substr(at, piece);
        result = reader.take(buffer);
      }
      ASSERT_TRUE(std::holds_alternative<Refusal>(result)) << text << piece;
      EXPECT_EQ(std::get<Refusal>(result).status, status) << text << piece;
    }
}

TEST(RequestHeadReader, KnowsWhichConnectionsPersist) {
  const struct {
    const char *version, *field;
    bool keep_alive;
  } cases[] = {
      {"HTTP/1.1", "", true},
      {"HTTP/1.1", "Connection: close\r\n", false},
      {"HTTP/1.1", "Connection: Keep-Alive\r\n", true},
      {"HTTP/1.1", "Connection: foo, CLOSE\r\n", false},
      {"HTTP/1.0", "", false},
      {"HTTP/1.0", "Connection: keep-alive\r\n", true},
      {"HTTP/1.0", "Connection: close\r\n", false},
  };
  for (const auto &row : cases) {
    const RequestHead head = accepted(std::string("GET / ") + row.version + "\r\nHost: h\r\n" + row.field + "\r\n");
    EXPECT_EQ(head.keep_alive, row.keep_alive) << row.version << ' ' << row.field;
  }
}

TEST(RequestHeadReader, RecognisesExpectContinueOnlyInHttp11) {
  EXPECT_TRUE(accepted("POST / HTTP/1.1\r\nHost: h\r\nExpect: 100-Continue\r\n\r\n").expects_continue);
  EXPECT_FALSE(accepted("POST / HTTP/1.0\r\nExpect: 100-continue\r\n\r\n").expects_continue);
  EXPECT_FALSE(accepted("POST / HTTP/1.0\r\nExpect: something\r\n\r\n").expects_continue);
}

TEST(RequestHeadReader, AcceptsOneLengthWrittenTwice) {
  EXPECT_EQ(accepted("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\nContent-Length: 5\r\n\r\n").length, 5u);
}

TEST(RequestHeadReader, AcceptsLengthsOf64Bits) {
  EXPECT_EQ(accepted("POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 18446744073709551615\r\n\r\n").length,
            18446744073709551615u);
}

TEST(RequestHeadReader, AcceptsAnHttp10HeadWithoutFields) {
  const RequestHead head = accepted("GET /rdm/x HTTP/1.0\r\n\r\n");
  EXPECT_FALSE(head.http11);
  EXPECT_EQ(fields(head), "");
}

TEST(RequestHeadReader, AcceptsAHeadAndATargetOfExactlyTheLimit) {
  const std::string target = "/" + std::string(target_limit - 1, 'x');
  EXPECT_EQ(accepted("GET " + target + " HTTP/1.1\r\nHost: h\r\n\r\n").target, target);
  const std::string start = "GET / HTTP/1.1\r\nHost: h\r\nX: ", end = "\r\n\r\n";
  const std::string value(head_limit - start.size() - end.size(), 'v');
  EXPECT_EQ(accepted(start + value + end).field("x"), value);
}

std::string head_of_fields(std::size_t count) {
  std::string text = "GET / HTTP/1.1\r\nHost: h\r\n";
  for (std::size_t i = 1; i < count; ++i) text += "X" + std::to_string(i) + ":\r\n";
  return text + "\r\n";
}

// Regression: parsing a head of 16 KB with 2,690 names took 10 ms of an I/O thread.
TEST(RequestHeadReader, CountsItsFields) {
  HeadReader reader(long_head);
  std::string most = head_of_fields(200), refused = head_of_fields(201), repeated = "GET / HTTP/1.0\r\n";
  const HeadResult result = reader.take(most);
  ASSERT_TRUE(std::holds_alternative<RequestHead>(result));
  EXPECT_EQ(std::get<RequestHead>(result).fields.size(), 200u);
  for (int i = 0; i < 201; ++i) repeated += "X:\r\n";
  for (std::string *text : {&refused, &repeated}) {
    const HeadResult refusal = HeadReader(long_head).take(*text);
    ASSERT_TRUE(std::holds_alternative<Refusal>(refusal));
    EXPECT_EQ(std::get<Refusal>(refusal).status, 431);
    EXPECT_EQ(std::get<Refusal>(refusal).text, "The request head has too many fields.\n");
  }
}

TEST(RequestHeadReader, RefusesTooManyFieldsBeforeTheHeadIsComplete) {
  const std::string text = head_of_fields(300);
  HeadReader reader(long_head);
  std::string buffer;
  HeadResult result;
  while (std::holds_alternative<NeedMore>(result)) result = reader.take(buffer.append(text, buffer.size(), 1));
  EXPECT_TRUE(std::holds_alternative<Refusal>(result));
  EXPECT_TRUE(buffer.ends_with("\r\nX200:\r\n")) << buffer;
}

TEST(RequestHeadReader, KnowsAuthorities) {
  for (const char *text : {"h", "example.org", "example.org:8380", "h:", "127.0.0.1:80", "[::1]", "[::1]:80", "a_b-c~d",
                           "%C3%A9.example", "x!$&'()*+,;=y", "[v1.x:y]"})
    EXPECT_TRUE(rdmd::is_authority(text)) << text;
  for (const char *text :
       {"",     ":80", "a/../@b c", "a b",   "a@b", "a/b", "a?b", "a#b",  "h:p",      "h:80:80", "[::1",
        "::1]", "[]",  "[::1]x",    "[a/b]", "%",   "%4",  "%4g", "a\\b", "\xc3\xa9", "\"h\"",   "<h>"})
    EXPECT_FALSE(rdmd::is_authority(text)) << text;
}

// Regression: "Host: a:99999999" was accepted: the value of the port was not checked.
TEST(RequestHeadReader, KnowsPorts) {
  for (const char *text : {"h:0", "h:80", "h:65535", "h:00065535", "[::1]:65535"})
    EXPECT_TRUE(rdmd::is_authority(text)) << text;
  for (const char *text : {"h:65536", "h:99999999", "h:4294967376", "h:18446744073709551696", "[::1]:65536", "h:+80",
                           "h:-1", "h: 80", "h:80 "})
    EXPECT_FALSE(rdmd::is_authority(text)) << text;
}

TEST(RequestHeadReader, AcceptsAnEmptyHost) {
  EXPECT_EQ(fields(accepted("GET / HTTP/1.1\r\nHost:\r\n\r\n")), "host=;");
}

TEST(RequestHeadReader, RefusesMalformedAndAmbiguousRequests) {
  for (const auto &row : support::refused_requests(target_limit, head_limit)) {
    std::string buffer = row.text;
    const HeadResult result = read_head(buffer);
    ASSERT_TRUE(std::holds_alternative<Refusal>(result)) << row.text;
    EXPECT_EQ(std::get<Refusal>(result).status, row.status) << row.text;
    EXPECT_EQ(std::get<Refusal>(result).text, row.answer) << row.text;
    EXPECT_EQ(buffer, row.text) << "a refused buffer stays as it is";
  }
}

}  // namespace
