// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "dba/dba.h"
#include "service/message.h"
#include "service/support/catalog.h"
#include "service/support/trace.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Diagnostics;
using support::Exchange;
using support::soif;

using Attributes = std::vector<std::pair<std::string, std::string>>;

/// A description with a single attribute, which prints as stored.
std::string description(int number) {
  return soif("DOCUMENT", "http://localhost/" + std::to_string(number), {{"title", "T" + std::to_string(number)}});
}

std::string response_header(const std::string &error = "") {
  Attributes attributes{{"rdm-version", "1.0"}, {"rdm-type", "rd-response"}};
  if (!error.empty()) attributes.emplace_back("rdm-error-message", error);
  return soif("RDMHEADER", "-", attributes) + "\n\n";
}

std::string error_header(const std::string &message) {
  return soif("RDMHEADER", "-",
              {{"rdm-version", "1.0"}, {"rdm-type", "status-response"}, {"rdm-error-message", message}}) +
         "\n\n";
}

/// A catalog of four descriptions, numbered 1 to 4 and changed at the times 1000 to 4000.
class Request : public support::HostTest {
 protected:
  void SetUp() override {
    for (uint32_t number = 1; number <= 4; ++number) catalog_.put(number, description(static_cast<int>(number)));
    catalog_.index({{1000, 1}, {2000, 2}, {3000, 3}, {4000, 4}});
    response_ = make_csio(32768);
  }
  void TearDown() override {
    response_.reset();
    support::HostTest::TearDown();
  }

  /// ask calls the handler with a body. Data that it sent is in host.sent, data left to send in answer().
  int32_t ask(const std::string &body, const char *language = "gatherer", const char *csid = "c") {
    host.sent.clear();
    csio_reset(response_.get());
    x_ = std::make_unique<Exchange>("POST", "/rdm/rd-request");
    const CsioPtr input = make_csio();
    append_text(input.get(), body);
    const RdmHeaderPtr header = make_rdmhdr(RDM_RD_REQUEST);
    if (language != nullptr) header->query_language = host_strdup(language);
    header->csid = host_strdup(csid);
    const int32_t result = rds_rd_request(header.get(), input.get(), response_.get(), &x_->session, &x_->request);
    log_ = x_->var("rdm-log-message");
    hits_ = x_->var("rdm-hits");
    type_ = x_->response("content-type");
    length_ = x_->response("content-length");
    EXPECT_LE(x_->responses("content-length"), 1);
    x_.reset();
    return result;
  }
  int32_t query(const Attributes &attributes) { return ask(soif("RDMQUERY", "-", attributes)); }

  std::string answer() {
    std::string bytes(response_->length, '\0');
    csio_rewind(response_.get());
    csio_copy(response_.get(), bytes.data(), static_cast<int32_t>(bytes.size()));
    return bytes;
  }

  /// expect_sent asserts that the handler sent a whole answer with these descriptions.
  void expect_sent(const std::vector<int> &numbers, const std::string &what) {
    std::string bytes = response_header(numbers.empty() ? "0 results." : "");
    for (int number : numbers) bytes += description(number);
    EXPECT_EQ(host.sent, bytes) << what;
    EXPECT_EQ(length_, std::to_string(bytes.size())) << what;
    EXPECT_EQ(type_, "application/x-rdm") << what;
    EXPECT_EQ(hits_, std::to_string(numbers.size())) << what;
    EXPECT_NE(log_.find("\"" + std::to_string(numbers.size()) + " RDs Transfered"), std::string::npos) << log_;
    EXPECT_EQ(log_.substr(log_.rfind(' ') + 1), std::to_string(bytes.size()) + "\n");
  }

  support::TemporaryDirectory directory_;
  support::Catalog catalog_{directory_};
  support::Registry registry_{directory_, "csid=\"c\" catalog-database=\"" + catalog_.path() + "\"\ncsid=\"bare\"\n"};
  CsioPtr response_;
  std::unique_ptr<Exchange> x_;
  std::string log_, type_, length_, hits_;
};

