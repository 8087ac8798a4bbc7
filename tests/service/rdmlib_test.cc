// SPDX-License-Identifier: MIT
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "service/message.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Exchange;

constexpr char csid[] = "x-catalog://localhost:80/books";

class Handlers : public support::HostTest {
 protected:
  void SetUp() override {
    input_ = make_csio();
    output_ = make_csio(32768);
    append_text(output_.get(), "left over");
  }
  void TearDown() override {
    header_.reset();
    input_.reset();
    output_.reset();
    support::HostTest::TearDown();
  }

  /// respond runs the handler of a message type and returns the handler's result.
  int32_t respond(int32_t type) {
    header_ = make_rdmhdr(type);
    header_->csid = host_strdup(csid);
    gzip_ = 9;
    int32_t status = 9;
    EXPECT_EQ(rdm_get_response(header_.get(), input_.get(), &exchange_.session, &exchange_.request, output_.get(),
                               &gzip_, &status),
              0);
    return status;
  }

  std::string output() {
    std::string bytes(output_->length, '\0');
    csio_rewind(output_.get());
    csio_copy(output_.get(), bytes.data(), static_cast<int32_t>(bytes.size()));
    return bytes;
  }

  Exchange exchange_{"POST", "/rdm/incoming"};
  RdmHeaderPtr header_;
  CsioPtr input_, output_;
  int32_t gzip_ = 0;
};

std::string answer(const std::string &type, const std::string &message) {
  return support::soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", type}, {"rdm-error-message", message}}) +
         "\n\n";
}

TEST_F(Handlers, StatusAnswersThatTheServerIsOnline) {
  EXPECT_EQ(respond(RDM_STATUS_REQUEST), 0);
  EXPECT_EQ(output(), "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{15}:\tstatus-response\n}\n\n\n\n\nOnline.\n");
  EXPECT_EQ(output_->finished, 1);
  EXPECT_NE(exchange_.var("rdm-log-message").find("\"STATUS OK sent\" - -\n"), std::string::npos);
}

TEST_F(Handlers, StatusIllegalAnswersThatTheInteractionIsIllegal) {
  header_ = make_rdmhdr(RDM_STATUS_REQUEST);
  EXPECT_EQ(status_illegal(header_.get(), input_.get(), output_.get(), &exchange_.session, &exchange_.request), 0);
  EXPECT_EQ(output(), answer("status-response", "Illegal RDM interaction."));
  EXPECT_EQ(output_->finished, 0);
  EXPECT_NE(exchange_.var("rdm-log-message").find("\"STATUS Illegal sent\" - -\n"), std::string::npos);
}

TEST_F(Handlers, EveryMessageWithoutAHandlerIsNotSupported) {
  const std::pair<int32_t, const char *> rows[] = {
      {RDM_RD_DELETE_REQUEST, "rd-delete-request"},
      {RDM_RD_RESPONSE, "rd-response"},
      {RDM_RD_DELETE_RESPONSE, "rd-delete-response"},
      {RDM_SERVER_RESPONSE, "server-description-response"},
      {RDM_SCHEMA_RESPONSE, "schema-description-response"},
      {RDM_TAXONOMY_RESPONSE, "taxonomy-description-response"},
      {RDM_STATUS_RESPONSE, "status-response"},
      {RDM_UNKNOWN, "Unknown"},
      {13, "Unknown"},
      {-1, "Unknown"},
  };
  for (const auto &[type, name] : rows) {
    EXPECT_EQ(respond(type), 0);
    EXPECT_EQ(output(),
              answer("status-response", "RDM-Type=" + std::string(name) + " is not supported by this RDM server."));
    EXPECT_EQ(exchange_.var("rdm-log-message"), "") << "the default handler writes no transaction line";
  }
}

TEST_F(Handlers, NeverCompress) {
  for (int32_t type = 0; type <= 13; ++type) {
    respond(type);
    EXPECT_EQ(gzip_, 0) << type;
  }
  EXPECT_EQ(rdm_encode_gzip(), 0);
  EXPECT_EQ(rdm_decode_gzip(), 0);
  run_rdmgr_request();
}

struct DescriptionRow {
  int32_t request;
  const char *key, *logged, *response, *unavailable;
};

const DescriptionRow descriptions[] = {
    {RDM_SERVER_REQUEST, "server-description", "SERVER sent", "server-description-response",
     "Server description is unavailable."},
    {RDM_SCHEMA_REQUEST, "schema-description", "Sent Schema", "schema-description-response",
     "Schema description is unavailable."},
    {RDM_TAXONOMY_REQUEST, "taxonomy-description", "Sent Taxonomy", "taxonomy-description-response",
     "Taxonomy is unavailable."},
};

