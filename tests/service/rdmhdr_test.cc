// SPDX-License-Identifier: MIT
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "service/message.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Diagnostics;

CsioPtr buffer_of(const std::string &text) {
  CsioPtr io = make_csio();
  append_text(io.get(), text);
  return io;
}

std::string bytes_of(csio *io) {
  std::string bytes(io->length, '\0');
  csio_rewind(io);
  EXPECT_EQ(csio_copy(io, bytes.data(), static_cast<int32_t>(bytes.size())), static_cast<int32_t>(bytes.size()));
  return bytes;
}

std::string printed(const rdmhdr *header) {
  const CsioPtr io = make_csio();
  EXPECT_EQ(rdmhdr_print(header, io.get()), 0);
  return bytes_of(io.get());
}

std::string header_with(const std::vector<std::pair<std::string, std::string>> &attributes) {
  return support::soif("RDMHEADER", "-", attributes);
}

class RdmHeader : public support::HostTest {
 protected:
  RdmHeader() : header_(make_rdmhdr(RDM_UNKNOWN)) {}
  void TearDown() override {
    header_.reset();
    support::HostTest::TearDown();
  }
  int parse(const std::string &text) { return rdmhdr_parse(buffer_of(text).get(), header_.get()); }
  /// expect_reset asserts that the record holds only its version.
  void expect_reset() {
    EXPECT_STREQ(header_->version, "1.0");
    EXPECT_EQ(header_->type, RDM_UNKNOWN);
    EXPECT_EQ(header_->query_language, nullptr);
    EXPECT_EQ(header_->response_interpret, nullptr);
    EXPECT_EQ(header_->csid, nullptr);
    EXPECT_EQ(header_->error_message, nullptr);
    EXPECT_EQ(header_->error_code, 0);
  }
  RdmHeaderPtr header_;
};

TEST_F(RdmHeader, IsCreatedWithEveryFieldZero) {
  qxapi_host table = support::memory_host();
  table.alloc = [](size_t size) {
    void *const block = support::memory_host().alloc(size);
    return block != nullptr ? std::memset(block, 0xFF, size) : nullptr;
  };
  qxapi_bind(&table);
  rdmhdr *record = nullptr;
  rdmhdr_create(&record);
  EXPECT_EQ(record->version, nullptr);
  EXPECT_EQ(record->type, RDM_UNKNOWN);
  EXPECT_EQ(record->query_language, nullptr);
  EXPECT_EQ(record->response_interpret, nullptr);
  EXPECT_EQ(record->csid, nullptr);
  EXPECT_EQ(record->error_message, nullptr);
  EXPECT_EQ(record->error_code, 0);
  rdmhdr_destroy(record);
}

TEST_F(RdmHeader, PrintsEveryAttributeInTheOrderOfTheWire) {
  header_->type = RDM_RD_RESPONSE;
  header_->query_language = host_strdup("gatherer");
  header_->response_interpret = host_strdup("none");
  header_->csid = host_strdup("x-catalog://localhost:80/a");
  header_->error_message = host_strdup("Oh.");
  header_->error_code = 17;
  EXPECT_EQ(printed(header_.get()),
            "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{11}:\trd-response\nrdm-query-language{8}:\tgatherer\n"
            "rdm-response-interpret{4}:\tnone\ncatalog-service-id{26}:\tx-catalog://localhost:80/a\n"
            "rdm-error-message{3}:\tOh.\nrdm-error-code{2}:\t17\n}\n\n\n");
}

TEST_F(RdmHeader, PrintsOnlyVersionAndTypeOfAnEmptyRecord) {
  host_free(header_->version);
  header_->version = host_strdup("7.7");  // not printed
  EXPECT_EQ(printed(header_.get()), "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{7}:\tUnknown\n}\n\n\n");
  rdmhdr_destroy(nullptr);
}

TEST_F(RdmHeader, IsInItsFileOnceItIsPrinted) {
  const CsioPtr io = buffer_of("before\n");
  csio_convert2file(io.get());
  EXPECT_EQ(rdmhdr_print(header_.get(), io.get()), 0);
  EXPECT_EQ(support::read_file(io->filename), "before\n" + printed(header_.get()));
}

TEST_F(RdmHeader, PrintsNoErrorCodeUnlessItIsAboveZero) {
  for (int32_t code : {0, -1, INT32_MIN}) {
    header_->error_code = code;
    EXPECT_EQ(printed(header_.get()).find("rdm-error-code"), std::string::npos) << code;
  }
  header_->error_code = INT32_MAX;
  EXPECT_NE(printed(header_.get()).find("rdm-error-code{10}:\t2147483647\n"), std::string::npos);
}

struct TypeRow {
  const char *received;
  int32_t type;
  const char *printed;
};

