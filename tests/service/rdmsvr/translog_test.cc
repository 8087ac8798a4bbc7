// SPDX-License-Identifier: MIT
#include <regex>

#include <gtest/gtest.h>

#include "service/rdm.h"
#include "service/support/trace.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Exchange;
using support::TemporaryDirectory;

class TransactionLog : public support::HostTest {
 protected:
  void SetUp() override {
    path_ = directory_.path("transactions.log");
    rdm_log_crit = host_crit_create();
    logfd = host_open_append(path_.c_str());
  }
  void TearDown() override {
    rdm_log_terminate();
    host_free(rdm_log_crit);
    rdm_log_crit = nullptr;
    support::HostTest::TearDown();
  }
  TemporaryDirectory directory_;
  std::string path_;
};

/// The documented example, byte for byte, in any time zone.
TEST_F(TransactionLog, LinesCarryTheTimeInUtc) {
  const support::Environment zone("TZ", "XYZ-5:30");
  qxapi_host table = support::memory_host();
  table.gmtime = [](const time_t *, struct tm *out) {
    const time_t then = 1794800467;
    return ::gmtime_r(&then, out);
  };
  qxapi_bind(&table);
  Exchange x("GET", "/rdm/incoming");
  EXPECT_EQ(rdm_log_add("STATUS OK sent", nullptr, nullptr, &x.session, &x.request), 0);
  EXPECT_EQ(x.var("rdm-log-message"), "192.0.2.7 - - [16/Nov/2026:03:41:07 -0000] \"STATUS OK sent\" - -\n");

  table.gmtime = [](const time_t *, struct tm *) -> struct tm * { return nullptr; };
  qxapi_bind(&table);
  Exchange y("GET", "/rdm/incoming");
  EXPECT_EQ(rdm_log_add("m", "a", "b", &y.session, &y.request), 0);
  EXPECT_EQ(y.var("rdm-log-message"), "192.0.2.7 - - [] \"m\" a b\n") << "no time is an empty text";
}

TEST_F(TransactionLog, EachLineCarriesTheTimeAtWhichItIsWritten) {
  static time_t now;
  qxapi_host table = support::memory_host();
  table.gmtime = [](const time_t *, struct tm *out) { return ::gmtime_r(&now, out); };
  qxapi_bind(&table);
  const struct {
    time_t time;
    const char *text;
  } rows[] = {
      {1794800467, "16/Nov/2026:03:41:07"},
      {1794800467, "16/Nov/2026:03:41:07"},
      {1794800468, "16/Nov/2026:03:41:08"},
      {1794800468 + 60, "16/Nov/2026:03:42:08"},
      {1794800468 + 3600, "16/Nov/2026:04:41:08"},
      {1794800468 + 86400, "17/Nov/2026:03:41:08"},
      {1794800468 + 365 * 86400, "16/Nov/2027:03:41:08"},
      {1794800467, "16/Nov/2026:03:41:07"},
  };
  for (const auto &row : rows) {
    now = row.time;
    Exchange x("GET", "/rdm/incoming");
    EXPECT_EQ(rdm_log_add("m", nullptr, nullptr, &x.session, &x.request), 0);
    EXPECT_EQ(x.var("rdm-log-message"), std::string("192.0.2.7 - - [") + row.text + " -0000] \"m\" - -\n");
  }
}

TEST_F(TransactionLog, LinesCarryThePresentTime) {
  static time_t asked;
  qxapi_host table = support::memory_host();
  table.gmtime = [](const time_t *t, struct tm *out) {
    asked = *t;
    return ::gmtime_r(t, out);
  };
  qxapi_bind(&table);
  const time_t before = std::time(nullptr);
  Exchange x("GET", "/rdm/incoming");
  rdm_log_add("m", nullptr, nullptr, &x.session, &x.request);
  EXPECT_GE(asked, before);
  EXPECT_LE(asked, std::time(nullptr));
}

/// Each line is a single write inside rdm_log_crit.
TEST_F(TransactionLog, LinesAreWrittenAtOnceInsideTheirSection) {
  Exchange x("GET", "/rdm/incoming");
  host_param_add("rdm-log-message", "the line\n", x.request.vars);
  const support::Trace trace;
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
  EXPECT_EQ(trace.calls(), (std::vector<std::string>{"enter log", "write_log the line\n", "exit log"}));
}

