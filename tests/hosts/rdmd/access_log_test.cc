// SPDX-License-Identifier: MIT
#include "hosts/rdmd/access_log.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/files.h"

using namespace rdm;

namespace {

using rdmd::AccessEntry;
using rdmd::AccessFormat;
using rdmd::AccessLog;
using rdmd::ClosedBy;
using rdmd::format_combined;
using rdmd::format_json;
using namespace std::chrono_literals;

class AccessLogs : public ::testing::Test {
 protected:
  AccessLogs() {
    zone("UTC-2");
    entry_.client = "192.0.2.7";
    entry_.time = std::chrono::system_clock::from_time_t(1'794'800'467) + 42ms;
    entry_.line = "GET /rdm/x HTTP/1.1";
    entry_.status = 200;
    entry_.bytes = 42;
    entry_.referer = "http://here/";
    entry_.agent = "curl/7";
  }
  ~AccessLogs() override {
    ::unsetenv("TZ");
    ::tzset();
  }
  static void zone(const char *name) {
    ::setenv("TZ", name, 1);
    ::tzset();
  }
  std::string text() const { return support::read_file(path_); }

  AccessEntry entry_;
  support::TemporaryDirectory directory_;
  std::string path_ = directory_.path("log");
};

TEST_F(AccessLogs, ALineIsInTheCombinedFormat) {
  EXPECT_EQ(format_combined(entry_),
            "192.0.2.7 - - [16/Nov/2026:05:41:07 +0200] \"GET /rdm/x HTTP/1.1\" 200 42 \"http://here/\" \"curl/7\"\n");
}

TEST_F(AccessLogs, ACombinedLineHasDashesForMissingFields) {
  AccessEntry nothing;
  nothing.client = "::1";
  nothing.status = 408;
  EXPECT_EQ(format_combined(nothing), "::1 - - [01/Jan/1970:02:00:00 +0200] \"-\" 408 - \"-\" \"-\"\n");
}

TEST_F(AccessLogs, NoClientWritesALineOfItsOwn) {
  entry_.line = "GET /\" 200 \n";
  entry_.referer = "a\r\nb";
  entry_.agent = "\\\"\x01";
  EXPECT_EQ(format_combined(entry_),
            "192.0.2.7 - - [16/Nov/2026:05:41:07 +0200] \"GET /\\\" 200 \" 200 42 \"a\\r\\nb\" \"\\\\\\\"\\x01\"\n");
  EXPECT_EQ(format_json(entry_),
            R"({"time":"2026-11-16T05:41:07.042+02:00","client":"192.0.2.7","line":"GET /\" 200 \n",)"
            R"("status":200,"bytes":42,"referer":"a\r\nb","agent":"\\\"\u0001"})"
            "\n");
}

TEST_F(AccessLogs, AJsonLineHasAllThatIsKnown) {
  entry_.id = "0123456789abcdefghjkmnpqrs";
  entry_.connection = 7;
  entry_.labels = {"rd-request", "x-catalog://localhost:80/books", 12};
  entry_.worker = 3;
  entry_.queued = 1500us;
  entry_.served = 48'749ns;
  entry_.sent = 2s;
  entry_.closed_by = ClosedBy::timeout;
  EXPECT_EQ(format_json(entry_),
            R"({"time":"2026-11-16T05:41:07.042+02:00","client":"192.0.2.7","method":"GET","target":"/rdm/x",)"
            R"("protocol":"HTTP/1.1","status":200,"bytes":42,"referer":"http://here/","agent":"curl/7",)"
            R"("request_id":"0123456789abcdefghjkmnpqrs","connection":7,"type":"rd-request",)"
            R"("catalog":"x-catalog://localhost:80/books","hits":12,"worker":3,"queue_ms":1.500,"service_ms":0.049,)"
            R"("sending_ms":2000.000,"closed_by":"timeout"})"
            "\n");
}

TEST_F(AccessLogs, AJsonLineLeavesOutWhatIsNotKnown) {
  AccessEntry nothing;
  nothing.client = "-";
  nothing.status = 408;
  EXPECT_EQ(format_json(nothing), R"({"time":"1970-01-01T02:00:00.000+02:00","client":"-","status":408,"bytes":0})"
                                  "\n");
}