TEST_F(Request, ScopeAllSendsEveryDescription) {
  for (const char *scope : {"all", "ALL", "allx", "All of them"}) {
    EXPECT_EQ(query({{"scope", scope}}), 1) << scope;
    expect_sent({1, 2, 3, 4}, scope);
    EXPECT_NE(log_.find("\"4 RDs Transfered\" - "), std::string::npos) << log_;
  }
}

std::string at(time_t time) {
  char text[64];
  cs_time2str(time, text, sizeof text);
  return text;
}

TEST_F(Request, SinceATimeSendsLaterChanges) {
  const std::pair<std::string, std::vector<int>> rows[] = {
      {"since " + at(500), {1, 2, 3, 4}},
      {"since:" + at(1500), {2, 3, 4}},
      {"SINCE=" + at(2000), {2, 3, 4}},
      {"since\t" + at(2500), {3, 4}},
      {"since " + at(3500), {}},
      {"since " + at(4000), {}},
      {"since " + at(9999), {}},
      {"since Fri, 01 Jan 2200 00:00:00 GMT", {}},
      {"since " + at(3000), {3, 4}},
      {"since " + at(0), {1, 2, 3, 4}},
      // Without a usable time it is since the beginning.
      {"since", {1, 2, 3, 4}},
      {"since ", {1, 2, 3, 4}},
      {"since nothing", {1, 2, 3, 4}},
  };
  for (const auto &[scope, numbers] : rows) {
    EXPECT_EQ(query({{"scope", scope}}), 1) << scope;
    expect_sent(numbers, scope);
  }
  query({{"scope", "since " + at(2500)}});
  EXPECT_NE(log_.find("\"2 RDs Transfered since Thu, 01 Jan 1970 00:41:40 GMT\" - "), std::string::npos) << log_;
}

TEST_F(Request, TheCharacterAfterSinceIsLost) {
  EXPECT_EQ(query({{"scope", "since" + at(2500)}}), 1);
  expect_sent({3, 4}, "the first letter of a weekday is not missed");
  EXPECT_EQ(query({{"scope", "since1 Jan 1970 00:41:40 GMT"}}), 1);
  expect_sent({1, 2, 3, 4}, "the day is missed, so there is no time");
}

TEST_F(Request, ViewHitsLimitsTheKeys) {
  const std::pair<const char *, std::vector<int>> rows[] = {
      {"2", {1, 2}},       {"0", {1, 2, 3, 4}},           {"many", {1, 2, 3, 4}},
      {"", {1, 2, 3, 4}},  {"100", {1, 2, 3, 4}},         {" 1 or so", {1}},
      {"-1", {}},          {"99999999999", {1, 2, 3, 4}}, {"-99999999999", {}},
      {"4", {1, 2, 3, 4}},
  };
  for (const auto &[hits, numbers] : rows) {
    EXPECT_EQ(query({{"scope", "all"}, {"view-hits", hits}}), 1) << hits;
    expect_sent(numbers, hits);
  }
  EXPECT_EQ(query({{"scope", "since " + at(1500)}, {"view-hits", "2"}}), 1);
  expect_sent({2, 3}, "from the start position on");
}

TEST_F(Request, AKeyThatIsMissingIsSkippedAndCountsAgainstTheLimit) {
  catalog_.index({{1000, 1}, {2000, 99}, {3000, 3}});
  const Diagnostics diagnostics;
  EXPECT_EQ(query({{"scope", "all"}}), 1);
  expect_sent({1, 3}, "all");
  EXPECT_EQ(diagnostics.text(), "WARNING: No entry in catalog-database: key 00000063\n");
  EXPECT_EQ(query({{"scope", "all"}, {"view-hits", "2"}}), 1);
  expect_sent({1}, "the limit counts keys");
}

/// list_of returns a list of one key.
ListPtr list_of(const char *key) {
  cslist *keys = nullptr;
  cslist_create(&keys);
  cslist_append(keys, key);
  return ListPtr(keys);
}

