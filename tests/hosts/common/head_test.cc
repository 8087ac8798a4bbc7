// SPDX-License-Identifier: MIT
#include "hosts/common/head.h"

#include <string>
#include <utility>
#include <vector>

#include "qxapi/guard.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using hosts::freeze_head;
using hosts::Head;
using hosts::render_head;

class ResponseHead : public support::HostTest {
 protected:
  void add(const std::string &name, const std::string &value) {
    host_param_add(name.c_str(), value.c_str(), response_.get());
  }
  Head freeze(int status = 200, const std::string &reason = "") { return freeze_head(status, reason, *response_); }
  std::string fields(const Head &head) {
    std::string text;
    for (const hosts::Field &field : head.fields) text += field.name + "=" + field.value + ";";
    return text;
  }
  void TearDown() override {
    response_.reset();
    HostTest::TearDown();
  }

  PblockPtr response_{host_param_create(7)};
};

constexpr std::time_t moment = 1'794'800'467;  // 2026-11-16 03:41:07 UTC

TEST_F(ResponseHead, IsRenderedFieldByField) {
  add("content-type", "application/x-rdm");
  add("content-length", "42");
  EXPECT_EQ(render_head(freeze(), {"rdmd/1", moment, "close"}),
            "HTTP/1.1 200 OK\r\n"
            "Date: Mon, 16 Nov 2026 03:41:07 GMT\r\n"
            "Server: rdmd/1\r\n"
            "content-type: application/x-rdm\r\n"
            "content-length: 42\r\n"
            "Connection: close\r\n"
            "\r\n");
}

TEST_F(ResponseHead, OmitsAnEmptyConnectionField) {
  EXPECT_EQ(render_head(freeze(), {"rdmd/1", moment, ""}),
            "HTTP/1.1 200 OK\r\nDate: Mon, 16 Nov 2026 03:41:07 GMT\r\nServer: rdmd/1\r\n\r\n");
}

TEST_F(ResponseHead, TheRequestIdIsTheHostsOwn) {
  add("x-request-id", "of the plug-in");
  add("X-REQUEST-ID", "of the plug-in");
  EXPECT_EQ(render_head(freeze(), {"s", moment, "", "0123abc"}),
            "HTTP/1.1 200 OK\r\nDate: Mon, 16 Nov 2026 03:41:07 GMT\r\nServer: s\r\nX-Request-Id: 0123abc\r\n\r\n");
}

TEST_F(ResponseHead, KeepsThePluginsFieldsAsGivenAndInOrder) {
  add("X-Second", "b");
  add("x-first", "a");
  add("X-Second", "c");
  EXPECT_EQ(fields(freeze()), "X-Second=b;x-first=a;X-Second=c;");
}

TEST_F(ResponseHead, TakesTheReasonThatWasSet) {
  const Head head = freeze(403, "Invalid RDM RD-Request message -- Bad scope.\n");
  EXPECT_EQ(render_head(head, {"rdmd/1", moment, ""}).substr(0, 60),
            "HTTP/1.1 403 Invalid RDM RD-Request message -- Bad scope.\r\nD");
}

TEST_F(ResponseHead, UsesTheStandardReasonByDefault) {
  const std::pair<int, const char *> cases[] = {{200, "OK"},
                                                {204, "No Content"},
                                                {301, "Moved Permanently"},
                                                {302, "Found"},
                                                {304, "Not Modified"},
                                                {400, "Bad Request"},
                                                {401, "Unauthorized"},
                                                {403, "Forbidden"},
                                                {404, "Not Found"},
                                                {405, "Method Not Allowed"},
                                                {408, "Request Timeout"},
                                                {411, "Length Required"},
                                                {413, "Content Too Large"},
                                                {414, "URI Too Long"},
                                                {417, "Expectation Failed"},
                                                {431, "Request Header Fields Too Large"},
                                                {500, "Internal Server Error"},
                                                {501, "Not Implemented"},
                                                {503, "Service Unavailable"},
                                                {299, "Unknown"}};
  for (const auto &[status, reason] : cases)
    EXPECT_EQ(render_head(freeze(status), {"s", moment, ""}).substr(0, 13 + std::string(reason).size() + 2),
              "HTTP/1.1 " + std::to_string(status) + " " + reason + "\r\n");
}

TEST_F(ResponseHead, AnInvalidStatusBecomesAServerError) {
  for (const int status : {-1, 0, 99, 100, 199, 600, 99999}) {
    const Head head = freeze(status, "odd");
    EXPECT_EQ(head.status, 500) << status;
    EXPECT_EQ(head.reason, "") << status;
  }
}

