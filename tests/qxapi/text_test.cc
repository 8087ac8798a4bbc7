// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

namespace {

TEST(Format, StopsAtTheSize) {
  struct Case {
    size_t size;
    int length;
    const char *text;
  };
  const Case cases[] = {{9, 8, "abcd 123"}, {10, 8, "abcd 123"}, {8, 7, "abcd 12"}, {2, 1, "a"}, {1, 0, ""}};
  for (const Case &test : cases) {
    char buffer[12];
    std::memset(buffer, '!', sizeof buffer);
    EXPECT_EQ(host_format(buffer, test.size, "%s %d", "abcd", 123), test.length) << test.size;
    EXPECT_STREQ(buffer, test.text);
    EXPECT_EQ(buffer[test.size], '!') << "wrote past the size";
  }
}

TEST(Format, IntoNoRoomIsLeftAlone) {
  char buffer[] = "x";
  EXPECT_EQ(host_format(buffer, 0, "%d", 123), 0);
  EXPECT_STREQ(buffer, "x");
}

TEST(Format, SizesBeyondAnIntAreSizes) {
  char buffer[8];
  // The compiler warns of such a constant, but callers may compute one.
  volatile size_t size = SIZE_MAX / 2;
  EXPECT_EQ(host_format(buffer, size, "%s", "text"), 4);
  EXPECT_STREQ(buffer, "text");
}

TEST(Format, ArgumentsAreNotFormats) {
  char buffer[32];
  host_format(buffer, sizeof buffer, "%s", "100%s%n");
  EXPECT_STREQ(buffer, "100%s%n");
}

TEST(Itoa, WritesDecimals) {
  const std::pair<int64_t, const char *> cases[] = {{0, "0"},
                                                    {7, "7"},
                                                    {-1, "-1"},
                                                    {4294967295, "4294967295"},
                                                    {INT64_MAX, "9223372036854775807"},
                                                    {INT64_MIN, "-9223372036854775808"}};
  for (const auto &[number, text] : cases) {
    char buffer[21];
    EXPECT_EQ(host_itoa(number, buffer), static_cast<int>(std::strlen(text)));
    EXPECT_STREQ(buffer, text);
  }
}

TEST(Unescape, DecodesInPlaceAndLeavesTheMalformed) {
  const std::pair<const char *, const char *> cases[] = {
      {"", ""},         {"plain", "plain"}, {"a%20b", "a b"}, {"%41%42", "AB"},  {"%c3%A9", "\xC3\xA9"},
      {"%2541", "%41"}, {"%", "%"},         {"a%", "a%"},     {"%4", "%4"},      {"%g1", "%g1"},
      {"%1g", "%1g"},   {"%%41", "%A"},     {"%4%41", "%4A"}, {"+", "+"},        {"%-1", "%-1"},
      {"% 1", "% 1"},   {"%0x41", "%0x41"}, {"%ff", "\xFF"},  {"%zz%2", "%zz%2"}};
  for (const auto &[escaped, expected] : cases) {
    std::string text = escaped;
    host_unescape(text.data());
    EXPECT_STREQ(text.c_str(), expected) << escaped;
  }
}

TEST(Unescape, AnEscapedNulEndsTheText) {
  char text[] = "ab%00cd";
  host_unescape(text);
  EXPECT_STREQ(text, "ab");
}

TEST(LastError, DescribesErrno) {
  errno = ENOENT;
  EXPECT_STREQ(host_last_error_text(), "No such file or directory");
  errno = EACCES;
  EXPECT_STREQ(host_last_error_text(), "Permission denied");
  errno = 0;
  EXPECT_STREQ(host_last_error_text(), "Success");
  errno = 99999;
  EXPECT_STREQ(host_last_error_text(), "Unknown error 99999");
  EXPECT_EQ(errno, 99999);
}

TEST(LastError, BelongsToTheThread) {
  errno = ENOENT;
  const char *mine = host_last_error_text();
  std::thread([] {
    errno = EACCES;
    EXPECT_STREQ(host_last_error_text(), "Permission denied");
  }).join();
  EXPECT_STREQ(mine, "No such file or directory");
}

/// reported returns the output of a report to standard error.
template <typename Report>
std::string reported(Report report) {
  ::testing::internal::CaptureStderr();
  report();
  return ::testing::internal::GetCapturedStderr();
}

TEST(ReportError, WritesOneLineToStandardError) {
  EXPECT_EQ(reported([] { host_report_error(0, "rdm-init", nullptr, nullptr, "cannot open %s", "x%sy"); }),
            "failure rdm-init: cannot open x%sy\n");
  EXPECT_EQ(reported([] { host_report_error(1, "rdm-init", nullptr, nullptr, "%d left", 3); }),
            "report rdm-init: 3 left\n");
}

TEST(ReportError, DoesNotDoubleANewline) {
  EXPECT_EQ(reported([] { host_report_error(0, "rdm", nullptr, nullptr, "%s", "line\n"); }), "failure rdm: line\n");
  EXPECT_EQ(reported([] { host_report_error(0, "rdm", nullptr, nullptr, "%s", "\n"); }), "failure rdm: \n");
  EXPECT_EQ(reported([] { host_report_error(0, "rdm", nullptr, nullptr, "%s", ""); }), "failure rdm: \n");
}

TEST(ReportError, EscapesNewlinesToKeepOneLine) {
  EXPECT_EQ(
      reported([] { host_report_error(0, "rdm", nullptr, nullptr, "%s", "a\r\nfailure b\x1B[1m\x7F\t\xC3\xA9\n\n"); }),
      "failure rdm: a\\r\\nfailure b\\x1b[1m\\x7f\\t\xC3\xA9\\n\n");
}

TEST(ReportError, CutsALineAt8191Bytes) {
  // Regression: the text was cut at that length, and the line exceeded it by the prefix.
  const std::string start = "failure rdm: ", text(10000, 'x'), fitting = text.substr(0, 8190 - start.size());
  for (const std::string &long_text : {fitting, fitting + "x", text, fitting.substr(3) + "\n\x01"})
    EXPECT_EQ(reported([&] { host_report_error(0, "rdm", nullptr, nullptr, "%s", long_text.c_str()); }),
              start + (long_text.ends_with("\n\x01") ? fitting.substr(3) + "\\n" : fitting) + "\n");
}

TEST(ThreadId, IsTheSystemsThreadId) {
  EXPECT_EQ(host_thread_id(), ::gettid());
  EXPECT_GE(host_thread_id(), 0);
  EXPECT_EQ(host_thread_id(), host_thread_id());
}

TEST(ThreadId, DiffersBetweenLiveThreads) {
  constexpr size_t thread_count = 20;
  std::atomic<size_t> started = 0;
  std::mutex mutex, gate;
  std::set<int> ids{host_thread_id()};
  std::vector<std::thread> threads;
  gate.lock();  // no thread ends before all have started
  for (size_t i = 0; i < thread_count; ++i)
    threads.emplace_back([&] {
      {
        const std::scoped_lock lock(mutex);
        ids.insert(host_thread_id());
      }
      ++started;
      const std::scoped_lock wait(gate);
    });
  while (started < thread_count) std::this_thread::yield();
  gate.unlock();
  for (std::thread &thread : threads) thread.join();
  EXPECT_EQ(ids.size(), thread_count + 1);
}

}  // namespace