TEST_F(RdmHeader, MapsEveryTypeNameToItsCodeAndBack) {
  const TypeRow rows[] = {
      {"rd-request", 1, "rd-request"},
      {"rd-update-request", 1, "rd-request"},
      {"RD-Update-Request", 1, "rd-request"},
      {"rd-delete-request", 2, "rd-delete-request"},
      {"rd-response", 3, "rd-response"},
      {"rd-update-response", 3, "rd-response"},
      {"rd-delete-response", 4, "rd-delete-response"},
      {"server-description-request", 5, "server-description-request"},
      {"server-request", 5, "server-description-request"},
      {"server-description-response", 6, "server-description-response"},
      {"server-response", 6, "server-description-response"},
      {"schema-description-request", 7, "schema-description-request"},
      {"schema-request", 7, "schema-description-request"},
      {"schema-description-response", 8, "schema-description-response"},
      {"schema-response", 8, "schema-description-response"},
      {"taxonomy-description-request", 9, "taxonomy-description-request"},
      {"taxonomy-request", 9, "taxonomy-description-request"},
      {"taxonomy-description-response", 10, "taxonomy-description-response"},
      {"taxonomy-response", 10, "taxonomy-description-response"},
      {"status-request", 11, "status-request"},
      {"status-response", 12, "status-response"},
      {"STATUS-RESPONSE", 12, "status-response"},
      {"anything", 0, "Unknown"},
      {"rd-request ", 0, "Unknown"},
  };
  for (const TypeRow &row : rows) {
    ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"}, {"rdm-type", row.received}})), 0) << row.received;
    EXPECT_EQ(header_->type, row.type) << row.received;
    EXPECT_NE(printed(header_.get()).find(std::string(":\t") + row.printed + "\n"), std::string::npos) << row.received;
  }
}

TEST_F(RdmHeader, NamesEveryCodeOutsideTheTableUnknown) {
  for (int32_t type : {-1, 0, 13, INT32_MAX}) EXPECT_STREQ(rdm_type_name(type), "Unknown");
}

TEST_F(RdmHeader, TakesEveryFieldThatItKnows) {
  ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"},
                               {"rdm-type", "rd-request"},
                               {"rdm-query-language", "gatherer"},
                               {"rdm-response-interpret", "not taken"},
                               {"catalog-service-id", "x-catalog://h:1/n"},
                               {"rdm-error-message", "Oh."},
                               {"rdm-error-code", " 42 things"}})),
            0);
  EXPECT_STREQ(header_->query_language, "gatherer");
  EXPECT_EQ(header_->response_interpret, nullptr);
  EXPECT_STREQ(header_->csid, "x-catalog://h:1/n");
  EXPECT_STREQ(header_->error_message, "Oh.");
  EXPECT_EQ(header_->error_code, 42);
}

TEST_F(RdmHeader, WithoutACatalogTakesTheDefaultOrUnknown) {
  const support::TemporaryDirectory directory;
  {
    const support::Registry registry(directory, "csid=\"x-catalog://h:1/n\"\n", "x-catalog://h:1/n");
    ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"}})), 0);
    EXPECT_STREQ(header_->csid, "x-catalog://h:1/n");
    EXPECT_EQ(header_->type, RDM_UNKNOWN);
    ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"}, {"catalog-service-id", ""}})), 0);
    EXPECT_STREQ(header_->csid, "") << "an empty one is kept";
  }
  {
    const support::Registry registry(directory, "", "");
    ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"}})), 0);
    EXPECT_STREQ(header_->csid, "unknown") << "an empty default is ignored";
  }
  ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"}})), 0);
  EXPECT_STREQ(header_->csid, "unknown");
}

TEST_F(RdmHeader, IsResetEvenIfParsingFails) {
  const std::string bad[] = {"", "hello", support::soif("RDMQUERY", "-", {{"rdm-version", "1.0"}}),
                             header_with({{"rdm-type", "rd-request"}}), header_with({{"rdm-version", "2"}})};
  for (const std::string &text : bad) {
    header_->type = RDM_RD_RESPONSE;
    for (char **field :
         {&header_->query_language, &header_->response_interpret, &header_->csid, &header_->error_message})
      *field = host_strdup("old");
    header_->error_code = 5;
    EXPECT_NE(parse(text), 0) << text;
    expect_reset();
  }
}

TEST_F(RdmHeader, ReadsAnErrorCodeAsANumber) {
  const std::pair<const char *, int32_t> rows[] = {
      {"7", 7}, {"-7", -7}, {"0x10", 0}, {"", 0}, {"seven", 0}, {"\t12.5", 12}, {"99999999999", INT32_MAX}};
  for (const auto &[text, code] : rows) {
    ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"}, {"rdm-error-code", text}})), 0) << text;
    EXPECT_EQ(header_->error_code, code) << text;
  }
}

TEST_F(RdmHeader, ComparesTheWholeVersion) {
  for (const char *version : {"1", "1.00", "1.0 ", "", "01.0"})
    EXPECT_EQ(parse(header_with({{"rdm-version", version}})), 2) << version;
}

