// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include "libcs/guard.h"
#include "service/rdm.h"
#include "service/support/trace.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Diagnostics;
using support::Exchange;

csio *result_of(const std::string &text, uint32_t max_memory = 0) {
  CsioPtr io = make_csio(max_memory);
  if (!text.empty()) csio_append(io.get(), text.data(), static_cast<int32_t>(text.size()));
  return io.release();
}

class Delivery : public support::HostTest {
 protected:
  int send(csio *result, int header = 1) { return rdm_send_result(header, result, &x_.session, &x_.request); }
  Exchange x_{"POST", "/rdm/incoming"};
};

TEST_F(Delivery, HeaderCarriesTypeLengthAndStatus) {
  const std::pair<uint32_t, const char *> rows[] = {{1234, "1234"}, {UINT32_MAX, "4294967295"}, {0, ""}};
  for (const auto &[length, text] : rows) {
    Exchange x("POST", "/rdm/incoming");
    host.responses_started = 0;
    EXPECT_EQ(rdm_send_http_header(length, &x.session, &x.request), HOST_DONE);
    EXPECT_EQ(x.response("content-type"), "application/x-rdm");
    EXPECT_EQ(x.response("content-length"), text);
    EXPECT_EQ(x.responses("content-length"), length != 0 ? 1 : 0);
    EXPECT_EQ(host.status, 200);
    EXPECT_EQ(host.reason, "");
    EXPECT_EQ(host.responses_started, 1);
  }
}

TEST_F(Delivery, HeaderIsCompleteBeforeItGoesOut) {
  static std::string seen;
  qxapi_host table = support::memory_host();
  table.start_response = [](Session *, Request *rq) {
    for (const char *name : {"content-type", "content-length"}) {
      const char *value = host_param_find(name, rq->response);
      seen += std::string(value == nullptr ? "(none)" : value) + " ";
    }
    seen += std::to_string(rq->status);
    return 42;
  };
  qxapi_bind(&table);
  x_.request.status = 500;
  EXPECT_EQ(rdm_send_http_header(7, &x_.session, &x_.request), 42) << "the result is the host's";
  EXPECT_EQ(seen, "application/x-rdm 7 200");
}

TEST_F(Delivery, AHeaderThatTheHostRefusesDoesNotStopTheAnswer) {
  qxapi_host table = support::memory_host();
  table.start_response = [](Session *, Request *) -> int { return HOST_ABORT; };
  qxapi_bind(&table);
  EXPECT_EQ(send(result_of("answer")), 0);
  EXPECT_EQ(host.sent, "answer");
}

TEST_F(Delivery, AsksItsHostInOrder) {
  Exchange file("GET", "/rdm/incoming");
  csio *result = result_of(std::string(50000, 'x'), 32768);
  const std::string path = result->filename;
  const support::Trace trace;
  EXPECT_EQ(send(result_of("answer")), 0);
  EXPECT_EQ(x_.response("content-length"), "6");
  EXPECT_EQ(rdm_send_result(1, result, &file.session, &file.request), 0);
  const std::vector<std::string> expected = {"set_status 200",   "start_response", "net_write 6",
                                             "set_status 200",   "start_response", "open_read " + path,
                                             "buffer_open 4096", "buffer_send",    "buffer_close"};
  EXPECT_EQ(trace.calls(), expected);
}

TEST_F(Delivery, SendsTheFileRatherThanTheMemory) {
  csio *result = result_of("memory");
  csio_dup2file(result);
  ASSERT_EQ(result->flags, 0x11u);
  support::write_file(result->filename, "a file");
  EXPECT_EQ(send(result), 0);
  EXPECT_EQ(host.sent, "a file");
}

TEST_F(Delivery, HeaderKeepsFieldsThatAreSet) {
  host_param_add("content-type", "text/plain", x_.request.response);
  host_param_add("content-length", "7", x_.request.response);
  rdm_send_http_header(1234, &x_.session, &x_.request);
  EXPECT_EQ(x_.response("content-type"), "text/plain");
  EXPECT_EQ(x_.response("content-length"), "7");
  EXPECT_EQ(x_.responses("content-type"), 1);
  EXPECT_EQ(x_.responses("content-length"), 1);
}

TEST_F(Delivery, SendsNoHeaderIfNoneIsWanted) {
  EXPECT_EQ(send(result_of("answer"), 0), 0);
  EXPECT_EQ(host.sent, "answer");
  EXPECT_EQ(host.responses_started, 0);
  EXPECT_EQ(x_.response("content-length"), "");
}

