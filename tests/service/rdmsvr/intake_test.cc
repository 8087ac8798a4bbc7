// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/csid.h"
#include "service/message.h"
#include "service/support/catalog.h"
#include "service/support/trace.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Exchange;
using support::soif;

constexpr char books[] = "x-catalog://localhost:80/books";

std::string refusal(const std::string &text) {
  return soif("RDMHEADER", "-",
              {{"rdm-version", "1.0"}, {"rdm-type", "status-response"}, {"rdm-error-message", text}}) +
         "\n\n\n\n" + text + "\n\n";
}

constexpr char online[] = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n}\n\n\n\n\nOnline.\n";

std::string header(const std::string &type, const std::string &csid = books) {
  return soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", type}, {"catalog-service-id", csid}});
}

using Headers = std::vector<std::pair<std::string, std::string>>;

class Intake : public support::HostTest {
 protected:
  void SetUp() override { rdm_service_crit = host_crit_create(); }
  void TearDown() override {
    host_free(rdm_service_crit);
    rdm_service_crit = nullptr;
    support::HostTest::TearDown();
  }

  int serve(Exchange &x) {
    host.sent.clear();
    host.reports.clear();
    host.responses_started = 0;
    return rdm_service(nullptr, &x.session, &x.request);
  }

  /// serve sends a request with these request headers.
  int serve(const std::string &method, const std::string &uri, const Headers &headers = {},
            const std::string &body = "") {
    Exchange x(method, uri, body);
    for (const auto &[name, value] : headers) x.header(name, value);
    return serve(x);
  }

  /// post sends a body with its length announced, or another length.
  int post(const std::string &uri, const std::string &body, int announced = -1) {
    const int length = announced < 0 ? static_cast<int>(body.size()) : announced;
    return serve("POST", uri, {{"content-length", std::to_string(length)}}, body);
  }

  int serve_drop_by_drop(const std::string &uri, const std::string &message, size_t failing = std::string::npos);

  int get(const std::string &uri, const char *query = nullptr) {
    Exchange x("GET", uri);
    if (query != nullptr) x.query(query);
    return serve(x);
  }

  /// expect_refused asserts that the answer is a refusal with status 200, and that the error log has a line with the
  /// same text or `report`.
  void expect_refused(const std::string &text, const std::string &what = "") { expect_refused(text, text, what); }
  void expect_refused(const std::string &text, const std::string &report, const std::string &what) {
    EXPECT_EQ(host.sent, refusal(text)) << what;
    EXPECT_EQ(host.status, 200) << what;
    EXPECT_EQ(host.responses_started, 1) << what;
    EXPECT_EQ(host.reports, std::vector<std::string>{"0 rdm-service: " + report}) << what;
  }

  support::TemporaryDirectory directory_;
  support::Registry registry_{directory_, "csid=\"" + std::string(books) + "\"\n", books};
};

TEST_F(Intake, WithoutMethodOrUriAborts) {
  for (const auto &[method, uri] : {std::pair{"", "/rdm/incoming"}, {"POST", ""}, {"", ""}}) {
    EXPECT_EQ(serve(method, uri), HOST_ABORT);
    expect_refused("Internal QXAPI error?");
  }
}

struct MethodRow {
  const char *method;
  bool query;
  const char *refusal;
};

TEST_F(Intake, AcceptsGetAndPostOnly) {
  const MethodRow rows[] = {
      {"POST", true, "Malformed RDM request - Use GET method."},
      {"PUT", true, "Malformed RDM request - Use GET method."},
      {"GETS", true, "Malformed RDM request - Use GET method."},
      {"PUT", false, "Malformed RDM request - Use POST method."},
      {"DELETE", false, "Malformed RDM request - Use POST method."},
      {"HEAD", false, "Malformed RDM request - Use POST method."},
  };
  for (const MethodRow &row : rows) {
    Exchange x(row.method, "/rdm/status-request");
    if (row.query) x.query("type=status-request");
    EXPECT_EQ(serve(x), HOST_DONE);
    expect_refused(row.refusal, row.method);
  }
}

TEST_F(Intake, ComparesMethodsInAnyLetterCase) {
  for (const char *method : {"get", "Get", "GET"}) {
    EXPECT_EQ(serve(method, "/rdm/status-request"), HOST_DONE);
    EXPECT_EQ(host.sent, online) << method;
  }
}

