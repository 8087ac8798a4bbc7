// SPDX-License-Identifier: MIT
#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "support/files.h"
#include "tools/rdm/error.h"
#include "tools/rdm/message.h"
#include "tools/rdm/scripted_server.h"
#include "tools/rdm/server.h"

using namespace rdm;
using namespace rdm::client;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

const std::string three = text_of({"x:1", 1000}) + text_of({"x:2", 2000}) + text_of({"x:3", 3000});
const std::string whole = header("rd-response") + three;

Ran harvest_from(const std::string &answer) {
  ScriptedServer server([&](const std::string &) { return answer; });
  Options options = options_for(server);
  options.retries = 1;
  return run_verb(harvest, options);
}

std::string plain(const std::string &body, const std::string &fields) {
  return "HTTP/1.1 200 OK\r\nConnection: close\r\n" + fields + "\r\n" + body;
}

/// many returns so many descriptions, a second apart.
std::vector<Description> many(int count) {
  std::vector<Description> all;
  for (int i = 0; i < count; ++i) all.push_back({"x:" + std::to_string(i), 1000 + i});
  return all;
}

std::string texts_of(const std::vector<Description> &descriptions) {
  std::string text;
  for (const Description &one : descriptions) text += text_of(one);
  return text;
}

}  // namespace

TEST(Message, RequestForDescriptionsIsAHeaderAnEmptyLineAndAQuery) {
  EXPECT_EQ(message_of({"rd-request", "x-catalog://h:1/n", Query{1420070400, {"title", "author"}, 5}}),
            "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{10}:\trd-request\nrdm-query-language{8}:\tgatherer\n"
            "catalog-service-id{17}:\tx-catalog://h:1/n\n}\n\n"
            "@RDMQUERY { -\nscope{35}:\tsince Thu, 01 Jan 2015 00:00:00 GMT\nview-attributes{12}:\ttitle,author\n"
            "view-hits{1}:\t5\n}\n");
  EXPECT_EQ(message_of({"status-request", ""}),
            "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{14}:\tstatus-request\n}\n\n\n");
}

TEST(Message, HeaderThatServersWouldCutIsRefused) {
  EXPECT_THROW(message_of({"status-request", std::string(1000, 'x')}), catalog::Failure);
}

TEST(Answers, SoundAnswerIsPassedOnByteForByte) {
  const Ran ran = harvest_from(http(whole));
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, three);
  EXPECT_EQ(ran.errors, "rdm: 3 descriptions, " + std::to_string(three.size()) + " bytes\n");
}

TEST(Answers, CatalogWithoutDescriptionsIsNoError) {
  const Ran ran = harvest_from(http(header("rd-response", "0 results.")));
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, "");
}

TEST(Answers, ChunkedAnswerIsAccepted) {
  char size[32];
  std::snprintf(size, sizeof size, "%zx\r\n", whole.size());
  const std::string fields = "Content-Type: application/x-rdm; q=1\r\nTransfer-Encoding: chunked\r\n";
  EXPECT_EQ(harvest_from(plain(size + whole + "\r\n0\r\n\r\n", fields)).out, three);
  EXPECT_EQ(harvest_from(plain(size + whole + "\r\n", fields)).status, exit_distrust);
}