TEST_F(Delivery, SendsAFileAndRemovesItWithItsBuffer) {
  const std::string text(100000, 'x');
  csio *result = result_of(text, 32768);
  const std::string path = result->filename;
  EXPECT_EQ(send(result), 0);
  EXPECT_EQ(host.sent, text);
  EXPECT_EQ(x_.response("content-length"), "100000");
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(Delivery, SendsTheBytesOfAFileThatWaitInMemory) {
  csio *result = result_of(std::string(50000, 'x'), 32768);
  csio_append(result, "the end", 7);
  ASSERT_EQ(result->wbuf_len, 7);
  EXPECT_EQ(send(result), 0);
  EXPECT_EQ(host.sent, std::string(50000, 'x') + "the end");
  EXPECT_EQ(x_.response("content-length"), "50007");
}

TEST_F(Delivery, ReportsALostClientFromLevelZeroUp) {
  host.fail_net_write = true;
  {
    const Diagnostics diagnostics(0);
    errno = EPIPE;
    EXPECT_EQ(send(result_of("answer")), -1);
    EXPECT_EQ(diagnostics.text(), "ERROR: Network write failure: Broken pipe\n");
  }
  const Diagnostics diagnostics(-1);
  EXPECT_EQ(send(result_of("answer")), -1);
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Delivery, ReportsAFileThatCannotBeTransmitted) {
  host.fail_net_write = true;
  EXPECT_EQ(send(result_of(std::string(50000, 'x'), 32768)), -1);
  EXPECT_EQ(host.reports, std::vector<std::string>{"0 rdm-service: RDM Error during transmission.\n"});
}

TEST_F(Delivery, ReportsAFileWithoutAReader) {
  csio *result = result_of(std::string(50000, 'x'), 32768);
  csio_finish(result);
  const std::string path = result->filename;
  const long descriptors = support::open_descriptors();
  qxapi_host table = support::memory_host();
  table.buffer_open = [](host_fd, int) -> host_buffer * { return nullptr; };
  qxapi_bind(&table);
  EXPECT_EQ(send(result), -1);
  EXPECT_EQ(host.reports, std::vector<std::string>{"0 rdm-service: RDM Result is not readable?\n"});
  EXPECT_EQ(support::open_descriptors(), descriptors);
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(Delivery, ReportsAFileThatIsGone) {
  csio *result = result_of(std::string(50000, 'x'), 32768);
  csio_finish(result);
  host_unlink(result->filename);
  EXPECT_EQ(send(result), -1);
  EXPECT_EQ(host.reports, std::vector<std::string>{"0 rdm-service: RDM Result is not readable?\n"});
  EXPECT_EQ(host.responses_started, 1) << "the status line has gone out before";
}

struct BadResult {
  const char *name;
  uint32_t flags;
  uint32_t length;
  const char *bytes;  // in memory, null for none
  std::string diagnostics;
};

TEST_F(Delivery, ReportsEveryKindOfBadResult) {
  const std::string bad = "ERROR: RDM Engine generated a bad result?\n";
  const BadResult rows[] = {
      {"memory that holds nothing", 0x01, 0, "text", bad + "ERROR: \tZero length result.\n"},
      {"an empty memory buffer", 0x01, 0, nullptr,
       bad + "ERROR: \tZero length result.\nERROR: \tMemeory-based with no memory?\n"},
      {"memory without data", 0x01, 5, nullptr, bad + "ERROR: \tMemeory-based with no memory?\n"},
      {"a file without a name", 0x10, 5, nullptr, bad + "ERROR: \tFile-based with no filename?\n"},
      {"an empty file without a name", 0x10, 0, nullptr,
       bad + "ERROR: \tZero length result.\nERROR: \tFile-based with no filename?\n"},
      {"no backing", 0, 5, nullptr, bad},
  };
  for (const BadResult &row : rows) {
    const Diagnostics diagnostics;
    CsioPtr result(result_of(row.bytes != nullptr ? row.bytes : ""));
    result->flags = row.flags;
    result->length = row.length;
    EXPECT_EQ(send(result.release()), -1) << row.name;
    EXPECT_EQ(diagnostics.text(), row.diagnostics) << row.name;
    EXPECT_EQ(host.sent, "") << row.name;
  }
  EXPECT_EQ(host.responses_started, 6) << "the header goes out first";
  const Diagnostics diagnostics;
  EXPECT_EQ(send(nullptr), -1);
  EXPECT_EQ(diagnostics.text(), bad + "ERROR: \tInvalid 'result'?\n");
}

}  // namespace
