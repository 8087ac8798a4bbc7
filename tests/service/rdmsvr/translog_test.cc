#include <gtest/gtest.h>

#include <regex>

#include "service/rdm.h"
#include "support/files.h"
#include "support/memory_host.h"

namespace {

using support::Exchange;
using support::TemporaryFolder;

class TransactionLog : public support::HostTest {
 protected:
  void SetUp() override {
    path_ = folder_.path("transactions.log");
    rdm_log_crit = host_crit_create();
    logfd = host_open_append(path_.c_str());
  }
  void TearDown() override {
    rdm_log_terminate();
    host_free(rdm_log_crit);
    rdm_log_crit = nullptr;
    support::HostTest::TearDown();
  }
  TemporaryFolder folder_;
  std::string path_;
};

TEST_F(TransactionLog, LinesHaveTheCommonLayout) {
  Exchange x("GET", "/rdm/incoming");
  EXPECT_EQ(rdm_log_add("STATUS OK sent", "200", "17", &x.session, &x.request), 0);
  EXPECT_TRUE(std::regex_match(x.var("rdm-log-message"),
                               std::regex(R"(192\.0\.2\.7 - - \[\d\d/[A-Z][a-z][a-z]/\d{4}:\d\d:\d\d:\d\d -0000\] )"
                                          R"("STATUS OK sent" 200 17\n)")))
      << x.var("rdm-log-message");
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

TEST_F(TransactionLog, GetsNothingFromARequestThatNoHandlerAnswered) {
  Exchange x("GET", "/rdm/incoming");
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
  host_param_add("rdm-log-message", "", x.request.vars);
  EXPECT_EQ(rdm_log(nullptr, &x.session, &x.request), 0);
  EXPECT_EQ(support::read_file(path_), "");
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
