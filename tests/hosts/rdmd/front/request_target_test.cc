// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_target.h"

#include <optional>
#include <string>

#include "support/memory_host.h"

using namespace rdm;

namespace {

using rdmd::parse_target;
using rdmd::RequestHead;

class RequestTarget : public support::HostTest {};

std::string found(const char *name, const pblock *block) {
  const char *value = host_param_find(name, block);
  return value == nullptr ? "(none)" : value;
}

TEST_F(RequestTarget, TakesTargetsApart) {
  const struct {
    const char *target, *path;
    std::optional<std::string> query;
  } cases[] = {
      {"/", "/", std::nullopt},
      {"/rdm/status-request", "/rdm/status-request", std::nullopt},
      {"/rdm/incoming?", "/rdm/incoming", ""},
      {"/rdm/incoming?a=%41&b=c?d", "/rdm/incoming", "a=%41&b=c?d"},
      {"/r%64m/x%20y", "/rdm/x y", std::nullopt},
      {"/rdm%2Fx", "/rdm/x", std::nullopt},
      {"/rdm/%25%3f", "/rdm/%?", std::nullopt},
      {"/rdm/a+b", "/rdm/a+b", std::nullopt},
      {"/rdm/\xc3\xa9%C3%A9", "/rdm/\xc3\xa9\xc3\xa9", std::nullopt},
      {"http://host:80/rdm/x?q", "/rdm/x", "q"},
      {"HTTPS://host/rdm/x", "/rdm/x", std::nullopt},
      {"http://host", "/", std::nullopt},
      {"http://host?q", "/", "q"},
      {"http://[::1]:8380/rdm/x", "/rdm/x", std::nullopt},
      {"*", "*", std::nullopt},
  };
  for (const auto &row : cases) {
    const auto target = parse_target(row.target);
    ASSERT_TRUE(target) << row.target;
    EXPECT_EQ(target->path, row.path) << row.target;
    EXPECT_EQ(target->query, row.query) << row.target;
  }
}

TEST_F(RequestTarget, RefusesMalformedTargets) {
  for (const char *target : {"",
                             "rdm/x",
                             "host:443",
                             "?q",
                             "/%",
                             "/%4",
                             "/%4g",
                             "/%g4",
                             "/%00",
                             "/a%00b",
                             "/%-1",
                             "ftp://host/rdm/x",
                             "http:/rdm/x",
                             "http:///x",
                             "http://",
                             "https://?q",
                             "http://:80/x",
                             "http://a@b/x",
                             "http://h:p/x",
                             "http://h:65536/x",
                             "http://a b/x",
                             "/x#y",
                             "/x?q#y",
                             "/#",
                             "#",
                             "http://h#x"})
    EXPECT_FALSE(parse_target(target)) << target;
}

TEST_F(RequestTarget, KnowsThePluginsPathsInAnyLetterCase) {
  for (const char *path : {"/rdm/", "/rdm/x", "/RDM/x", "/Rdm/x/y"}) EXPECT_TRUE(rdmd::is_service_path(path)) << path;
  for (const char *path : {"/", "/rdm", "/rdmx/", "//rdm/", "/x/rdm/", "*"})
    EXPECT_FALSE(rdmd::is_service_path(path)) << path;
}

TEST_F(RequestTarget, FillsTheBlocksOfAnExchange) {
  RequestHead head;
  head.method = "POST";
  head.fields = {{"host", "h"}, {"content-length", "5, 5"}, {"x-a", "1, 2"}};
  head.length = 5;
  hosts::Exchange exchange;
  hosts::fill(exchange, rdmd::make_request(head, *parse_target("/rdm/x?"), "192.0.2.7"));
  const Request &request = *exchange.request();
  EXPECT_EQ(found("ip", exchange.session()->client), "192.0.2.7");
  EXPECT_EQ(found("method", request.line), "POST");
  EXPECT_EQ(found("uri", request.line), "/rdm/x");
  EXPECT_EQ(found("query", request.line), "");
  EXPECT_EQ(found("host", request.headers), "h");
  EXPECT_EQ(found("content-length", request.headers), "5");
  EXPECT_EQ(found("x-a", request.headers), "1, 2");
}

TEST_F(RequestTarget, WithoutAQuestionMarkThereIsNoQuery) {
  RequestHead head;
  head.method = "GET";
  hosts::Exchange exchange;
  hosts::fill(exchange, rdmd::make_request(head, *parse_target("/rdm/x"), "::1"));
  EXPECT_EQ(found("query", exchange.request()->line), "(none)");
  EXPECT_EQ(found("content-length", exchange.request()->headers), "(none)");
}

TEST_F(RequestTarget, AnAnnouncedLengthBeyond32BitsStaysLarge) {
  RequestHead head;
  head.method = "POST";
  head.fields = {{"content-length", "4294967301"}};
  head.length = 4294967301u;
  hosts::Exchange exchange;
  hosts::fill(exchange, rdmd::make_request(head, *parse_target("/rdm/x"), "::1"));
  EXPECT_EQ(found("content-length", exchange.request()->headers), "2147483647");
}

TEST_F(RequestTarget, OnlyHeadOmitsTheBody) {
  for (const char *method : {"HEAD", "GET", "head"}) {
    RequestHead head;
    head.method = method;
    hosts::Exchange exchange;
    hosts::fill(exchange, rdmd::make_request(head, *parse_target("/rdm/x"), "::1"));
    exchange.write("body");
    EXPECT_EQ(exchange.queue().size(), std::string(method) == "HEAD" ? 0 : 4) << method;
  }
}

}  // namespace
