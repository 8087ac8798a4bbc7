// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "service/csid.h"
#include "service/rdm.h"
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

std::string not_supported(const std::string &type) {
  return soif("RDMHEADER", "-",
              {{"rdm-version", "1.0"},
               {"rdm-type", "status-response"},
               {"rdm-error-message", "RDM-Type=" + type + " is not supported by this RDM server."}}) +
         "\n\n";
}

constexpr char online[] = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n}\n\n\n\n\nOnline.\n";

std::string header(const std::string &type, const std::string &csid = books) {
  return soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", type}, {"catalog-service-id", csid}});
}

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

  /// post sends a body with its length announced, or another length.
  int post(const std::string &uri, const std::string &body, int announced = -1) {
    Exchange x("POST", uri, body);
    x.header("content-length", std::to_string(announced < 0 ? static_cast<int>(body.size()) : announced));
    return serve(x);
  }

  int serve_drop_by_drop(const std::string &uri, const std::string &message, size_t failing = std::string::npos);

  int get(const std::string &uri, const char *query = nullptr) {
    Exchange x("GET", uri);
    if (query != nullptr) x.query(query);
    return serve(x);
  }

  /// expect_refused asserts what every refusal does: an answer with status 200 and a line for the host's error log.
  /// expect_refused expects an answer with a text, and a line of the error log with the same or another one.
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
    Exchange x(method, uri);
    EXPECT_EQ(serve(x), HOST_ABORT);
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
    Exchange x(method, "/rdm/status-request");
    EXPECT_EQ(serve(x), HOST_DONE);
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
    Exchange x("POST", "/rdm/status-request", header("status-request") + "\n\n");
    if (length != nullptr) x.header("content-length", length);
    EXPECT_EQ(serve(x), HOST_DONE);
    expect_refused("Content-length is undefined or too long.", length != nullptr ? length : "no header");
  }
}

