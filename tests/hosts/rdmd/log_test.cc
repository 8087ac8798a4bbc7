// SPDX-License-Identifier: MIT
#include "hosts/rdmd/log.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <new>
#include <set>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/refused_new.h"

using namespace rdm;

namespace {

using rdmd::ErrorLog;
using rdmd::LineBudget;
using rdmd::Trouble;

class Logs : public ::testing::Test {
 protected:
  Logs() {
    ::setenv("TZ", "UTC-2", 1);
    ::tzset();
  }
  ~Logs() override {
    ::unsetenv("TZ");
    ::tzset();
  }
  std::string text() const { return support::read_file(path_); }

  support::TemporaryDirectory directory_;
  std::string path_ = directory_.path("log");
};

TEST_F(Logs, ErrorLinesCarryTimeAndLevel) {
  ErrorLog log(path_);
  EXPECT_TRUE(log.to_file());
  log.info("one");
  log.warn("two");
  log.error("three {} %s");
  const std::string written = text();
  EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 3);
  EXPECT_NE(written.find("] [info] rdmd: one\n"), std::string::npos) << written;
  EXPECT_NE(written.find("] [warning] rdmd: two\n"), std::string::npos) << written;
  EXPECT_NE(written.find("] [error] rdmd: three {} %s\n"), std::string::npos) << written;
}

TEST_F(Logs, AFailureHasTheTextOfItsException) {
  ErrorLog log(path_);
  log.failure("a connection failed", std::bad_alloc());
  EXPECT_TRUE(text().ends_with("] [error] rdmd: a connection failed: std::bad_alloc\n")) << text();
}

TEST_F(Logs, WithoutMemoryAFailureHasNoReason) {
  // Regression: the line that told of bad_alloc threw another one, which ended the server.
  ErrorLog log(path_);
  const std::bad_alloc error;
  const support::RefusedNew any(1, 1000);
  log.failure("a connection failed", error);
  EXPECT_TRUE(any.done());
  EXPECT_TRUE(text().ends_with("] [error] rdmd: a connection failed\n")) << text();
}

TEST_F(Logs, ReportsOfThePluginNameFunctionAndClient) {
  ErrorLog log(path_);
  log.report({0, "rdm-service", "192.0.2.7", "Unknown CSID: x"});
  log.report({1, "rdm-init", "", "less severe {}"});
  log.report({0, "rdm-service", "192.0.2.7", "of a request", "0123456789abcdefghjkmnpqrs"});
  const std::string written = text();
  EXPECT_NE(written.find("] [error] rdmd: rdm-service: Unknown CSID: x (client 192.0.2.7)\n"), std::string::npos);
  EXPECT_NE(written.find("] [warning] rdmd: rdm-init: less severe {}\n"), std::string::npos) << written;
  EXPECT_TRUE(
      written.ends_with("rdmd: rdm-service: of a request (client 192.0.2.7, request 0123456789abcdefghjkmnpqrs)\n"))
      << written;
}

TEST_F(Logs, ALineAboutARequestNamesItsClientAndTheRequest) {
  EXPECT_EQ(rdmd::describe_client("192.0.2.7", ""), "192.0.2.7");
  EXPECT_EQ(rdmd::describe_client("::1", "0123"), "::1, request 0123");
}

TEST_F(Logs, AnErrorLineIsCutAt8191BytesAndKeepsItsClient) {
  // Regression: the text was cut before it was escaped, and the line had 32,788 bytes.
  std::string escaped;
  for (int i = 0; i < 8191; ++i) escaped += "\\x01";
  const std::string client = "2001:db8:1111:2222:3333:4444:5555:6666", end = " (client " + client + ")\n";
  ErrorLog(path_).report({0, "rdm-service", client, escaped});
  const std::string written = text(), before_end = written.substr(0, written.size() - end.size());
  EXPECT_LE(written.size(), 8191u);
  EXPECT_GT(written.size(), 8191u - 4);
  EXPECT_TRUE(written.ends_with(end)) << written.substr(8000);
  EXPECT_TRUE(before_end.ends_with("\\x01\\x01")) << before_end.substr(8000);
}