TEST_F(TransactionLog, WithNothingToWriteTheSectionIsLeftAlone) {
  Exchange x("GET", "/rdm/incoming");
  const support::Trace trace;
  rdm_log(nullptr, &x.session, &x.request);
  host_param_add("rdm-log-message", "", x.request.vars);
  rdm_log(nullptr, &x.session, &x.request);
  EXPECT_EQ(trace.calls(), std::vector<std::string>{});
  EXPECT_EQ(support::read_file(path_), "");
}

/// Regression: the descriptor was tested before the section was entered. If the log was closed meanwhile, the line went
/// to the next file with the same descriptor.
TEST_F(TransactionLog, ALineThatWaitsWhileTheLogIsClosedIsDropped) {
  static std::string next_path;
  static host_fd next;
  next_path = directory_.write("next", "");
  qxapi_host table = support::memory_host();
  table.crit_enter = [](host_crit *section) {
    host_close(logfd);
    next = host_open_append(next_path.c_str());
    EXPECT_EQ(next, std::exchange(logfd, -1)) << "the lowest descriptor is free again";
    support::memory_host().crit_enter(section);
  };
  qxapi_bind(&table);
  Exchange x("GET", "/rdm/incoming");
  host_param_add("rdm-log-message", "the line\n", x.request.vars);
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
  table = support::memory_host();
  qxapi_bind(&table);
  host_close(next);
  EXPECT_EQ(support::read_file(next_path), "");
}

TEST_F(TransactionLog, IsClosedInsideItsSection) {
  static std::vector<int> depths;
  depths.clear();
  qxapi_host table = support::memory_host();
  table.close = [](host_fd fd) {
    depths.push_back(support::host_record().crit_depth);
    return support::memory_host().close(fd);
  };
  qxapi_bind(&table);
  rdm_log_terminate();
  EXPECT_EQ(depths, std::vector<int>{1});
  EXPECT_EQ(host.crit_depth, 0);
}

/// If rdm_init fails before it creates the sections, the log is closed all the same.
TEST_F(TransactionLog, WithoutASectionIsWrittenAndClosedToo) {
  host_free(std::exchange(rdm_log_crit, nullptr));
  Exchange x("GET", "/rdm/incoming");
  host_param_add("rdm-log-message", "the line\n", x.request.vars);
  rdm_log(nullptr, &x.session, &x.request);
  rdm_log_terminate();
  EXPECT_EQ(logfd, -1);
  EXPECT_EQ(support::read_file(path_), "the line\n");
}

TEST_F(TransactionLog, ErrorsInWritingAreIgnored) {
  rdm_log_terminate();
  logfd = host_open_write("/dev/full");
  Exchange x("GET", "/rdm/incoming");
  host_param_add("rdm-log-message", "the line\n", x.request.vars);
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
}

TEST_F(TransactionLog, MissingTextsPrintAsDashes) {
  Exchange x("GET", "/rdm/incoming");
  host_param_free_entry(host_param_find_entry("ip", x.session.client, 1));
  EXPECT_EQ(rdm_log_add(nullptr, nullptr, nullptr, &x.session, &x.request), 0);
  EXPECT_TRUE(std::regex_match(x.var("rdm-log-message"), std::regex(R"(- - - \[[^\]]*\] "-" - -\n)")))
      << x.var("rdm-log-message");
}

TEST_F(TransactionLog, LongTextsKeepTheirNewline) {
  Exchange x("GET", "/rdm/incoming");
  EXPECT_EQ(rdm_log_add(std::string(20000, 'm').c_str(), nullptr, nullptr, &x.session, &x.request), 0);
  const std::string line = x.var("rdm-log-message");
  EXPECT_GT(line.size(), 20000u);
  EXPECT_EQ(line.substr(line.size() - 6), "\" - -\n");
}

TEST_F(TransactionLog, GetsTheLineThatTheHandlerLeft) {
  Exchange x("GET", "/rdm/incoming");
  rdm_log_add("one %s %n", nullptr, nullptr, &x.session, &x.request);
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
  EXPECT_EQ(support::read_file(path_), x.var("rdm-log-message") + x.var("rdm-log-message"));
  EXPECT_NE(x.var("rdm-log-message").find("\"one %s %n\""), std::string::npos);
}

TEST_F(TransactionLog, IsSilentWithoutAFile) {
  rdm_log_terminate();
  EXPECT_EQ(logfd, -1);
  Exchange x("GET", "/rdm/incoming");
  rdm_log_add("lost", nullptr, nullptr, &x.session, &x.request);
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
  EXPECT_EQ(support::read_file(path_), "");
  rdm_log_terminate();
}

}  // namespace