TEST_F(Handlers, DescriptionsAreTheirFilesByName) {
  for (const DescriptionRow &row : descriptions) {
    const support::TemporaryDirectory directory;
    const std::string path = directory.write("description", std::string("any\0bytes\n", 10));
    const support::Registry registry(directory,
                                     "csid=\"" + std::string(csid) + "\" " + row.key + "=\"" + path + "\"\n");
    Exchange exchange("GET", "/rdm/incoming");
    header_ = make_rdmhdr(row.request);
    header_->csid = host_strdup(csid);
    CsioPtr file = make_csio();
    append_text(file.get(), "left over");
    int32_t status = 9;
    rdm_get_response(header_.get(), input_.get(), &exchange.session, &exchange.request, file.get(), &gzip_, &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(file->flags, 0x10u);
    EXPECT_STREQ(file->filename, path.c_str());
    EXPECT_EQ(file->remove_file, 0);
    EXPECT_EQ(file->length, 10u);
    EXPECT_NE(exchange.var("rdm-log-message").find(std::string("\"") + row.logged + "\" - -\n"), std::string::npos);

    host.sent.clear();
    EXPECT_EQ(rdm_send_result(1, file.release(), &exchange.session, &exchange.request), 0);
    EXPECT_EQ(host.sent, std::string("any\0bytes\n", 10));
    EXPECT_EQ(exchange.response("content-length"), "10");
    EXPECT_TRUE(support::file_exists(path)) << "a description is not the buffer's to remove";
  }
}

TEST_F(Handlers, DescriptionsThatAreNotConfiguredOrHaveNoFileAreUnavailable) {
  const support::TemporaryDirectory directory;
  for (const DescriptionRow &row : descriptions)
    for (const std::string &pair : {std::string(), std::string(row.key) + "=\"" + directory.path("missing") + "\""}) {
      const support::Registry registry(directory, "csid=\"" + std::string(csid) + "\" " + pair + "\n");
      EXPECT_EQ(respond(row.request), 0);
      EXPECT_EQ(output(), answer(row.response, row.unavailable)) << pair;
      EXPECT_EQ(exchange_.var("rdm-log-message"), "");
    }
  // Nor are they available without a catalog.
  header_ = make_rdmhdr(RDM_SERVER_REQUEST);
  EXPECT_EQ(sd_request(header_.get(), input_.get(), output_.get(), &exchange_.session, &exchange_.request), 0);
  EXPECT_EQ(output(), answer("server-description-response", "Server description is unavailable."));
}

// Lengths have 32 bits. Regression: the reason for the refusal was not logged.
TEST_F(Handlers, ADescriptionBeyondTheLongestLengthIsUnavailable) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("description", "");
  const support::Registry registry(directory,
                                   "csid=\"" + std::string(csid) + "\" server-description=\"" + path + "\"\n");
  std::filesystem::resize_file(path, 0xFFFFFFFF);
  const support::Diagnostics diagnostics;
  EXPECT_EQ(respond(RDM_SERVER_REQUEST), 0);
  EXPECT_STREQ(output_->filename, path.c_str());
  EXPECT_EQ(output_->length, 0xFFFFFFFFu);
  EXPECT_EQ(diagnostics.text(), "");
  std::filesystem::resize_file(path, 0x100000000);
  output_ = make_csio(32768);
  EXPECT_EQ(respond(RDM_SERVER_REQUEST), 0);
  EXPECT_EQ(output(), answer("server-description-response", "Server description is unavailable."));
  EXPECT_EQ(diagnostics.text(), "ERROR: Description is too large to be sent: " + path + ": 4294967296 bytes\n");
}

/// A file for which stat() succeeds is named; delivery reports that it cannot be read.
TEST_F(Handlers, ADescriptionThatIsADirectoryIsNamedLikeAFile) {
  const support::TemporaryDirectory directory;
  const support::Registry registry(directory,
                                   "csid=\"" + std::string(csid) + "\" server-description=" + directory.path() + "\n");
  EXPECT_EQ(respond(RDM_SERVER_REQUEST), 0);
  EXPECT_STREQ(output_->filename, directory.path().c_str());
}

TEST_F(Handlers, AnAnswerInAFileIsGoneBeforeTheDescriptionIsNamed) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("description", "text");
  const support::Registry registry(directory,
                                   "csid=\"" + std::string(csid) + "\" server-description=\"" + path + "\"\n");
  append_text(output_.get(), std::string(40000, 'x'));
  const std::string temporary = output_->filename;
  EXPECT_EQ(respond(RDM_SERVER_REQUEST), 0);
  EXPECT_FALSE(support::file_exists(temporary));
  EXPECT_STREQ(output_->filename, path.c_str());
  EXPECT_EQ(output_->length, 4u);
}

TEST_F(Handlers, AnEmptyDescriptionIsReportedWhenItIsSent) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("description", "");
  const support::Registry registry(directory,
                                   "csid=\"" + std::string(csid) + "\" server-description=\"" + path + "\"\n");
  respond(RDM_SERVER_REQUEST);
  const support::Diagnostics diagnostics;
  EXPECT_EQ(rdm_send_result(1, output_.release(), &exchange_.session, &exchange_.request), -1);
  EXPECT_EQ(host.sent, "");
  EXPECT_EQ(host.responses_started, 1);
  EXPECT_EQ(diagnostics.text(), "ERROR: RDM Engine generated a bad result?\nERROR: \tZero length result.\n");
}

}  // namespace