TEST_F(AccessLogs, AJsonLineNamesWhoClosedTheConnection) {
  const std::pair<ClosedBy, const char *> rows[] = {{ClosedBy::client, "client"},
                                                    {ClosedBy::server, "server"},
                                                    {ClosedBy::timeout, "timeout"},
                                                    {ClosedBy::limit, "limit"}};
  for (const auto &[reason, name] : rows) {
    entry_.closed_by = reason;
    EXPECT_EQ(nlohmann::json::parse(format_json(entry_))["closed_by"], name);
  }
  entry_.closed_by = ClosedBy::not_closed;
  EXPECT_FALSE(nlohmann::json::parse(format_json(entry_)).contains("closed_by"));
}

TEST_F(AccessLogs, AJsonLineHasTheOffsetOfItsTimeZone) {
  zone("XXX3:30");
  EXPECT_EQ(nlohmann::json::parse(format_json(entry_))["time"], "2026-11-16T00:11:07.042-03:30");
  entry_.time = std::chrono::system_clock::from_time_t(-1) + 1ms;
  EXPECT_EQ(nlohmann::json::parse(format_json(entry_))["time"], "1969-12-31T20:29:59.001-03:30");
}

TEST_F(AccessLogs, OnlyALineOfThreePartsIsSplit) {
  for (const char *line : {"GET", "GET /", "GET / x HTTP/1.1", " ", "  ", " / HTTP/1.1", "GET  HTTP/1.1", "GET / "}) {
    entry_.line = line;
    const auto object = nlohmann::json::parse(format_json(entry_));
    EXPECT_EQ(object["line"], line);
    EXPECT_FALSE(object.contains("method")) << line;
  }
}

/// Whatever a client sends, the line is one line of ASCII and a JSON object.
TEST_F(AccessLogs, AJsonLineIsValidWhateverTheClientSent) {
  const std::pair<std::string, std::string> rows[] = {
      {"\xff\xfe", "\xef\xbf\xbd\xef\xbf\xbd"},                  // no UTF-8
      {"\xc3", "\xef\xbf\xbd"},                                  // cut within a character
      {"\xc0\xaf", "\xef\xbf\xbd\xef\xbf\xbd"},                  // too long a form of "/"
      {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},  // half of a pair
      {"\xc2\x9b[2J", "\xc2\x9b[2J"},                            // a control character beyond ASCII
      {std::string("a\0b", 3), std::string("a\0b", 3)},
      {"\x1b[2J\x7f\t\r\n", "\x1b[2J\x7f\t\r\n"},
      {"\xf0\x9f\x90\x8d \xc3\xa9", "\xf0\x9f\x90\x8d \xc3\xa9"},
      {"\",\"status\":500,\"x\":\"", "\",\"status\":500,\"x\":\""},
  };
  for (const auto &[sent, logged] : rows) {
    const std::string request = "GET /" + sent;
    entry_.line = request;
    entry_.agent = entry_.referer = sent;
    const std::string line = format_json(entry_);
    for (const char c : line.substr(0, line.size() - 1)) EXPECT_TRUE(c >= ' ' && c < '\x7f') << line;
    EXPECT_TRUE(line.ends_with("}\n"));
    const auto object = nlohmann::json::parse(line);
    EXPECT_EQ(object["agent"], logged);
    EXPECT_EQ(object["referer"], logged);
    EXPECT_EQ(object["status"], 200);
  }
}

TEST_F(AccessLogs, EveryByteMakesAValidJsonLine) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string line =
        std::string("GET /x") + static_cast<char>(byte) + static_cast<char>(255 - byte) + " HTTP/1.1";
    entry_.line = line;
    EXPECT_TRUE(nlohmann::json::accept(format_json(entry_))) << byte;
  }
}

TEST_F(AccessLogs, WithoutAPathNothingIsWritten) {
  AccessLog log("");
  log.write(entry_);
  EXPECT_TRUE(log.reopen());
}

TEST_F(AccessLogs, ALogAppendsInItsFormat) {
  support::write_file(path_, "before\n");
  AccessLog(path_).write(entry_);
  AccessLog(path_, {}, AccessFormat::json).write(entry_);
  EXPECT_EQ(text(), "before\n" + format_combined(entry_) + format_json(entry_));
}

}  // namespace