/// An answer's length has 32 bits, of which its header may take 4096 bytes.
TEST_F(Request, ARecordThatAnAnswerHasNoRoomForIsSkipped) {
  const std::pair<std::string, std::string> rows[] = {
      {description(1), description(1)},
      // A value that the end of the record cuts is padded to its size.
      {"@D { u\nx{5000}:\tabc", "@D { u\nx{5000}:\tabc" + std::string(4997, '\xff') + "\n}\n"},
      // A record may omit the newlines between attributes, which the printer writes.
      {"@D { u\na{1}:\tAb{1}:\tB}", "@D { u\na{1}:\tA\nb{1}:\tB\n}\n"},
  };
  for (const auto &[record, printed] : rows) {
    catalog_.put(1, record);
    const ListPtr keys = list_of("00000001");
    const CsioPtr output = make_csio();
    append_text(output.get(), "a file takes no memory for the length that it is said to have");
    csio_convert2file(output.get());
    const uint32_t longest = UINT32_MAX - 4096 - static_cast<uint32_t>(printed.size());
    const Diagnostics diagnostics;
    output->length = longest + 1;
    EXPECT_EQ(rds_send_rd("c", keys.get(), nullptr, output.get()), 0) << record;
    EXPECT_EQ(output->length, longest + 1) << record;
    EXPECT_EQ(diagnostics.text(), "ERROR: No room in the answer for catalog-database: key 00000001\n") << record;
    output->length = longest;
    EXPECT_EQ(rds_send_rd("c", keys.get(), nullptr, output.get()), 1) << record;
    EXPECT_EQ(output->length, longest + printed.size()) << record;
  }
}

TEST_F(Request, ARecordThatCannotBeReadIsSkippedAndTheReasonLogged) {
  static int allowed;
  qxapi_host table = support::memory_host();
  table.read = [](host_fd fd, void *bytes, int32_t count) {
    if (allowed-- > 0) return support::memory_host().read(fd, bytes, count);
    errno = EIO;
    return -1;
  };
  qxapi_bind(&table);
  const ListPtr keys = list_of("00000001");
  const Diagnostics diagnostics;
  allowed = 1;  // the database's header
  EXPECT_EQ(rds_send_rd("c", keys.get(), nullptr, response_.get()), 0);
  EXPECT_EQ(diagnostics.text(), "ERROR: Cannot read catalog-database: key 00000001: Input/output error\n");
  EXPECT_EQ(answer(), "");
}

TEST_F(Request, AMalformedRecordIsSkipped) {
  catalog_.put(2, "no object at all");
  catalog_.put(3, "@BROKEN { -\ntitle{3}:no tab\n}\n");
  const Diagnostics diagnostics;
  EXPECT_EQ(query({{"scope", "all"}}), 1);
  expect_sent({1, 4}, "all");
  EXPECT_EQ(diagnostics.text(),
            "WARNING: Malformed RD in catalog-database: key 00000002\n"
            "WARNING: Malformed RD in catalog-database: key 00000003\n");
}

TEST_F(Request, SendsOnlyTheRequestedAttributes) {
  catalog_.put(1, soif("DOCUMENT", "u", {{"author-1", "A"}, {"author-22", "B"}, {"authors", "C"}, {"title", "T"}}));
  catalog_.index({{1000, 1}});
  const std::pair<const char *, std::vector<std::string>> rows[] = {
      {"author", {"author-1{1}:\tA\n", "author-22{1}:\tB\n"}},
      {"title,authors", {"title{1}:\tT\n", "authors{1}:\tC\n"}},
      {"title,,nothing", {"title{1}:\tT\n"}},
      {"Title", {}},
      {" title", {}},
      {",", {}},
      {"", {"author-1{1}:\tA\n", "author-22{1}:\tB\n", "authors{1}:\tC\n", "title{1}:\tT\n"}},
  };
  for (const auto &[names, kept] : rows) {
    EXPECT_EQ(query({{"scope", "all"}, {"view-attributes", names}}), 1);
    size_t length = response_header().size() + std::string("@DOCUMENT { u\n}\n").size();
    for (const std::string &line : kept) {
      EXPECT_NE(host.sent.find("\n" + line), std::string::npos) << names << ": " << host.sent;
      length += line.size();
    }
    EXPECT_EQ(host.sent.size(), length) << names << ": " << host.sent;
  }
}