TEST(Answers, WhatCannotBeTrustedIsRefusedWithItsReason) {
  const std::string rdm = "Content-Type: application/x-rdm\r\n";
  const auto framed = [](const std::string &body) { return "Content-Length: " + std::to_string(body.size()) + "\r\n"; };
  struct Row {
    std::string answer, reason;
  };
  const Row rows[] = {
      {plain(whole, framed(whole) + "Content-Type: text/html\r\n"), "type \"text/html\" instead of application/x-rdm"},
      {plain(whole, framed(whole)), "type \"\" instead of application/x-rdm"},
      {plain(whole, rdm), "the answer does not say how long it is"},
      {plain(whole, framed(whole) + "Content-Length: 3\r\n" + rdm), "rdm: "},
      {http(whole, "Content-Encoding: gzip\r\n"), "encoded as \"gzip\""},
      {http(header("schema-description-response")), "type \"schema-description-response\" instead of rd-response"},
      {http(header("status-response")), "the server answers with its status instead of rd-response"},
      {http(header("rd-response", "0 results.") + three), "\"0 results.\" and descriptions follow"},
      {http(three), "does not begin with an RDM header"},
      {http("x" + whole), "does not begin with an RDM header"},
      {http(""), "does not begin with an RDM header"},
      {http("@RDMHEADER { -\n" + attribute("rdm-version", "2.0") + "}\n\n"), "not of RDM version 1.0"},
      {http(whole, "", "404 Not Found"), "HTTP status 404"},
      {http("", "Location: /elsewhere\r\n", "301 Moved"),
       "HTTP status 301: moved to /elsewhere (redirections are not followed)"},
      {"HTTP/1.1 302 Found\r\nConnection: close\r\nLocation: http://h/rdm\r\n\r\n",
       "HTTP status 302: moved to http://h/rdm (redirections are not followed)"},
      {"HTTP/1.1 304 Not Modified\r\nConnection: close\r\n\r\n", "HTTP status 304 (redirections are not followed)"},
      {http("", "", "500 Internal Server Error"), "HTTP status 500"},
      {http(whole + "garbage"), "ends with bytes that belong to no object"},
      {http(whole + "garbage" + three), "object 4 of the answer is damaged"},
      {http(whole + "@FILE { x:4\ntitle{9}:\tshort\n}\n"), "object 4 of the answer is damaged"},
      {http(whole + "@FILE { x:4\ntitle{268435456}:\tx\n}\n"), "object 4 of the answer is damaged"},
      {http(whole + "@FILE { x:4\ntitle{5}:\tshort\n"), "object 4 of the answer is damaged"},
      {"", "rdm: "},
      {"no HTTP at all\r\n\r\n", "rdm: "},
  };
  for (const Row &row : rows) {
    const Ran ran = harvest_from(row.answer);
    EXPECT_EQ(ran.status, exit_distrust) << row.answer;
    EXPECT_EQ(ran.out, "") << row.answer;
    EXPECT_THAT(ran.errors, HasSubstr(row.reason)) << row.answer;
  }
}

TEST(Answers, RefusalQuotesTheServerAndIsNotRepeated) {
  int asked = 0;
  ScriptedServer server([&](const std::string &) {
    ++asked;
    return http(header("status-response", "Unknown CSID: no\n") + "\n\nUnknown CSID: no\n\n\n");
  });
  const Ran ran = run_verb(harvest, options_for(server));
  EXPECT_EQ(ran.status, 2);
  EXPECT_EQ(ran.errors, "rdm: " + server.url() + " refuses: Unknown CSID: no\n");
  EXPECT_EQ(asked, 1);
}

TEST(Answers, ControlCharactersOfAServerAreEscaped) {
  const std::string hostile = "\x1b[2J\nOnline.";
  ScriptedServer server([&](const std::string &) { return http(header("status-response") + "\n\n" + hostile + "\n"); });
  EXPECT_EQ(run_verb(status, options_for(server)).out, "\\x1b[2J\\nOnline.\n");
  const Ran refused = harvest_from(http(header("status-response", hostile)));
  EXPECT_THAT(refused.errors, HasSubstr("refuses: "));
  const Ran distrusted = harvest_from(http(header(hostile)));
  EXPECT_THAT(distrusted.errors, HasSubstr("type \"\\x1b[2J\\nOnline.\""));
}

TEST(Answers, RefusalWithHttpStatus403IsQuoted) {
  const Ran ran = harvest_from(http(header("status-response", "Scope parameter malformed."), "", "403 Forbidden"));
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.errors, HasSubstr("refuses: Scope parameter malformed."));
}

TEST(Retries, BusyServerIsAskedAgainNotBeforeItWishes) {
  int asked = 0;
  ScriptedServer server([&](const std::string &) {
    return ++asked < 3 ? http("", "Retry-After: 7\r\n", "503 Service Unavailable") : http(whole);
  });
  const Ran ran = run_verb(harvest, options_for(server));
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, three);
  EXPECT_THAT(ran.pauses, ElementsAre(7, 7));
  EXPECT_THAT(ran.errors, StartsWith("rdm: HTTP status 503: trying again in 7 s\n"));
}

TEST(Retries, WishForTooLongAPauseEndsTheAttempts) {
  const Ran ran = harvest_from(http("", "Retry-After: 86400\r\n", "503 Service Unavailable"));
  EXPECT_EQ(ran.status, exit_distrust);
  EXPECT_THAT(ran.pauses, ElementsAre());
  EXPECT_THAT(ran.errors, HasSubstr("the server asks to come again in 86400 seconds"));
}