TEST_F(ResponseHead, NoValueStartsALineOfItsOwn) {
  add("x-a", "one\r\nx-injected: yes");
  add("x-b", "two\nthree\rfour");
  add("x-c", std::string("tab\there\x7f and\x01 more"));
  add("x-d", "\r\n ");
  EXPECT_EQ(fields(freeze()), "x-a=one  x-injected: yes;x-b=two three four;x-c=tab here  and  more;x-d=;");
}

TEST_F(ResponseHead, ValuesKeepTheirBytesBeyondAscii) {
  add("x", "caf\xc3\xa9 \x80\xff");
  EXPECT_EQ(fields(freeze()), "x=caf\xc3\xa9 \x80\xff;");
}

TEST_F(ResponseHead, NoReasonStartsALineOfItsOwn) {
  EXPECT_EQ(freeze(403, "No\r\nSet-Cookie: a=b\r\n\r\nbody").reason, "No  Set-Cookie: a=b    body");
}

TEST_F(ResponseHead, ANameThatIsNoTokenIsDropped) {
  for (const char *name : {"", "x bad", "x-bad\r\nx", "x:y", "x\ty", "\xc3\xa9"}) add(name, "value");
  add("x-good", "value");
  EXPECT_EQ(fields(freeze()), "x-good=value;");
}

TEST_F(ResponseHead, FieldsOfTheHostAreDropped) {
  for (const char *name : {"Connection", "date", "KEEP-ALIVE", "Server", "Trailer", "Transfer-Encoding", "upgrade"})
    add(name, "value");
  EXPECT_EQ(fields(freeze()), "");
}

TEST_F(ResponseHead, DeclaresTheContentLength) {
  const struct {
    std::vector<std::string> values;
    std::optional<std::int64_t> length;
    const char *fields;
  } cases[] = {
      {{}, std::nullopt, ""},
      {{"0"}, 0, "content-length=0;"},
      {{"12"}, 12, "content-length=12;"},
      {{" 12 "}, 12, "content-length=12;"},
      {{"12", "13"}, 12, "content-length=12;"},
      {{""}, std::nullopt, ""},
      {{"-1"}, std::nullopt, ""},
      {{"+1"}, std::nullopt, ""},
      {{"1x"}, std::nullopt, ""},
      {{"99999999999999999999"}, std::nullopt, ""},
      {{"x", "7"}, 7, "content-length=7;"},
  };
  for (const auto &row : cases) {
    response_.reset(host_param_create(7));
    for (const std::string &value : row.values) add("content-length", value);
    const Head head = freeze();
    EXPECT_EQ(head.length, row.length) << ::testing::PrintToString(row.values);
    EXPECT_EQ(fields(head), row.fields) << ::testing::PrintToString(row.values);
  }
}

TEST_F(ResponseHead, SomeStatusesHaveNoBody) {
  for (const int status : {204, 304}) EXPECT_FALSE(hosts::has_body(status)) << status;
  for (const int status : {200, 206, 301, 400, 404, 500}) EXPECT_TRUE(hosts::has_body(status)) << status;
}

TEST_F(ResponseHead, HostAnswersWithABodyDeclarePlainText) {
  EXPECT_EQ(render_head(hosts::text_head(404, 10), {"s", moment, "close"}),
            "HTTP/1.1 404 Not Found\r\nDate: Mon, 16 Nov 2026 03:41:07 GMT\r\nServer: s\r\nContent-Type: text/plain\r\n"
            "Content-Length: 10\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(render_head(hosts::text_head(500, 0), {"s", moment, ""}),
            "HTTP/1.1 500 Internal Server Error\r\nDate: Mon, 16 Nov 2026 03:41:07 GMT\r\nServer: s\r\n"
            "Content-Length: 0\r\n\r\n");
}

TEST_F(ResponseHead, ServiceUnavailableHasRetryAfter) {
  // Regression: harvesters answered 503 retried at once and were answered 503 again.
  const std::string start = "HTTP/1.1 503 Service Unavailable\r\nDate: Mon, 16 Nov 2026 03:41:07 GMT\r\nServer: s\r\n";
  EXPECT_EQ(render_head(hosts::text_head(503, 0), {"s", moment, "close"}),
            start + "Content-Length: 0\r\nRetry-After: 5\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(render_head(freeze(503), {"s", moment, ""}), start + "Retry-After: 5\r\n\r\n");
  add("retry-after", "120");
  EXPECT_EQ(render_head(freeze(503), {"s", moment, ""}), start + "retry-after: 120\r\n\r\n");
}

}  // namespace
