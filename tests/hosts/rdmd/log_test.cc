#include "hosts/rdmd/log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <system_error>

#include "support/files.h"

namespace {

using rdmd::AccessEntry;
using rdmd::AccessLog;
using rdmd::ErrorLog;
using rdmd::format_access;
using rdmd::LogFile;

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

  support::TemporaryFolder folder_;
  std::string path_ = folder_.path("log");
};

const AccessEntry entry{"192.0.2.7", 1'794'800'467, "GET /rdm/x HTTP/1.1", 200, 42, "http://here/", "curl/7"};

TEST_F(Logs, AnAccessLineIsInTheCombinedFormat) {
  EXPECT_EQ(format_access(entry),
            "192.0.2.7 - - [16/Nov/2026:05:41:07 +0200] \"GET /rdm/x HTTP/1.1\" 200 42 \"http://here/\" \"curl/7\"\n");
}

TEST_F(Logs, AnAccessLineHasDashesForWhatIsMissing) {
  EXPECT_EQ(format_access({"::1", 0, "", 408, 0, "", ""}),
            "::1 - - [01/Jan/1970:02:00:00 +0200] \"-\" 408 - \"-\" \"-\"\n");
}

TEST_F(Logs, NoClientWritesAnAccessLineOfItsOwn) {
  AccessEntry evil = entry;
  evil.line = "GET /\" 200 \n";
  evil.referer = "a\r\nb";
  evil.agent = "\\\"\x01";
  EXPECT_EQ(format_access(evil),
            "192.0.2.7 - - [16/Nov/2026:05:41:07 +0200] \"GET /\\\" 200 \" 200 42 \"a\\r\\nb\" \"\\\\\\\"\\x01\"\n");
}

TEST_F(Logs, AnAccessLogWithoutAPathWritesNothing) {
  AccessLog log("");
  log.write(entry);
  EXPECT_TRUE(log.reopen());
}

TEST_F(Logs, AnAccessLogAppends) {
  support::write_file(path_, "before\n");
  AccessLog(path_).write(entry);
  EXPECT_EQ(text(), "before\n" + format_access(entry));
}

TEST_F(Logs, AFileThatCannotBeOpenedIsNamed) {
  try {
    const LogFile file("/nonexistent/log");
    FAIL() << "the file was opened";
  } catch (const std::system_error &error) {
    EXPECT_STREQ(error.what(), "/nonexistent/log: No such file or directory");
  }
}

TEST_F(Logs, ReopeningGoesOnInANewFileOfTheSameName) {
  LogFile file(path_);
  file.write("one\n");
  std::filesystem::rename(path_, folder_.path("log.1"));
  file.write("two\n");
  EXPECT_TRUE(file.reopen());
  file.write("three\n");
  EXPECT_EQ(support::read_file(folder_.path("log.1")), "one\ntwo\n");
  EXPECT_EQ(text(), "three\n");
}

TEST_F(Logs, AFileThatCannotBeReopenedGoesOnInTheOldOne) {
  const std::string place = folder_.path("place"), moved = folder_.path("moved");
  std::filesystem::create_directory(place);
  LogFile file(place + "/log");
  std::filesystem::rename(place, moved);
  EXPECT_FALSE(file.reopen());
  file.write("still here\n");
  EXPECT_EQ(support::read_file(moved + "/log"), "still here\n");
}

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

TEST_F(Logs, ReportsOfThePluginNameFunctionAndClient) {
  ErrorLog log(path_);
  log.report({0, "rdm-service", "192.0.2.7", "Unknown CSID: x"});
  log.report({1, "rdm-init", "", "less severe {}"});
  const std::string written = text();
  EXPECT_NE(written.find("] [error] rdmd: rdm-service: Unknown CSID: x (client 192.0.2.7)\n"), std::string::npos);
  EXPECT_NE(written.find("] [warning] rdmd: rdm-init: less severe {}\n"), std::string::npos) << written;
}

}  // namespace