TEST_F(Intake, AnEmptyQueryCountsAsAQuery) {
  Exchange x("POST", "/rdm/status-request");
  x.query("");
  EXPECT_EQ(serve(x), HOST_DONE);
  expect_refused("Malformed RDM request - Use GET method.");
  EXPECT_EQ(get("/rdm/status-request", ""), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, RefusesUrisOutsideItsOwn) {
  for (const char *uri : {"/", "/rdm", "/other/status-request", "rdm/status-request", "//rdm/x"}) {
    EXPECT_EQ(get(uri), HOST_DONE);
    expect_refused("Malformed RDM request - Invalid URI.", uri);
  }
}

TEST_F(Intake, ComparesUrisInAnyLetterCase) {
  for (const char *uri : {"/RDM/status-request", "/rdm/Status-Request"}) {
    EXPECT_EQ(get(uri), HOST_DONE);
    EXPECT_EQ(host.sent, online) << uri;
  }
  EXPECT_EQ(get("/Rdm/InComing", "type=status-request"), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, RefusesAPostWithoutAUsableLength) {
  const char *const lengths[] = {"0", "-5", "", "many", "32769", "99999999999999999999", nullptr};
  for (const char *length : lengths) {
    const Headers headers = length != nullptr ? Headers{{"content-length", length}} : Headers{};
    EXPECT_EQ(serve("POST", "/rdm/status-request", headers, header("status-request") + "\n\n"), HOST_DONE);
    expect_refused("Content-length is undefined or too long.", length != nullptr ? length : "no header");
  }
}

TEST_F(Intake, ReadsTheLengthAsANumber) {
  const std::string message = header("status-request") + "\n\n";
  const std::string length = std::to_string(message.size());
  for (const std::string &text : {"+" + length, " \t" + length, length + "x", length + ".9", "000" + length}) {
    EXPECT_EQ(serve("POST", "/rdm/status-request", {{"content-length", text}}, message), HOST_DONE);
    EXPECT_EQ(host.sent, online) << text;
  }
}

TEST_F(Intake, TakesNoMoreThanTheLengthAnnounced) {
  const std::string message = header("status-request") + "\n" + "\n\nbody\n\n";
  Exchange x("POST", "/rdm/status-request", message + "the next request");
  x.header("content-length", std::to_string(message.size()));
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(x.session.input->position, static_cast<int32_t>(message.size()));
}

TEST_F(Intake, AGetTakesNothingFromTheInput) {
  Exchange x("GET", "/rdm/status-request", "a body");
  x.header("content-length", "6");
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(x.session.input->position, 0);
}

TEST_F(Intake, RefusesAGetThatAnnouncesTooMuchAndIgnoresOtherLengths) {
  EXPECT_EQ(serve("GET", "/rdm/status-request", {{"content-length", "32769"}}), HOST_DONE);
  expect_refused("Content-length is undefined or too long.");
  EXPECT_EQ(serve("GET", "/rdm/status-request", {{"content-length", "32768"}}), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, ReadsTheLongestMessage) {
  std::string message = header("status-request") + "\n";
  message.resize(32768, 'b');
  EXPECT_EQ(post("/rdm/status-request", message), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, RefusesAnyContentEncoding) {
  for (const char *encoding : {"x-gzip", "gzip", "identity"}) {
    EXPECT_EQ(serve("POST", "/rdm/status-request", {{"content-length", "100"}, {"content-encoding", encoding}},
                    header("status-request") + "\n\n"),
              HOST_DONE);
    expect_refused("Unsupported content-encoding.", encoding);
  }
  EXPECT_EQ(serve("GET", "/rdm/status-request", {{"content-encoding", ""}}), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, RefusesAGetWithoutAType) {
  EXPECT_EQ(get("/rdm/incoming", "scope=all"), HOST_DONE);
  expect_refused("Malformed RDM request - GET requires type");
  EXPECT_EQ(get("/rdm/"), HOST_DONE);
  expect_refused("Malformed RDM request - GET requires type");
}

TEST_F(Intake, TakesTheTypeOfAGetFromTheQueryOrElseFromTheUri) {
  for (const char *query : {static_cast<const char *>(nullptr), "scope=all"}) {
    EXPECT_EQ(get("/rdm/status-request", query), HOST_DONE);
    EXPECT_EQ(host.sent, online);
  }
  for (const char *query : {"type=rd-request", "type=status-request&type=status-request", "type="}) {
    EXPECT_EQ(get("/rdm/status-request", query), HOST_DONE);
    expect_refused("Did not receive valid URI for RDM header.", query);
  }
}

TEST_F(Intake, ValuesOfAQueryGoThroughAsTheyAre) {
  const std::pair<const char *, const char *> rows[] = {
      {"csid=a%00b", "a"},     {"csid=a+b%2Bc", "a b+c"},   {"csid=a&csid=b", "a,b"},
      {"csid=a%zz%", "a%zz%"}, {"csid=%FF%80", "\xff\x80"},
  };
  for (const auto &[query, csid] : rows) {
    EXPECT_EQ(get("/rdm/status-request", query), HOST_DONE);
    expect_refused("Unknown CSID: " + std::string(csid) + "\n", query);
  }
}

// Regression: a CSID with a newline started a line of its own in the error log of a host that does not escape.
TEST_F(Intake, NoClientStartsALineOfTheErrorLog) {
  const struct {
    const char *query, *csid, *reported;
  } rows[] = {
      {"csid=a%0D%0Ab", "a\r\nb", "a\\r\\nb"},
      {"csid=a}%0A%0A@X+{+-", "a}\n\n@X { -", "a}\\n\\n@X { -"},
      {"csid=%09%1b[2J%7f%01%0A", "\t\x1b[2J\x7f\x01\n", "\\t\\x1b[2J\\x7f\\x01\\n"},
      {"csid=%22\\n%C3%A9", "\"\\n\xc3\xa9", "\"\\n\xc3\xa9"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(get("/rdm/status-request", row.query), HOST_DONE);
    expect_refused("Unknown CSID: " + std::string(row.csid) + "\n", "Unknown CSID: " + std::string(row.reported) + "\n",
                   row.query);
  }
}

/// Headers print without empty values, so the default catalog is used.
TEST_F(Intake, AnEmptyCatalogOfAQueryMeansTheDefault) {
  EXPECT_EQ(get("/rdm/status-request", "csid="), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(post("/rdm/status-request", header("status-request", "") + "\nbody"), HOST_DONE);
  expect_refused("Unknown CSID: \n", "in a message it is what it says");
}

TEST_F(Intake, AQueryMakesNoLongerHeaderThanAMessageMayHave) {
  EXPECT_EQ(get("/rdm/status-request", ("csid=" + std::string(1023, 'c')).c_str()), HOST_DONE);
  expect_refused("Did not receive valid RDM message header.");
}

TEST_F(Intake, ANulEndsAValueOfAHeader) {
  EXPECT_EQ(post("/rdm/status-request", header("status-request", std::string("a\0b", 3)) + "\nbody"), HOST_DONE);
  expect_refused("Unknown CSID: a\n");
  EXPECT_EQ(post("/rdm/status-request", header("status-request", books + std::string("\0b", 2)) + "\nbody"), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, TheFirstOfEqualRequestHeadersCounts) {
  const std::string message = header("status-request") + "\nbody";
  const Headers headers = {{"content-length", std::to_string(message.size())},
                           {"content-length", "0"},
                           {"content-encoding", ""},
                           {"content-encoding", "x-gzip"}};
  EXPECT_EQ(serve("POST", "/rdm/status-request", headers, message), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, ARequestHeaderThatCannotBeLookedUpIsNotThere) {
  qxapi_host table = support::memory_host();
  table.request_header = [](const char *, char **value, Session *, Request *) {
    static char text[] = "20";
    *value = text;
    return -1;
  };
  qxapi_bind(&table);
  EXPECT_EQ(get("/rdm/status-request"), HOST_DONE);
  EXPECT_EQ(host.sent, online) << "no encoding";
  EXPECT_EQ(serve("POST", "/rdm/status-request", {}, header("status-request") + "\nbody"), HOST_DONE);
  expect_refused("Content-length is undefined or too long.");
}

struct LabelRow {
  const char *uri, *query, *type, *csid;
};

TEST_F(Intake, LeavesTypeAndCatalogForTheHost) {
  const LabelRow rows[] = {
      {"/rdm/status-request", nullptr, "status-request", books},
      {"/RDM/STATUS-REQUEST", nullptr, "status-request", books},
      {"/rdm/incoming", "type=rd-update-request&scope=all", "rd-request", books},
      {"/rdm/server-request", nullptr, "", ""},  // not the printed name of its type
      {"/rdm/server-description-request", nullptr, "server-description-request", books},
      {"/rdm/status-request", "csid=elsewhere", "status-request", ""},
      {"/rdm/status-request", "type=rd-request", "", ""},
      {"/rdm/no-such-type", nullptr, "", ""},
      {"/rdm/", nullptr, "", ""},
  };
  for (const LabelRow &row : rows) {
    Exchange x("GET", row.uri);
    if (row.query != nullptr) x.query(row.query);
    EXPECT_EQ(serve(x), HOST_DONE);
    EXPECT_EQ(x.var("rdm-type"), row.type) << row.uri;
    EXPECT_EQ(x.var("rdm-csid"), row.csid) << row.uri;
  }
}

TEST_F(Intake, ServesARequestWithoutVariables) {
  Exchange x("GET", "/rdm/server-description-request");
  pblock *const variables = std::exchange(x.request.vars, nullptr);
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_NE(host.sent.find("Server description is unavailable."), std::string::npos) << host.sent;
  x.request.vars = variables;
}

TEST_F(Intake, LeavesTheQueryAsItWas) {
  Exchange x("GET", "/rdm/incoming");
  x.query("type=status%2Drequest&a=b+c");
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_STREQ(host_param_find("query", x.request.line), "type=status%2Drequest&a=b+c");
}

TEST_F(Intake, RefusesAHeaderThatDoesNotParse) {
  const std::pair<const char *, std::string> rows[] = {
      {"no object", "hello\n\nbody"},
      {"an empty header", "\n\nbody"},
      {"another template", soif("RDMQUERY", "-", {{"rdm-version", "1.0"}}) + "\nbody"},
      {"no version", soif("RDMHEADER", "-", {{"rdm-type", "status-request"}}) + "\nbody"},
      {"another version", soif("RDMHEADER", "-", {{"rdm-version", "2.0"}}) + "\nbody"},
      {"a header beyond 1023 bytes",
       soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"x", std::string(1500, 'x')}}) + "\nbody"},
  };
  for (const auto &[what, body] : rows) {
    EXPECT_EQ(post("/rdm/status-request", body), HOST_DONE);
    expect_refused("Did not receive valid RDM message header.", what);
  }
}

TEST_F(Intake, RefusesAHeaderCutByItsLength) {
  const std::string message = header("status-request", "x-catalog://localhost:80/" + std::string(300, 'c')) + "\n\n";
  for (size_t length = 1; length <= message.find("\n}\n") + 1; ++length) {
    EXPECT_EQ(post("/rdm/status-request", message, static_cast<int>(length)), HOST_DONE);
    expect_refused("Did not receive valid RDM message header.", std::to_string(length));
  }
}

/// If the announced length ends within the header, its last byte other than white space must be a brace, wherever the
/// object ended. Regression: text after a closed object was skipped, and the message refused for its length.
TEST_F(Intake, AHeaderThatItsLengthEndsMustEndInABrace) {
  const std::string closed = header("status-request");
  const support::Diagnostics diagnostics;
  for (const std::string &rest :
       {std::string("garbage"), std::string("garbage\nin two lines\n"), std::string("}\n."), std::string(3, '\0'),
        std::string("}\0", 2), std::string("}\xa0"), std::string(2000, 'x')}) {
    EXPECT_EQ(post("/rdm/status-request", closed + rest), HOST_DONE);
    expect_refused("Did not receive valid RDM message header.", rest);
  }
  EXPECT_EQ(post("/rdm/status-request", closed, static_cast<int>(closed.size()) + 9), HOST_DONE);
  expect_refused("Did not receive valid RDM message header.", "the input ends early, in bytes of value 0");
  EXPECT_EQ(diagnostics.text(), "") << "the text is not parsed";
}

/// Any brace passes, so such a header reaches the later checks.
TEST_F(Intake, AHeaderThatItsLengthEndsInABraceFollowsTheSteps) {
  const std::string closed = header("status-request"), open = closed.substr(0, closed.size() - 2);
  const std::string type = soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", "rd-request"}});
  const std::pair<std::string, const char *> rows[] = {
      {closed, "Did not receive content-length bytes."},
      {closed + " \t\v\f\r", "Did not receive content-length bytes."},
      {closed + "text {}", "Did not receive content-length bytes."},
      {open + "x{2}:\ta}", "Did not receive content-length bytes."},
      {open + "x{9}:\ta}\n", "Did not receive content-length bytes."},
      {open + "x{70000}:\ta}", "Did not receive valid RDM message header."},
      {open + "x{2}:a}", "Did not receive valid RDM message header."},
      {type, "Did not receive valid URI for RDM header."},
  };
  for (const auto &[message, text] : rows) {
    EXPECT_EQ(post("/rdm/status-request", message), HOST_DONE);
    expect_refused(text, message);
  }
  const std::string message = header("status-request", "a}b");
  EXPECT_EQ(post("/rdm/status-request", message, static_cast<int>(message.find("a}") + 2)), HOST_DONE);
  expect_refused("Unknown CSID: a}\xff\n", "the value is padded");
}

TEST_F(Intake, AHeaderThatUsesUpItsLengthIsReadToTheEndOfInputAndRefused) {
  const std::string message = header("status-request") + "\n";
  for (const std::string &trailer : {std::string(), std::string("more of it")}) {
    EXPECT_EQ(post("/rdm/status-request", message + trailer, static_cast<int>(message.size())), HOST_DONE);
    expect_refused("Did not receive content-length bytes.");
  }
  const std::string unterminated = header("status-request");
  EXPECT_EQ(post("/rdm/status-request", unterminated), HOST_DONE);
  expect_refused("Did not receive content-length bytes.", "closed, but without the empty line");
}

TEST_F(Intake, AnErrorOfTheInputEndsIt) {
  host.fail_input = true;
  EXPECT_EQ(post("/rdm/status-request", header("status-request") + "\n"), HOST_DONE);
  expect_refused("Did not receive content-length bytes.");
}

TEST_F(Intake, ABodyShorterThanAnnouncedIsPadded) {
  EXPECT_EQ(post("/rdm/status-request", header("status-request") + "\nbody", 300), HOST_DONE);
  EXPECT_EQ(host.sent, online) << "a host that has no more yields zeros";
}

/// A host that provides one to three bytes of the input at a time, and an error in place of one byte.
struct Drip {
  std::string input{};
  size_t taken = 0;                    // of the input so far
  size_t failing = std::string::npos;  // the byte that is an error
  std::vector<int> hopes{};            // the bytes that each call asked for
};
Drip drip;

int drip_next(host_input *input, int hope) {
  drip.hopes.push_back(hope);
  if (drip.taken >= drip.input.size()) return 0;
  const size_t at = drip.taken;
  if (at == drip.failing) {
    ++drip.taken;
    return -1;
  }
  // The failing byte is not provided together with those before it.
  const size_t piece = std::min({1 + at % 3, drip.input.size() - at, drip.failing > at ? drip.failing - at : 3});
  input->data = reinterpret_cast<const unsigned char *>(drip.input.data()) + at;
  input->size = static_cast<int32_t>(piece);
  input->position = 1;
  drip.taken += piece;
  return input->data[0];
}

/// serve_drop_by_drop posts a message that arrives in pieces, with an error in place of byte `failing`.
int Intake::serve_drop_by_drop(const std::string &uri, const std::string &message, size_t failing) {
  qxapi_host table = support::memory_host();
  table.input_next = drip_next;
  qxapi_bind(&table);
  drip = Drip{.input = message, .failing = failing};
  Exchange x("POST", uri);
  x.header("content-length", std::to_string(message.size()));
  return serve(x);
}

std::string rd_request(const std::string &query) {
  return soif("RDMHEADER", "-",
              {{"rdm-version", "1.0"},
               {"rdm-type", "rd-request"},
               {"rdm-query-language", "gatherer"},
               {"catalog-service-id", books}}) +
         "\n" + query;
}

TEST_F(Intake, AMessageMayArriveInPieces) {
  const std::string message = rd_request(soif("RDMQUERY", "-", {{"view-hits", "3"}}));
  EXPECT_EQ(serve_drop_by_drop("/rdm/rd-request", message), HOST_DONE);
  EXPECT_EQ(host.sent, soif("RDMHEADER", "-",
                            {{"rdm-version", "1.0"},
                             {"rdm-type", "status-response"},
                             {"rdm-error-message", "Scope parameter required."}}) +
                           "\n\n")
      << "the header and every byte of the query were understood";
  EXPECT_EQ(drip.taken, message.size());
  EXPECT_GT(drip.hopes.size(), message.size() / 3);
  EXPECT_EQ(drip.hopes, std::vector<int>(drip.hopes.size(), 1));
}

TEST_F(Intake, AnErrorWithinTheHeaderIsAByteOfIt) {
  const std::string message = header("status-request", "y?z") + "\nbody";
  EXPECT_EQ(serve_drop_by_drop("/rdm/status-request", message, message.find('?')), HOST_DONE);
  expect_refused("Unknown CSID: y\xffz\n");
}

TEST_F(Intake, AnErrorWithinTheAnnouncedBodyIsAByteOfIt) {
  support::Catalog catalog(directory_);
  catalog.put(1, soif("DOCUMENT", "u", {{"y\xffz", "kept"}, {"yz", "left out"}}));
  catalog.index({{1000, 1}});
  const support::Registry registry(
      directory_, "csid=\"" + std::string(books) + "\" catalog-database=\"" + catalog.path() + "\"\n", books);
  const std::string message = rd_request(soif("RDMQUERY", "-", {{"view-attributes", "y?z"}, {"scope", "all"}}));
  EXPECT_EQ(serve_drop_by_drop("/rdm/rd-request", message, message.find('?')), HOST_DONE);
  EXPECT_EQ(host.sent, soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", "rd-response"}}) + "\n\n" +
                           soif("DOCUMENT", "u", {{"y\xffz", "kept"}}));
}

TEST_F(Intake, CarriageReturnsDoNotBreakTheEmptyLine) {
  std::string message;
  for (const char c : header("status-request")) message += c == '\n' ? std::string("\r\n") : std::string(1, c);
  EXPECT_EQ(post("/rdm/status-request", message + "\r\n" + "body"), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, OnlyCarriageReturnsMayStandWithinTheEmptyLine) {
  const std::pair<const char *, bool> rows[] = {{"\n", true},    {"\r\n", true},  {"\r\r\n", true}, {" \n", false},
                                                {"\t\n", false}, {"\v\n", false}, {"\f\n", false}};
  for (const auto &[line, ends] : rows) {
    EXPECT_EQ(post("/rdm/status-request", header("status-request") + line + "body"), HOST_DONE);
    if (ends)
      EXPECT_EQ(host.sent, online) << line;
    else
      expect_refused("Did not receive valid RDM message header.", line);
  }
}

TEST_F(Intake, CarriageReturnsOfAHeaderBecomeBlanksAndOtherBytesStayAsTheyAre) {
  EXPECT_EQ(post("/rdm/status-request", header("status-request", "a\rb\xff\x80\tc") + "\nbody"), HOST_DONE);
  expect_refused("Unknown CSID: a b\xff\x80\tc\n", "Unknown CSID: a b\xff\x80\\tc\n", "");
}

TEST_F(Intake, TheHeaderEndsAtAnEmptyLineEvenWithinAValue) {
  EXPECT_EQ(post("/rdm/status-request", header("status-request", "a\n\nb") + "\nbody"), HOST_DONE);
  expect_refused("Unknown CSID: a\n\xff\xff\n", "Unknown CSID: a\\n\xff\xff\n", "");
}

/// The whole request is inside the section, and a refusal is answered before it is reported.
TEST_F(Intake, AsksItsHostInOrder) {
  Exchange x("GET", "/rdm/status-request"), y("PUT", "/rdm/status-request");
  const support::Trace trace;
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(serve(y), HOST_DONE);
  EXPECT_EQ(trace.calls(),
            (std::vector<std::string>{
                "enter service", "param_create 7", "set_status 200", "start_response", "net_write 79", "exit service",
                "enter service", "set_status 200", "start_response",
                "net_write " + std::to_string(refusal("Malformed RDM request - Use POST method.").size()),
                "report_error 0 rdm-service: Malformed RDM request - Use POST method.", "exit service"}));
}

/// Before rdm_init there are neither sections nor catalogs.
TEST_F(Intake, WithoutSetUpRefuses) {
  csid_terminate();
  host_free(std::exchange(rdm_service_crit, nullptr));
  EXPECT_EQ(get("/rdm/status-request"), HOST_DONE);
  expect_refused("Unknown CSID: unknown\n");
}

TEST_F(Intake, WithoutTheSectionAnswersTheSame) {
  Exchange x("GET", "/rdm/status-request");
  const support::Trace trace;
  EXPECT_EQ(_real_rdm_service(nullptr, &x.session, &x.request), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(trace.calls(),
            (std::vector<std::string>{"param_create 7", "set_status 200", "start_response", "net_write 79"}));
}

/// The handler's status does not reach the client: every answer has status 200.
TEST_F(Intake, ABadScopeIsReportedBeforeItIsAnswered) {
  Exchange x("GET", "/rdm/rd-request");
  x.query("ql=gatherer&scope=some");
  const support::Trace trace;
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, soif("RDMHEADER", "-",
                            {{"rdm-version", "1.0"},
                             {"rdm-type", "status-response"},
                             {"rdm-error-message", "Scope parameter malformed."}}) +
                           "\n\n");
  EXPECT_EQ(host.status, 200);
  EXPECT_EQ(trace.calls(),
            (std::vector<std::string>{
                "enter service", "param_create 7", "set_status 403 Invalid RDM RD-Request message -- Bad scope.\n",
                "report_error 0 rdm-service: Invalid RDM RD-Request message -- Bad scope.\n", "set_status 200",
                "start_response", "net_write " + std::to_string(host.sent.size()), "exit service"}));
}

TEST_F(Intake, ADescriptionIsOpenedAfterTheHeaderHasGoneOut) {
  const std::string path = directory_.write("server.rdm", "the description\n");
  const support::Registry registry(directory_,
                                   "csid=\"" + std::string(books) + "\" server-description=\"" + path + "\"\n", books);
  Exchange x("GET", "/rdm/server-description-request");
  const support::Trace trace;
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, "the description\n");
  EXPECT_EQ(x.response("content-length"), "16");
  EXPECT_EQ(trace.calls(), (std::vector<std::string>{"enter service", "param_create 7", "set_status 200",
                                                     "start_response", "open_read " + path, "buffer_open 4096",
                                                     "buffer_send", "buffer_close", "exit service"}));
}

/// The buffers of a request may take 32768 bytes of memory with the NUL; with one more they move to a file.
TEST_F(Intake, MessagesBeyondTheMemoryOfTheirBuffersGoThroughFiles) {
  const std::string head = header("status-request") + "\n";
  const struct {
    std::string message;
    int files;
  } rows[] = {{head + std::string(20000, 'b'), 0},
              {std::string(20000, 'h'), 0},
              {head + std::string(32768 - head.size(), 'b'), 0},
              {std::string(32768, 'h'), 1}};
  for (const auto &row : rows) {
    const support::Trace trace;
    EXPECT_EQ(post("/rdm/status-request", row.message), HOST_DONE);
    EXPECT_EQ(std::count(trace.calls().begin(), trace.calls().end(), "open_write"), row.files);
  }
  const support::Trace trace;
  const std::string query = "type=status-request&view-attributes=" + std::string(40000, 'a');
  EXPECT_EQ(get("/rdm/status-request", query.c_str()), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(std::count(trace.calls().begin(), trace.calls().end(), "open_write"), 1) << "the body of a query";
}

/// If the handler has sent its answer, nothing more is sent.
TEST_F(Intake, AnswersThatTheirHandlerSendsGoOutOnce) {
  support::Catalog catalog(directory_);
  const std::string record = soif("DOCUMENT", "u", {{"title", "T"}});
  catalog.put(1, record);
  catalog.index({{1000, 1}});
  const support::Registry registry(
      directory_, "csid=\"" + std::string(books) + "\" catalog-database=\"" + catalog.path() + "\"\n", books);
  const std::string message = rd_request("\n\n\r\n" + soif("RDMQUERY", "-", {{"scope", "all"}}));
  Exchange x("POST", "/rdm/rd-request", message);
  x.header("content-length", std::to_string(message.size()));
  EXPECT_EQ(rdm_type(nullptr, &x.session, &x.request), HOST_DONE);
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", "rd-response"}}) + "\n\n" + record);
  EXPECT_EQ(host.responses_started, 1);
  EXPECT_EQ(x.responses("content-type"), 1);
  EXPECT_EQ(x.responses("content-length"), 1);
  EXPECT_EQ(x.response("content-length"), std::to_string(host.sent.size()));
}

TEST_F(Intake, EveryTypeHasItsUriAndSomeMayUseIncoming) {
  for (int32_t type = -1; type <= 13; ++type) {
    const bool incoming = type == RDM_RD_REQUEST || type == RDM_SCHEMA_REQUEST || type == RDM_TAXONOMY_REQUEST ||
                          type == RDM_STATUS_REQUEST;
    const std::string own = std::string("/rdm/") + rdm_type_name(type);
    EXPECT_EQ(rdm_validate_uri(own.c_str(), type), 1) << type;
    for (const char *uri : {"/rdm/incoming", "/RDM/INCOMING"})
      EXPECT_EQ(rdm_validate_uri(uri, type), incoming ? 1 : 0) << type;
    for (const std::string &uri : {std::string("/rdm/something"), std::string("/rdm/"), std::string(), own + "/"})
      EXPECT_EQ(rdm_validate_uri(uri.c_str(), type), 0) << type;
  }
  EXPECT_EQ(rdm_validate_uri("/rdm/rd-update-request", RDM_RD_REQUEST), 0) << "it must be the printed name";
  EXPECT_EQ(rdm_validate_uri("/rdm/STATUS-request", RDM_STATUS_REQUEST), 1);
}

TEST_F(Intake, RefusesATypeOnTheUriOfAnotherType) {
  EXPECT_EQ(get("/rdm/incoming", "type=status-request"), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(get("/rdm/incoming", "type=server-description-request"), HOST_DONE);
  expect_refused("Did not receive valid URI for RDM header.");
  EXPECT_EQ(post("/rdm/rd-request", header("status-request") + "\n\n"), HOST_DONE);
  expect_refused("Did not receive valid URI for RDM header.");
}

TEST_F(Intake, RefusesACatalogThatIsNotConfigured) {
  EXPECT_EQ(get("/rdm/status-request", "csid=x-catalog://h:1/%25n%25s"), HOST_DONE);
  expect_refused("Unknown CSID: x-catalog://h:1/%n%s\n");
  const std::string longest = "x-catalog://h:1/" + std::string(800, 'c');
  EXPECT_EQ(post("/rdm/status-request", header("status-request", longest) + "\n\n"), HOST_DONE);
  expect_refused("Unknown CSID: " + longest + "\n");
}

/// Regression: a header of a hundred bytes named a catalog of 256 MiB, which the answer echoed twice.
TEST_F(Intake, TheNameOfACatalogIsPaddedByAtMost65536Bytes) {
  const std::string open = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{14}:\tstatus-request\ncatalog-service-id{";
  EXPECT_EQ(post("/rdm/status-request", open + "65538}:\tx\n\nbody"), HOST_DONE);
  EXPECT_EQ(host.sent, refusal("Unknown CSID: x\n" + std::string(65536, '\xff') + "\n"));
  for (const char *size : {"65539", "268435456"}) {
    host.largest_allocation = 0;
    EXPECT_EQ(post("/rdm/status-request", open + size + "}:\tx\n\nbody"), HOST_DONE);
    expect_refused("Did not receive valid RDM message header.", size);
    EXPECT_LT(host.largest_allocation, 65536u) << size;
  }
}

TEST_F(Intake, TheBodyIsNotReadForACatalogThatIsNotConfigured) {
  const std::string head = header("status-request", "unconfigured") + "\n";
  Exchange x("POST", "/rdm/status-request", head + "body");
  x.header("content-length", std::to_string(head.size() + 4));
  EXPECT_EQ(serve(x), HOST_DONE);
  expect_refused("Unknown CSID: unconfigured\n");
  EXPECT_EQ(x.session.input->position, static_cast<int32_t>(head.size()));
}

/// Each request fails the check with the expected text and some later ones.
TEST_F(Intake, ChecksComeInOrder) {
  const struct {
    const char *method, *uri, *query, *refusal;
  } rows[] = {{"PUT", "/elsewhere", "a=b", "Malformed RDM request - Use GET method."},
              {"PUT", "/elsewhere", nullptr, "Malformed RDM request - Use POST method."},
              {"POST", "/elsewhere", nullptr, "Malformed RDM request - Invalid URI."},
              {"POST", "/rdm/incoming", nullptr, "Content-length is undefined or too long."},
              {"GET", "/rdm/incoming", nullptr, "Unsupported content-encoding."}};  // before the missing type
  for (const auto &row : rows) {
    Exchange x(row.method, row.uri);
    x.header("content-encoding", "x-gzip");
    if (row.query != nullptr) x.query(row.query);
    EXPECT_EQ(serve(x), HOST_DONE);
    expect_refused(row.refusal);
  }
  const std::pair<std::string, const char *> messages[] = {
      {soif("RDMHEADER", "-", {{"rdm-type", "status-request"}}) + "\n\n", "Did not receive valid RDM message header."},
      {header("status-request", "unconfigured") + "\n\n", "Did not receive valid URI for RDM header."},
      {header("rd-request", "unconfigured") + "\n", "Unknown CSID: unconfigured\n"}};  // before the body is read
  for (const auto &[message, text] : messages) {
    EXPECT_EQ(post("/rdm/rd-request", message), HOST_DONE);
    expect_refused(text);
  }
}

TEST_F(Intake, AnswersCarryTheirTypeAndLengthOnce) {
  Exchange x("GET", "/rdm/status-request");
  EXPECT_EQ(rdm_type(nullptr, &x.session, &x.request), HOST_DONE);
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(x.responses("content-type"), 1);
  EXPECT_EQ(x.responses("content-length"), 1);
  EXPECT_EQ(x.response("content-length"), std::to_string(host.sent.size()));
  EXPECT_EQ(x.response("content-encoding"), "");
}

TEST_F(Intake, ARefusalWritesNoTransactionLine) {
  Exchange x("PUT", "/rdm/status-request");
  serve(x);
  EXPECT_EQ(x.var("rdm-log-message"), "");
  Exchange y("GET", "/rdm/status-request");
  serve(y);
  EXPECT_NE(y.var("rdm-log-message"), "");
}

TEST_F(Intake, AFailedDeliveryIsTheResult) {
  const support::Diagnostics diagnostics;
  host.fail_net_write = true;
  Exchange x("GET", "/rdm/status-request");
  EXPECT_EQ(rdm_service(nullptr, &x.session, &x.request), -1);
}

TEST_F(Intake, StopReportsItsMessageUnchangedOrADefault) {
  const std::pair<const char *, std::string> rows[] = {{nullptr, "RDM Server Error"}, {"%s%n%d", "%s%n%d"}};
  for (const auto &[message, text] : rows) {
    Exchange x("GET", "/rdm/status-request");
    host.sent.clear();
    host.reports.clear();
    EXPECT_EQ(rdm_stop(message, "somewhere", -7, &x.session, &x.request), -7);
    EXPECT_EQ(host.sent, refusal(text));
    EXPECT_EQ(host.reports, std::vector<std::string>{"0 somewhere: " + text});
  }
}

TEST_F(Intake, TypeStepSetsTheContentTypeOfItsOwnUris) {
  for (const char *uri : {"/rdm/incoming", "/RDM/", "/rdm/anything"}) {
    Exchange x("GET", uri);
    host_param_add("content-type", "text/html", x.request.response);
    EXPECT_EQ(rdm_type(nullptr, &x.session, &x.request), HOST_DONE) << uri;
    EXPECT_EQ(x.response("content-type"), "application/x-rdm") << uri;
    EXPECT_EQ(x.responses("content-type"), 1) << uri;
  }
  Exchange twice("GET", "/rdm/incoming");
  for (const char *type : {"text/html", "text/plain"}) host_param_add("content-type", type, twice.request.response);
  EXPECT_EQ(rdm_type(nullptr, &twice.session, &twice.request), HOST_DONE);
  EXPECT_EQ(twice.response("content-type"), "application/x-rdm");
  EXPECT_EQ(twice.responses("content-type"), 1) << "other types are removed";
  Exchange without("GET", "/rdm/incoming");
  pblock *block = without.request.response;
  without.request.response = nullptr;
  EXPECT_EQ(rdm_type(nullptr, &without.session, &without.request), HOST_DONE);
  without.request.response = block;
}

TEST_F(Intake, TypeStepLeavesOtherUrisAlone) {
  for (const char *uri : {"", "/", "/rdm", "/index.html"}) {
    Exchange x("GET", uri);
    EXPECT_EQ(rdm_type(nullptr, &x.session, &x.request), HOST_NOT_HANDLED) << uri;
    EXPECT_EQ(x.response("content-type"), "") << uri;
  }
}

}  // namespace