TEST_F(RdmHeader, IsReadFromTheBuffersReadPosition) {
  const CsioPtr io = buffer_of("junk" + header_with({{"rdm-version", "1.0"}, {"rdm-type", "status-request"}}));
  char skipped[4];
  ASSERT_EQ(csio_copy(io.get(), skipped, 4), 4);
  EXPECT_EQ(rdmhdr_parse(io.get(), header_.get()), 0);
  EXPECT_EQ(header_->type, RDM_STATUS_REQUEST);
}

TEST_F(RdmHeader, UsesOnlyTheFirstObject) {
  EXPECT_EQ(parse(header_with({{"rdm-version", "1.0"}, {"rdm-type", "status-request"}}) +
                  header_with({{"rdm-version", "9.9"}, {"rdm-type", "rd-request"}})),
            0);
  EXPECT_EQ(header_->type, RDM_STATUS_REQUEST);
}

struct BadHeader {
  const char *name;
  std::string text;
  int result;
  std::string diagnostics;
};

TEST_F(RdmHeader, RefusesOtherTextsAndLogsTheReason) {
  const BadHeader rows[] = {
      {"nothing at all", "", 1, "ERROR: No data for header.\n"},
      {"no object", "hello\n", 1, "ERROR: Invalid RDMHEADER specification...\n"},
      {"a syntax error", "@RDMHEADER { -\nrdm-version{3}:1.0\n}\n", 1, "ERROR: Invalid RDMHEADER specification...\n"},
      {"another template", support::soif("RDMQUERY", "-", {{"rdm-version", "1.0"}}), 1,
       "ERROR: Mismatched RDMHEADER specification: RDMQUERY\n"},
      {"no version", header_with({{"rdm-type", "status-request"}}), 1, "ERROR: No rdm-version?\n"},
      {"another version", header_with({{"rdm-version", "1.1"}}), 2, "ERROR: Unsupported rdm-version: '1.1'\n"},
      {"a version that reads like a format", header_with({{"rdm-version", "%s%n"}}), 2,
       "ERROR: Unsupported rdm-version: '%s%n'\n"},
      {"a version that would start a line of the log", header_with({{"rdm-version", "1\nERROR:\t\x1b\x7f"}}), 2,
       "ERROR: Unsupported rdm-version: '1\\nERROR:\\t\\x1b\\x7f'\n"},
      {"a template that would command a terminal", support::soif("\x1b[2J", "-", {{"rdm-version", "1.0"}}), 1,
       "ERROR: Mismatched RDMHEADER specification: \\x1b[2J\n"},
  };
  for (const BadHeader &row : rows) {
    const Diagnostics diagnostics;
    EXPECT_EQ(parse(row.text), row.result) << row.name;
    EXPECT_EQ(diagnostics.text(), row.diagnostics) << row.name;
    expect_reset();
  }
}

TEST_F(RdmHeader, AcceptsItsTemplateInAnyLetterCase) {
  EXPECT_EQ(parse(support::soif("rdmHeader", "-", {{"rdm-version", "1.0"}})), 0);
}

/// header_closing_at returns a header whose closing brace is byte `closing` of the text, counted from 1.
std::string header_closing_at(size_t closing) {
  const std::string shortest = header_with({{"rdm-version", "1.0"}, {"rdm-error-message", "x"}});
  const size_t grown = closing - (shortest.size() - 1) + 1;
  const size_t digits = std::to_string(grown).size() - 1;
  return header_with({{"rdm-version", "1.0"}, {"rdm-error-message", std::string(grown - digits, '}')}});
}

TEST_F(RdmHeader, MustCloseWithinTheLimitWhenMoreFollows) {
  const std::string fits = header_closing_at(1023), too_long = header_closing_at(1024);
  ASSERT_EQ(fits.find("\n}\n"), 1021u);
  ASSERT_EQ(too_long.find("\n}\n"), 1022u);
  EXPECT_EQ(parse(fits), 0);
  EXPECT_EQ(parse(too_long), 1);
}

TEST_F(RdmHeader, UncutAndUnclosedIsAccepted) {
  EXPECT_EQ(parse("@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{14}:\tstatus-request\n"), 0);
  EXPECT_EQ(header_->type, RDM_STATUS_REQUEST);
}

TEST_F(RdmHeader, BecomesTheAnswersHeader) {
  ASSERT_EQ(parse(header_with({{"rdm-version", "1.0"}, {"rdm-type", "rd-request"}, {"rdm-query-language", "q"}})), 0);
  rdm_answer(header_.get(), RDM_STATUS_RESPONSE, "No.");
  EXPECT_EQ(
      printed(header_.get()),
      "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\nrdm-error-message{3}:\tNo.\n}\n\n\n");
}

}  // namespace