TEST_F(Logs, AnErrorLineOfAnySourceIsCut) {
  const std::string long_text(20'000, 'x');
  ErrorLog(path_).error(long_text);
  EXPECT_EQ(text().size(), 8191u);
  EXPECT_TRUE(text().ends_with("x\n"));
}

TEST_F(Logs, LinesThatALogCouldNotTakeAreSaidInTheErrorLog) {
  ErrorLog log(path_);
  EXPECT_TRUE(log.dropped("the access log", 12));
  EXPECT_NE(text().find("] [warning] rdmd: write the access log: 12 lines dropped\n"), std::string::npos);
}

TEST_F(Logs, AnErrorLogThatTookNothingSaysSoItself) {
  ErrorLog log("/dev/full");
  log.error("lost");
  EXPECT_FALSE(log.dropped("the access log", 1));
}

TEST_F(Logs, AnErrorLineIsLostIfAllocationFails) {
  ErrorLog log(path_);
  const std::string long_text(5'000, 'x');
  {
    const support::RefusedNew line(long_text.size(), 2 * long_text.size());
    log.error(long_text);
    EXPECT_TRUE(line.done());
  }
  EXPECT_EQ(text(), "");
}

TEST_F(Logs, EachTroubleHasItsReasonAndItsClient) {
  {
    ErrorLog log(path_);
    for (int kind = 0; kind < static_cast<int>(Trouble::count); ++kind)
      log.trouble(static_cast<Trouble>(kind), "192.0.2.7");
  }
  std::string written = text();
  for (std::size_t at = 0; (at = written.find('[', at)) != std::string::npos;)
    written.erase(at, written.find("] [warning] ", at) + std::string("] [warning] ").size() - at);
  EXPECT_EQ(
      written,
      "rdmd: closed: the TLS handshake was not complete within the header timeout (client 192.0.2.7)\n"
      "rdmd: closed: the TLS handshake failed, as with a client that has no version or cipher of ours (client "
      "192.0.2.7)\n"
      "rdmd: 408: the request head did not arrive in time (client 192.0.2.7)\n"
      "rdmd: 408: the request body did not arrive in time (client 192.0.2.7)\n"
      "rdmd: 414 or 431: the request head exceeds a limit (client 192.0.2.7)\n"
      "rdmd: answer cut off: the client acknowledged nothing within the write timeout (client 192.0.2.7)\n"
      "rdmd: answer cut off: the client took less than the minimum send rate (client 192.0.2.7)\n"
      "rdmd: answer cut off: the connection broke, or a file became shorter while it was sent (client 192.0.2.7)\n"
      "rdmd: 503: the connection was closed before the request was processed (client 192.0.2.7)\n"
      "rdmd: 503: the queue of requests is full (client 192.0.2.7)\n"
      "rdmd: 503: the request waited longer than the queue time (client 192.0.2.7)\n"
      "rdmd: 503: connection limit reached (client 192.0.2.7)\n"
      "rdmd: 503: connection limit of the address reached (client 192.0.2.7)\n"
      "rdmd: 503: too many new connections of the address (client 192.0.2.7)\n"
      "rdmd: closed without an answer: too many clients beyond a limit on connections (client 192.0.2.7)\n"
      "rdmd: 503: too many bytes of answers wait in temporary files (client 192.0.2.7)\n"
      "rdmd: closed without an answer: not from a trusted proxy (client 192.0.2.7)\n"
      "rdmd: closed without an answer: the PROXY header is malformed or did not arrive in time (client 192.0.2.7)\n"
      "rdmd: waiting connection ended in favour of a new client (client 192.0.2.7)\n");
}

TEST_F(Logs, EveryTroubleIsCountedUnderANameOfItsOwn) {
  ErrorLog log(path_);
  std::set<std::string_view> names;
  for (std::size_t i = 0; i < rdmd::trouble_kinds; ++i) {
    const auto kind = static_cast<Trouble>(i);
    EXPECT_EQ(log.troubles(kind), 0u);
    for (std::size_t n = 0; n < i + LineBudget::lines_per_minute; ++n) log.trouble(kind, "192.0.2.7");
    EXPECT_EQ(log.troubles(kind), i + LineBudget::lines_per_minute) << "suppressed lines count too";
    names.insert(rdmd::trouble_name(kind));
  }
  EXPECT_EQ(names.size(), rdmd::trouble_kinds);
  for (const std::string_view name : names)
    EXPECT_TRUE(!name.empty() && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_") == name.npos) << name;
}

TEST_F(Logs, AHostileClientCannotFloodTheErrorLog) {
  const LineBudget::Clock::time_point begin{std::chrono::hours(1)};
  {
    ErrorLog log(path_);
    for (int i = 0; i < 1000; ++i) log.trouble(Trouble::late_head, "192.0.2.7", begin + std::chrono::milliseconds(i));
    log.trouble(Trouble::late_body, "192.0.2.8", begin);
    log.trouble(Trouble::late_head, "192.0.2.9", begin + std::chrono::minutes(1));
    for (int i = 0; i < 15; ++i) log.trouble(Trouble::late_head, "192.0.2.7", begin + std::chrono::minutes(1));
  }
  const std::string written = text();
  EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 10 + 1 + 10 + 1);
  EXPECT_NE(
      written.find("408: the request head did not arrive in time (client 192.0.2.9); 990 similar lines suppressed\n"),
      std::string::npos)
      << written;
  EXPECT_NE(written.find("6 lines suppressed: 408: the request head did not arrive in time\n"), std::string::npos)
      << written;
}

}  // namespace