TEST_F(Request, AttributeNamesPastTheLimitAreNotKept) {
  catalog_.put(1, soif("DOCUMENT", "u", {{"first", "1"}, {"last", "2"}}));
  catalog_.index({{1000, 1}});
  std::string others;
  for (int i = 1; i < 255; ++i) others += ",x";
  // A name that is too long does not count.
  const std::pair<std::string, Attributes> rows[] = {
      {"first" + others + ",last", {{"first", "1"}}},
      {std::string(4096, 'n') + others + ",last,first", {{"last", "2"}}}};
  for (const auto &[names, kept] : rows) {
    EXPECT_EQ(query({{"scope", "all"}, {"view-attributes", names}}), 1);
    EXPECT_EQ(host.sent, response_header() + soif("DOCUMENT", "u", kept));
  }
}

/// No attribute has a name of 4096 bytes: a longer one in the list selects nothing. A list of such names must not be
/// taken for an empty one, which selects everything.
TEST_F(Request, AttributeNamesLongerThanAnyAttributesAreLeftOut) {
  const std::string longest(4095, 'n'), too_long(4096, 'n');
  const std::string title = "title{1}:\tT\n", other = longest + "{1}:\tN\n";
  catalog_.put(1, "@D { u\n" + other + title + "}\n");
  catalog_.index({{1000, 1}});
  const std::pair<std::string, std::string> rows[] = {
      {longest, other},
      {too_long, ""},
      {too_long + "," + too_long.substr(96), ""},
      {too_long + ",title", title},
      {"title," + too_long, title},
      {too_long + ",", ""},
      {"{", ""},
  };
  for (const auto &[names, kept] : rows) {
    EXPECT_EQ(query({{"scope", "all"}, {"view-attributes", names}}), 1);
    EXPECT_EQ(host.sent, response_header() + "@D { u\n" + kept + "}\n") << names.size();
  }
}

/// Regression: a message of 156 bytes made the service compare a name of 256 MiB with each attribute of each
/// description.
TEST_F(Request, AListThatItsMessageCutsIsPaddedOrRefused) {
  const std::string open = "@RDMQUERY { -\nscope{3}:\tall\nview-attributes{";
  EXPECT_EQ(ask(open + "65541}:\ttitle"), 1) << "a name of 65541 bytes";
  std::string none = response_header();
  for (int number = 1; number <= 4; ++number)
    none += soif("DOCUMENT", "http://localhost/" + std::to_string(number), {});
  EXPECT_EQ(host.sent, none);
  EXPECT_EQ(ask(open + "65542}:\ttitle,"), 1) << "two names";
  expect_sent({1, 2, 3, 4}, "two names");
  for (const char *size : {"65542}:\ttitle", "268435456}:\ttitle"}) {
    host.largest_allocation = 0;
    EXPECT_EQ(ask(open + size), 0) << size;
    EXPECT_EQ(answer(), error_header("Invalid RDMQUERY specification.")) << size;
    EXPECT_LT(host.largest_allocation, 65536u) << size;
  }
}

TEST_F(Request, AnEmptyIndexSendsNothing) {
  catalog_.index({});
  for (const char *scope : {"all", "since 16 Nov 2026"}) {
    EXPECT_EQ(query({{"scope", scope}}), 1);
    expect_sent({}, scope);
  }
}

TEST_F(Request, AnIndexOfOneEntryIsSentForAllButNotForSince) {
  catalog_.index({{1000, 1}});
  EXPECT_EQ(query({{"scope", "all"}}), 1);
  expect_sent({1}, "all");
  for (time_t since : {500, 1000, 1500}) {
    EXPECT_EQ(query({{"scope", "since " + at(since)}}), 1);
    expect_sent({}, at(since));
  }
}

TEST_F(Request, LargeAnswersComeFromAFile) {
  std::string expected = response_header();
  std::vector<std::pair<uint32_t, uint32_t>> entries;
  for (uint32_t number = 1; number <= 60; ++number) {
    const std::string record =
        soif("DOCUMENT", "u", {{"body", std::string(900, static_cast<char>('a' + number % 26))}});
    catalog_.put(number, record);
    expected += record;
    entries.emplace_back(number, number);
  }
  catalog_.index(entries);
  const support::Trace trace;
  EXPECT_EQ(query({{"scope", "all"}}), 1);
  EXPECT_EQ(host.sent, expected);
  EXPECT_EQ(length_, std::to_string(expected.size()));
  EXPECT_EQ(host.responses_started, 1);
  const std::vector<std::string> &calls = trace.calls();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "open_write"), 1);
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "buffer_send"), 1);
}