TEST_F(Intake, ReadsTheLengthAsANumber) {
  const std::string message = header("status-request") + "\n\n";
  const std::string length = std::to_string(message.size());
  for (const std::string &text : {"+" + length, " \t" + length, length + "x", length + ".9", "000" + length}) {
    Exchange x("POST", "/rdm/status-request", message);
    x.header("content-length", text);
    EXPECT_EQ(serve(x), HOST_DONE);
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

TEST_F(Intake, RefusesAGetThatAnnouncesTooMuch) {
  Exchange x("GET", "/rdm/status-request");
  x.header("content-length", "32769");
  EXPECT_EQ(serve(x), HOST_DONE);
  expect_refused("Content-length is undefined or too long.");
}

TEST_F(Intake, IgnoresTheLengthOfAGetWithinTheLimit) {
  Exchange x("GET", "/rdm/status-request");
  x.header("content-length", "32768");
  EXPECT_EQ(serve(x), HOST_DONE);
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
    Exchange x("POST", "/rdm/status-request", header("status-request") + "\n\n");
    x.header("content-length", "100").header("content-encoding", encoding);
    EXPECT_EQ(serve(x), HOST_DONE);
    expect_refused("Unsupported content-encoding.", encoding);
  }
  Exchange x("GET", "/rdm/status-request");
  x.header("content-encoding", "");
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, RefusesAGetWithoutAType) {
  EXPECT_EQ(get("/rdm/incoming", "scope=all"), HOST_DONE);
  expect_refused("Malformed RDM request - GET requires type");
  EXPECT_EQ(get("/rdm/"), HOST_DONE);
  expect_refused("Malformed RDM request - GET requires type");
}

TEST_F(Intake, TakesTheTypeOfAGetFromTheUri) {
  EXPECT_EQ(get("/rdm/status-request"), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(get("/rdm/status-request", "scope=all"), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, PrefersTheTypeOfTheQuery) {
  EXPECT_EQ(get("/rdm/status-request", "type=rd-request"), HOST_DONE);
  expect_refused("Did not receive valid URI for RDM header.");
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

// A CSID with a newline in it started a line of its own in the error log of a host that writes what it is given.
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

/// Headers are printed without their empty values, so that the default catalog is asked.
TEST_F(Intake, AnEmptyCatalogOfAQueryIsNone) {
  EXPECT_EQ(get("/rdm/status-request", "csid="), HOST_DONE);
  EXPECT_EQ(host.sent, online);
  EXPECT_EQ(post("/rdm/status-request", header("status-request", "") + "\nbody"), HOST_DONE);
  expect_refused("Unknown CSID: \n", "in a message it is what it says");
}

TEST_F(Intake, OneTypeOfAQueryIsEnough) {
  EXPECT_EQ(get("/rdm/status-request", "type=status-request&type=status-request"), HOST_DONE);
  expect_refused("Did not receive valid URI for RDM header.");
  EXPECT_EQ(get("/rdm/status-request", "type="), HOST_DONE);
  expect_refused("Did not receive valid URI for RDM header.", "an empty type is a type");
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

TEST_F(Intake, OfEqualRequestHeadersTheFirstCounts) {
  Exchange x("POST", "/rdm/status-request", header("status-request") + "\nbody");
  x.header("content-length", std::to_string(x.session.input->size)).header("content-length", "0");
  x.header("content-encoding", "").header("content-encoding", "x-gzip");
  EXPECT_EQ(serve(x), HOST_DONE);
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
  Exchange x("GET", "/rdm/status-request");
  EXPECT_EQ(serve(x), HOST_DONE);
  EXPECT_EQ(host.sent, online) << "no encoding";
  Exchange y("POST", "/rdm/status-request", header("status-request") + "\nbody");
  EXPECT_EQ(serve(y), HOST_DONE);
  expect_refused("Content-length is undefined or too long.");
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

/// Of a header that its length ends, the last byte that is not white space must be a brace, wherever the object ended.
/// The text behind a closed object was once passed over, and the message refused for its length.
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

/// Any brace will do, so such a header follows the further checks.
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

TEST_F(Intake, OneByteOfBodyIsEnough) {
  EXPECT_EQ(post("/rdm/status-request", header("status-request") + "\n\n"), HOST_DONE);
  EXPECT_EQ(host.sent, online);
}

TEST_F(Intake, AnErrorOfTheInputEndsIt) {
  Exchange x("POST", "/rdm/status-request", header("status-request") + "\n");
  x.header("content-length", std::to_string(x.session.input->size));
  host.fail_input = true;
  EXPECT_EQ(serve(x), HOST_DONE);
  expect_refused("Did not receive content-length bytes.");
}

TEST_F(Intake, ABodyShorterThanAnnouncedIsPadded) {
  EXPECT_EQ(post("/rdm/status-request", header("status-request") + "\nbody", 300), HOST_DONE);
  EXPECT_EQ(host.sent, online) << "a host that has no more yields zeros";
}

/// A host that hands out one to three bytes of the input at a time, and an error in place of one byte.
struct Drip {
  std::string input{};
  size_t taken = 0;                    // of the input so far
  size_t failing = std::string::npos;  // the byte that is an error
  std::vector<int> hopes{};            // what each call hoped for
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
  // A byte that fails is not handed out together with those before it.
  const size_t piece = std::min({1 + at % 3, drip.input.size() - at, drip.failing > at ? drip.failing - at : 3});
  input->data = reinterpret_cast<const unsigned char *>(drip.input.data()) + at;
  input->size = static_cast<int32_t>(piece);
  input->position = 1;
  drip.taken += piece;
  return input->data[0];
}

/// serve_drop_by_drop posts a message that arrives in pieces, with an error in place of the byte `failing`.
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

/// Before the service has been set up there are neither sections nor catalogs.
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

/// The status that the handler sets does not reach the client: every answer goes out with 200.
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

/// The buffers of a request take 32768 bytes of memory with the NUL behind them; one byte more is a file.
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

/// A handler that has sent its answer leaves nothing to send.
TEST_F(Intake, AnswersThatTheirHandlerSendsGoOutOnce) {
  support::Catalog catalog(directory_);
  const std::string record = soif("DOCUMENT", "u", {{"title", "T"}});
  catalog.put(1, record);
  catalog.index({{1000, 1}});
  const support::Registry registry(
      directory_, "csid=\"" + std::string(books) + "\" catalog-database=\"" + catalog.path() + "\"\n", books);
  const std::string message = soif("RDMHEADER", "-",
                                   {{"rdm-version", "1.0"},
                                    {"rdm-type", "rd-request"},
                                    {"rdm-query-language", "gatherer"},
                                    {"catalog-service-id", books}}) +
                              "\n\n\n\r\n" + soif("RDMQUERY", "-", {{"scope", "all"}});
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

struct UriRow {
  int32_t type;
  const char *name;
  bool incoming;
};

const UriRow uri_rows[] = {
    {1, "rd-request", true},
    {2, "rd-delete-request", false},
    {3, "rd-response", false},
    {4, "rd-delete-response", false},
    {5, "server-description-request", false},
    {6, "server-description-response", false},
    {7, "schema-description-request", true},
    {8, "schema-description-response", false},
    {9, "taxonomy-description-request", true},
    {10, "taxonomy-description-response", false},
    {11, "status-request", true},
    {12, "status-response", false},
    {0, "Unknown", false},
    {13, "Unknown", false},
};

TEST_F(Intake, EveryTypeHasItsUriAndSomeMayUseIncoming) {
  for (const UriRow &row : uri_rows) {
    EXPECT_EQ(rdm_validate_uri(("/rdm/" + std::string(row.name)).c_str(), row.type), 1) << row.name;
    EXPECT_EQ(rdm_validate_uri("/rdm/incoming", row.type), row.incoming ? 1 : 0) << row.name;
    EXPECT_EQ(rdm_validate_uri("/RDM/INCOMING", row.type), row.incoming ? 1 : 0) << row.name;
    EXPECT_EQ(rdm_validate_uri("/rdm/something", row.type), 0) << row.name;
    EXPECT_EQ(rdm_validate_uri("/rdm/", row.type), 0) << row.name;
    EXPECT_EQ(rdm_validate_uri("", row.type), 0) << row.name;
  }
}

TEST_F(Intake, TheUriMustBeOfThePrintedName) {
  EXPECT_EQ(rdm_validate_uri("/rdm/rd-update-request", 1), 0);
  EXPECT_EQ(rdm_validate_uri("/rdm/STATUS-request", 11), 1);
  EXPECT_EQ(rdm_validate_uri("/rdm/status-request/", 11), 0);
}

TEST_F(Intake, RefusesATypeOnAUriOfAnother) {
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

/// A header of a hundred bytes named a catalog of 256 MiB, which the answer then echoed twice.
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

TEST_F(Intake, ChecksComeInOrder) {
  Exchange x("PUT", "/elsewhere");
  x.header("content-encoding", "x-gzip");
  EXPECT_EQ(serve(x), HOST_DONE);
  expect_refused("Malformed RDM request - Use POST method.");

  Exchange y("POST", "/elsewhere");
  y.header("content-encoding", "x-gzip");
  EXPECT_EQ(serve(y), HOST_DONE);
  expect_refused("Malformed RDM request - Invalid URI.");

  Exchange z("POST", "/rdm/incoming");
  z.header("content-encoding", "x-gzip");
  EXPECT_EQ(serve(z), HOST_DONE);
  expect_refused("Content-length is undefined or too long.");

  Exchange encoded("GET", "/rdm/incoming");
  encoded.header("content-encoding", "x-gzip");
  EXPECT_EQ(serve(encoded), HOST_DONE);
  expect_refused("Unsupported content-encoding.", "before the type is missed");

  Exchange queried("PUT", "/elsewhere");
  queried.query("a=b");
  EXPECT_EQ(serve(queried), HOST_DONE);
  expect_refused("Malformed RDM request - Use GET method.");

  EXPECT_EQ(post("/rdm/rd-request", soif("RDMHEADER", "-", {{"rdm-type", "status-request"}}) + "\n\n"), HOST_DONE);
  expect_refused("Did not receive valid RDM message header.", "before the URI is compared");

  EXPECT_EQ(post("/rdm/rd-request", header("status-request", "unconfigured") + "\n\n"), HOST_DONE);
  expect_refused("Did not receive valid URI for RDM header.");

  EXPECT_EQ(post("/rdm/status-request", header("status-request", "unconfigured") + "\n"), HOST_DONE);
  expect_refused("Unknown CSID: unconfigured\n", "before the body is read");
}

TEST_F(Intake, AnswersOtherMessagesThatTheyAreNotSupported) {
  for (const char *type : {"rd-response", "rd-delete-request", "rd-delete-response"}) {
    EXPECT_EQ(post("/rdm/" + std::string(type), header(type) + "\n\n"), HOST_DONE);
    EXPECT_EQ(host.sent, not_supported(type));
    EXPECT_TRUE(host.reports.empty());
  }
  EXPECT_EQ(post("/rdm/unknown", header("hello") + "\n\n"), HOST_DONE);
  EXPECT_EQ(host.sent, not_supported("Unknown"));
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

TEST_F(Intake, StopWithoutAMessageHasOne) {
  Exchange x("GET", "/rdm/status-request");
  EXPECT_EQ(rdm_stop(nullptr, "somewhere", -7, &x.session, &x.request), -7);
  EXPECT_EQ(host.sent, refusal("RDM Server Error"));
  EXPECT_EQ(host.reports, std::vector<std::string>{"0 somewhere: RDM Server Error"});
}

TEST_F(Intake, StopTakesItsMessageAsItStands) {
  Exchange x("GET", "/rdm/status-request");
  EXPECT_EQ(rdm_stop("%s%n%d", "somewhere", 0, &x.session, &x.request), 0);
  EXPECT_EQ(host.sent, refusal("%s%n%d"));
  EXPECT_EQ(host.reports, std::vector<std::string>{"0 somewhere: %s%n%d"});
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
  EXPECT_EQ(twice.responses("content-type"), 1) << "whatever was there is gone";
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