TEST(Retries, PausesDoubleWithJitterUpToAMinute) {
  Patience patience(20, 1);
  double longest = 1;
  for (int i = 0; i < 20; ++i) {
    const double pause = patience.pause("fault", std::nullopt);
    EXPECT_GE(pause, longest / 2);
    EXPECT_LE(pause, longest + 1e-6);
    longest = std::min(2 * longest, 60.0);
  }
  EXPECT_THROW(patience.pause("fault", std::nullopt), Distrust);
}

TEST(Retries, SilentServerIsGivenUpAfterTheTimeout) {
  const std::string head = "HTTP/1.1 200 OK\r\nContent-Type: application/x-rdm\r\nContent-Length: 900\r\n";
  for (const std::string &part : {std::string(), head, head + "\r\n" + header("status-response")}) {
    ScriptedServer server([&](const std::string &) { return part; }, true);
    Options options = options_for(server);
    options.retries = 0;
    options.timeout = 1;
    const Ran ran = run_verb(status, options);
    EXPECT_EQ(ran.status, exit_distrust) << part;
    EXPECT_THAT(ran.errors, HasSubstr("the server is silent")) << part;
  }
}

TEST(Retries, UnreachableServerIsAskedAsOftenAsTheOptionsSay) {
  const support::ReservedPort reserved;
  Options options;
  options.url = "http://" + reserved.address() + "/rdm";
  options.retries = 3;
  const Ran ran = run_verb(status, options);
  EXPECT_EQ(ran.status, exit_distrust);
  EXPECT_EQ(ran.pauses.size(), 3u);
}

TEST(Resuming, RestOfACutAnswerIsAskedForFromTheNewestTimeHeld) {
  const CatalogScript catalog(many(100));
  int asked = 0;
  ScriptedServer server([&](const std::string &message) {
    std::string answer = catalog(message);
    if (++asked <= 2) answer.resize(answer.size() / 2);
    return answer;
  });
  const Ran ran = run_verb(harvest, options_for(server));
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, texts_of(catalog.descriptions));
  ASSERT_EQ(server.messages().size(), 3u);
  EXPECT_THAT(server.messages()[0], HasSubstr("scope{3}:\tall\n"));
  EXPECT_THAT(server.messages()[1], HasSubstr("\tsince Thu, 01 Jan 1970 00:1"));
  EXPECT_GT(server.messages()[2], server.messages()[1]);
}

TEST(Resuming, AnswersCutAnywhereLoseNothing) {
  const CatalogScript catalog(many(40));
  const std::string answer = catalog("\nscope{3}:\tall\n");
  for (size_t cut = 0; cut < answer.size(); cut += cut < 130 ? 3 : 41) {
    int asked = 0;
    ScriptedServer server(
        [&](const std::string &message) { return ++asked == 1 ? catalog(message).substr(0, cut) : catalog(message); });
    const Ran ran = run_verb(harvest, options_for(server));
    ASSERT_EQ(ran.status, 0) << cut << ran.errors;
    ASSERT_EQ(ran.out, texts_of(catalog.descriptions)) << cut;
  }
}

TEST(Resuming, RestThatDoesNotFollowIsNotAccepted) {
  // Between the attempts all that was received last has changed: its place in the order is unknown.
  CatalogScript catalog(many(40));
  int asked = 0;
  ScriptedServer server([&](const std::string &message) {
    std::string answer = catalog(message);
    if (++asked > 1) return answer;
    answer.resize(answer.size() / 2);
    for (int i = 1; i < 30; ++i) catalog.descriptions[static_cast<size_t>(i)].title = "changed";
    return answer;
  });
  const Ran ran = run_verb(harvest, options_for(server));
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(asked, 3);
  EXPECT_THAT(server.messages()[2], HasSubstr("scope{3}:\tall\n"));
  for (const Description &one : catalog.descriptions) EXPECT_THAT(ran.out, HasSubstr(text_of(one)));
}

TEST(Resuming, UnsortedAnswerIsAskedForAsAWholeAgain) {
  std::vector<Description> unsorted = many(60);
  std::reverse(unsorted.begin(), unsorted.end());
  const std::string answer = http(header("rd-response") + texts_of(unsorted));
  int asked = 0;
  ScriptedServer server([&](const std::string &) { return ++asked == 1 ? answer.substr(0, 3000) : answer; });
  const Ran ran = run_verb(harvest, options_for(server));
  EXPECT_EQ(ran.out, texts_of(unsorted));
  EXPECT_THAT(server.messages()[1], HasSubstr("scope{3}:\tall\n"));
}