/// Descriptions may take 32768 bytes of memory with the NUL; with one more they move to a file.
TEST_F(Request, AnswersStayInMemoryUpToTheirCeiling) {
  const auto record_of = [](size_t size) {
    const size_t frame = soif("DOCUMENT", "u", {{"body", std::string(1000, 'b')}}).size() - 1000;
    return soif("DOCUMENT", "u", {{"body", std::string(size - frame, 'b')}});
  };
  std::string most;
  std::vector<std::pair<uint32_t, uint32_t>> entries;
  for (uint32_t number = 1; number <= 21; ++number) {
    catalog_.put(number, record_of(1500));
    most += record_of(1500);
    entries.emplace_back(number, number);
  }
  entries.emplace_back(22, 22);
  catalog_.index(entries);
  const std::pair<size_t, int> rows[] = {{32766, 0}, {32767, 0}, {32768, 1}};
  for (const auto &[size, files] : rows) {
    const std::string last = record_of(size - most.size());
    catalog_.put(22, last);
    const support::Trace trace;
    EXPECT_EQ(query({{"scope", "all"}}), 1);
    EXPECT_EQ(host.sent, response_header() + most + last);
    EXPECT_EQ(host.sent.size(), response_header().size() + size);
    EXPECT_EQ(std::count(trace.calls().begin(), trace.calls().end(), "open_write"), files) << size;
    EXPECT_EQ(std::count(trace.calls().begin(), trace.calls().end(), "buffer_send"), files) << size;
  }
}

TEST_F(Request, IsReadFromThePositionOfItsBody) {
  const std::string before = soif("RDMQUERY", "-", {{"scope", "some"}});
  Exchange x("POST", "/rdm/rd-request");
  const CsioPtr input = make_csio();
  append_text(input.get(), before + soif("RDMQUERY", "-", {{"scope", "all"}}));
  std::string read_already(before.size(), '\0');
  csio_copy(input.get(), read_already.data(), static_cast<int32_t>(before.size()));
  const RdmHeaderPtr header = make_rdmhdr(RDM_RD_REQUEST);
  header->query_language = host_strdup("gatherer");
  header->csid = host_strdup("c");
  EXPECT_EQ(rds_rd_request(header.get(), input.get(), response_.get(), &x.session, &x.request), 1);
  EXPECT_EQ(host.sent, response_header() + description(1) + description(2) + description(3) + description(4));
}

TEST_F(Request, MayHaveTheHeaderBeforeItsQuery) {
  const std::string message = soif("rdmheader", "-", {{"rdm-version", "1.0"}});
  EXPECT_EQ(ask(message + soif("rdmquery", "-", {{"scope", "all"}})), 1);
  expect_sent({1, 2, 3, 4}, "with a header");
}

TEST_F(Request, LeavesNoNumberOfDescriptionsWithoutAnAnswerOfThem) {
  query({{"scope", "everything"}});
  EXPECT_EQ(hits_, "");
  query({{"scope", "all"}});
  EXPECT_EQ(hits_, "4");
  ask(soif("RDMQUERY", "-", {{"scope", "all"}}), "gatherer", "bare");
  EXPECT_EQ(hits_, "") << "the index cannot be read";
}

TEST_F(Request, RefusesQueryLanguagesOtherThanGatherer) {
  const std::string refusal = error_header("Unsupported query language.") + "\n\nUnsupported query language.\n";
  const Diagnostics diagnostics;
  EXPECT_EQ(ask("", "sql"), 0);
  EXPECT_EQ(answer(), refusal);
  EXPECT_EQ(response_->finished, 1);
  EXPECT_EQ(diagnostics.text(), "");
  EXPECT_EQ(ask("", nullptr), 0);
  EXPECT_EQ(answer(), refusal);
  EXPECT_EQ(diagnostics.text(), "ERROR: No RDM-Query-Language?\n");
  EXPECT_EQ(log_, "");
  EXPECT_EQ(ask(soif("RDMQUERY", "-", {{"scope", "all"}}), "GATHERER"), 1);
}

TEST_F(Request, WithoutAQueryIsRefused) {
  const std::string bodies[] = {"", "hello", soif("OTHER", "-", {{"scope", "all"}}),
                                soif("RDMHEADER", "-", {{"scope", "all"}}), "@RDMQUERY { -\nscope{3}:all\n}\n"};
  for (const std::string &body : bodies) {
    const Diagnostics diagnostics;
    EXPECT_EQ(ask(body), 0);
    EXPECT_EQ(answer(), error_header("Invalid RDMQUERY specification."));
    EXPECT_EQ(diagnostics.text(), "WARNING: Invalid RDMQUERY specification...\n");
    EXPECT_EQ(log_, "");
  }
}

TEST_F(Request, WithoutAScopeIsRefused) {
  const Diagnostics diagnostics;
  EXPECT_EQ(query({{"view-hits", "3"}}), 0);
  EXPECT_EQ(answer(), error_header("Scope parameter required."));
  EXPECT_EQ(diagnostics.text(), "WARNING: No 'Scope' in Gatherer Query...\n");
}

TEST_F(Request, WithABadScopeIsRefusedAndReported) {
  for (const char *scope : {"al", "sinc", "some", "%s%n"}) {
    host.reports.clear();
    EXPECT_EQ(query({{"scope", scope}, {"x", "y"}}), 0) << scope;
    EXPECT_EQ(answer(), error_header("Scope parameter malformed.")) << scope;
    EXPECT_EQ(host.status, 403);
    EXPECT_EQ(host.reason, "Invalid RDM RD-Request message -- Bad scope.\n");
    EXPECT_EQ(host.reports, std::vector<std::string>{"0 rdm-service: Invalid RDM RD-Request message -- Bad scope.\n"});
    EXPECT_EQ(log_, "") << "only a search is logged";
  }
}

TEST_F(Request, RefusalsReplaceTheContentOfTheAnswer) {
  const std::pair<Attributes, const char *> rows[] = {{{{"x", "y"}}, "Scope parameter required."},
                                                      {{{"scope", "some"}}, "Scope parameter malformed."},
                                                      {{{"scope", "all"}}, "Server Error: Cannot service request"}};
  for (const auto &[attributes, message] : rows) {
    Exchange x("POST", "/rdm/rd-request");
    const CsioPtr input = make_csio(), output = make_csio();
    append_text(input.get(), soif("RDMQUERY", "-", attributes));
    append_text(output.get(), "left over");
    const RdmHeaderPtr header = make_rdmhdr(RDM_RD_REQUEST);
    header->query_language = host_strdup("gatherer");
    header->csid = host_strdup("bare");
    EXPECT_EQ(rds_rd_request(header.get(), input.get(), output.get(), &x.session, &x.request), 0);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(output->data), output->length), error_header(message));
  }
}

/// The language is checked before the query, the query before the catalog.
TEST_F(Request, ChecksComeInOrder) {
  EXPECT_EQ(ask("hello", "sql", "bare"), 0);
  EXPECT_EQ(answer(), error_header("Unsupported query language.") + "\n\nUnsupported query language.\n");
  EXPECT_EQ(ask("hello", "gatherer", "bare"), 0);
  EXPECT_EQ(answer(), error_header("Invalid RDMQUERY specification."));
  EXPECT_EQ(ask(soif("RDMQUERY", "-", {{"x", "y"}}), "gatherer", "bare"), 0);
  EXPECT_EQ(answer(), error_header("Scope parameter required."));
  EXPECT_EQ(ask(soif("RDMQUERY", "-", {{"scope", "some"}}), "gatherer", "bare"), 0);
  EXPECT_EQ(answer(), error_header("Scope parameter malformed."));
}

TEST_F(Request, ReplacesTheTypeThatTheAnswerHad) {
  Exchange x("POST", "/rdm/rd-request");
  host_param_add("content-type", "text/html", x.request.response);
  cs_dbindex index{};
  int32_t count = 0;
  uint32_t bytes = 0;
  EXPECT_EQ(send_since("c", &index, 0, nullptr, &count, &bytes, &x.session, &x.request), 0);
  EXPECT_EQ(x.response("content-type"), "application/x-rdm");
  EXPECT_EQ(x.responses("content-type"), 1);
  EXPECT_EQ(bytes, host.sent.size());
}

TEST_F(Request, AnIndexThatHasACountButNoEntriesSendsNothing) {
  cs_dbindex index{nullptr, 5};
  for (const time_t since : {0, 1}) {
    Exchange x("POST", "/rdm/rd-request");
    int32_t count = 0;
    uint32_t bytes = 0;
    host.sent.clear();
    EXPECT_EQ(send_since("c", &index, since, nullptr, &count, &bytes, &x.session, &x.request), 0);
    EXPECT_EQ(host.sent, response_header("0 results."));
    EXPECT_EQ(count, 0);
  }
}

/// send_since returns the result of sending the last buffer.
TEST_F(Request, TheLastDeliveryIsTheResult) {
  cs_dbindex index{};
  ASSERT_EQ(cs_dbsearch_start("c", &index), 0);
  const HostPtr<cs_dbentry> entries(index.entries);
  static int written, failing;
  qxapi_host table = support::memory_host();
  table.net_write = [](host_net *, const void *, int32_t count) { return ++written == failing ? -1 : count; };
  qxapi_bind(&table);
  const struct {
    int failing;
    int32_t limit;
    int result;
  } rows[] = {{0, 0, 0}, {1, 0, 0}, {2, 0, -1}, {1, -1, -1}};
  for (const auto &row : rows) {
    const Diagnostics diagnostics;
    written = 0;
    failing = row.failing;
    Exchange x("POST", "/rdm/rd-request");
    int32_t count = row.limit;
    uint32_t bytes = 9;
    EXPECT_EQ(send_since("c", &index, 0, nullptr, &count, &bytes, &x.session, &x.request), row.result) << row.failing;
    EXPECT_EQ(written, row.limit < 0 ? 1 : 2);
    EXPECT_EQ(count, row.limit < 0 ? 0 : 4);
    EXPECT_EQ(std::to_string(bytes), x.response("content-length"));
  }
}

TEST_F(Request, IsReadNoFurtherThanItsLimit) {
  const std::string query = soif("RDMQUERY", "-", {{"scope", "all"}});
  EXPECT_EQ(ask(std::string(8192 - query.size(), ' ') + query), 1);
  expect_sent({1, 2, 3, 4}, "the query ends at byte 8192");
  // The last letter of the scope is byte 8192, then byte 8193.
  const std::string open = "@RDMQUERY { -\nscope{3}:\tall";
  EXPECT_EQ(ask(std::string(8192 - open.size(), ' ') + open), 1);
  EXPECT_EQ(ask(std::string(8193 - open.size(), ' ') + open), 0);
  EXPECT_EQ(answer(), error_header("Scope parameter malformed."));
  EXPECT_EQ(ask(std::string(8192, ' ') + query), 0);
  EXPECT_EQ(answer(), error_header("Invalid RDMQUERY specification."));
}

TEST_F(Request, WithoutAnIndexIsRefusedAndLogsTheLimitAskedFor) {
  const std::string refusal = error_header("Server Error: Cannot service request");
  const Diagnostics diagnostics;
  EXPECT_EQ(ask(soif("RDMQUERY", "-", {{"scope", "all"}, {"view-hits", "17"}}), "gatherer", "bare"), 0);
  EXPECT_EQ(answer(), refusal);
  EXPECT_NE(log_.find("\"17 RDs Transfered\" - 0\n"), std::string::npos) << log_;
  support::write_file(catalog_.path() + ".idx", support::index_bytes(1, 0, {}));
  EXPECT_EQ(query({{"scope", "all"}}), 0);
  EXPECT_EQ(answer(), refusal);
  EXPECT_EQ(diagnostics.text(),
            "ERROR: Missing catalog-database for <CSID:bare>\n"
            "ERROR: Indexfile is corrupt: bad magic: " +
                catalog_.path() + ".idx\n");
}

TEST_F(Request, WithoutADatabaseSendsNothing) {
  host_unlink(catalog_.path().c_str());
  const Diagnostics diagnostics;
  EXPECT_EQ(query({{"scope", "all"}}), 1);
  expect_sent({}, "all");
  EXPECT_EQ(diagnostics.text(),
            "ERROR: Cannot read catalog-database: " + catalog_.path() + ": No such file or directory\n");
}

TEST_F(Request, IsRefusedWhileTheDatabasesAreLocked) {
  dbSetOrClearDBLock(0);
  const Diagnostics diagnostics;
  EXPECT_EQ(query({{"scope", "all"}}), 1);
  dbSetOrClearDBLock(1);
  expect_sent({}, "all");
  EXPECT_EQ(diagnostics.text(), "ERROR: Cannot read catalog-database: " + catalog_.path() + ": Invalid argument\n");
}

TEST_F(Request, SendsNothingForACatalogWithoutADatabase) {
  cslist *keys = nullptr;
  cslist_create(&keys);
  const ListPtr owned(keys);
  const Diagnostics diagnostics;
  EXPECT_EQ(rds_send_rd("bare", keys, nullptr, response_.get()), 0);
  EXPECT_EQ(rds_send_rd(nullptr, keys, nullptr, response_.get()), 0);
  EXPECT_EQ(rds_send_rd("", keys, nullptr, response_.get()), 0);
  EXPECT_EQ(rds_send_rd("a\nb", keys, nullptr, response_.get()), 0);
  EXPECT_EQ(rds_send_rd("c", keys, nullptr, response_.get()), 0) << "no keys";
  EXPECT_EQ(diagnostics.text(),
            "ERROR: Require 'catalog-database' for <CSID:bare>\nERROR: Require 'catalog-database' for <CSID:(null)>\n"
            "ERROR: Require 'catalog-database' for <CSID:(empty)>\n"
            "ERROR: Require 'catalog-database' for <CSID:a\\nb>\n");
  EXPECT_EQ(answer(), "");
}

TEST_F(Request, SkipsKeysThatAreNull) {
  cslist *keys = nullptr;
  cslist_create(&keys);
  const ListPtr owned(keys);
  cslist_append(keys, "00000001");
  cslist_append(keys, "00000002");
  std::free(std::exchange(keys->head->data, nullptr));
  EXPECT_EQ(rds_send_rd("c", keys, nullptr, response_.get()), 1);
  EXPECT_EQ(answer(), description(2));
}

TEST_F(Request, LogsCountSizeAndATimeAboveZero) {
  for (const time_t since : {time_t{0}, time_t{-1}}) {
    Exchange x("GET", "/rdm/rd-request");
    cs_dbsearch_log(-3, 4000000000u, since, &x.session, &x.request);
    EXPECT_NE(x.var("rdm-log-message").find("\"-3 RDs Transfered\" - 4000000000\n"), std::string::npos);
  }
  Exchange x("GET", "/rdm/rd-request");
  cs_dbsearch_log(0, 7, 1, &x.session, &x.request);
  EXPECT_NE(x.var("rdm-log-message").find("\"0 RDs Transfered since Thu, 01 Jan 1970 00:00:01 GMT\" - 7\n"),
            std::string::npos);
}

// Regression: when memory for the list of keys failed, the answer was "0 results.", as if nothing had changed; when
// memory for a key failed, it was omitted.
TEST_F(Request, WithoutMemoryForItsKeysSendsNothing) {
  cs_dbindex index{};
  ASSERT_EQ(cs_dbsearch_start("c", &index), 0);
  for (const long failing : {2, 3, 4, 9, 10}) {
    Exchange x("POST", "/rdm/rd-request");
    int32_t count = 0;
    uint32_t bytes = 0;
    host.allocations = 0;
    host.fail_allocation =
        failing;  // after the buffer for the descriptions: the list, then a node and a text for each key
    EXPECT_EQ(send_since("c", &index, 0, nullptr, &count, &bytes, &x.session, &x.request), -1) << failing;
    host.fail_allocation = 0;
    EXPECT_EQ(host.sent, "") << failing;
    EXPECT_EQ(count, 0) << failing;
  }
  host_free(index.entries);
}

}  // namespace
