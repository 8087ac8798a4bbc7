// SPDX-License-Identifier: MIT
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/log.h>

#include "libcs/log_owner.h"
#include "qxapi/guard.h"
#include "support/diagnostics.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;

constexpr int thread_number = 69;  // slot 5
std::vector<std::string> file_calls;

int fixed_thread_id() { return thread_number; }
int current_thread = 0;
int current_thread_id() { return current_thread; }

int64_t recording_seek(host_fd fd, int64_t offset, int whence) {
  file_calls.push_back("seek " + std::to_string(offset) + " " + std::to_string(whence));
  return qxapi_posix_host()->seek(fd, offset, whence);
}

int recording_write_log(host_fd fd, const void *bytes, int32_t n) {
  file_calls.push_back("write " + std::to_string(n));
  return qxapi_posix_host()->write_log(fd, bytes, n);
}

int refusing_write_log(host_fd, const void *, int32_t) { return 0; }

host_fd opened_file = -1;

host_fd recording_open_append(const char *path) { return opened_file = qxapi_posix_host()->open_append(path); }

int recording_close(host_fd fd) {
  file_calls.emplace_back("close");
  return qxapi_posix_host()->close(fd);
}

/// Log binds the POSIX host with a fixed thread id; its destructor silences the log.
class Log : public ::testing::Test {
 protected:
  Log() {
    file_calls.clear();
    host_.thread_id = fixed_thread_id;
    bind();
  }
  ~Log() override {
    cslog_terminate();
    cslog_set_level(0);
    qxapi_bind(nullptr);
  }

  void bind() { qxapi_bind(&host_); }
  std::string text() const { return support::read_file(path_); }
  /// after_stamp returns the file without the time stamp at its front.
  std::string after_stamp() const {
    const std::string all = text();
    return all.substr(std::min(all.size(), all.find(']') + 1));
  }
  /// process returns " PID@5:" as every line has it.
  static std::string process() {
    char text[32];
    host_format(text, sizeof text, " %5d@%d:", static_cast<int>(::getpid()), 5);
    return text;
  }

  qxapi_host host_ = *qxapi_posix_host();
  support::TemporaryDirectory directory_;
  std::string path_ = directory_.path("debug.log");
};

// This format is not a literal, by intention.
void print(const char *format) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  _cslog_do_print(format);
#pragma GCC diagnostic pop
}

TEST_F(Log, ModuleSelectorStartsAtOne) { EXPECT_EQ(_cslog_module, 1); }

TEST_F(Log, SilentBeforeInitAndAfterTerminate) {
  cslog_set_level(1);
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  CSLOG(CSLOG_NOTE, "adt", "lost\n");
  cslog_init(1, path_.c_str());
  cslog_terminate();
  CSLOG(CSLOG_NOTE, "adt", "lost too\n");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(text(), "");
}

TEST_F(Log, LevelZeroAndBelowWritesNothingAndEvaluatesNothing) {
  int evaluated = 0;
  for (const int level : {0, -1}) {
    cslog_init(level, path_.c_str());
    CSLOG(CSLOG_ERROR, "adt", "number %d\n", ++evaluated);
  }
  EXPECT_EQ(text(), "");
  EXPECT_EQ(evaluated, 0);
}

TEST_F(Log, SetLevelSwitchesCallSitesOnAndOff) {
  cslog_init(0, path_.c_str());
  cslog_set_level(3);
  EXPECT_EQ(_cslog_level, 3);
  CSLOG(CSLOG_NOTE, "adt", "kept\n");
  cslog_set_level(0);
  CSLOG(CSLOG_NOTE, "adt", "lost\n");
  EXPECT_EQ(after_stamp(), process() + "\t kept\n");
}

struct KindCase {
  int32_t kind;
  const char *file;
  int32_t line;
  const char *expected;  // after " PID@SLOT:"
};

class LogKinds : public Log, public ::testing::WithParamInterface<KindCase> {};

TEST_P(LogKinds, PrefixOfEachKind) {
  cslog_init(1, path_.c_str());
  _cslog_set_params(GetParam().kind, GetParam().file, GetParam().line);
  _cslog_do_print("message %d\n", 7);
  EXPECT_EQ(after_stamp(), process() + GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, LogKinds,
    ::testing::Values(
        KindCase{0, "adt", 12, "\t message 7\n"}, KindCase{1, "adt", 12, " (adt:12):\t message 7\n"},
        KindCase{2, "adt", 12, " WARNING: message 7\n"}, KindCase{3, "adt", 12, " ERROR: message 7\n"},
        KindCase{4, "adt", 12, "\t message 7\n"}, KindCase{-1, "adt", 12, "\t message 7\n"},
        KindCase{1, "dir/sub/rds", 12, " (rds:12):\t message 7\n"}, KindCase{1, "/rds", 0, " (rds:0):\t message 7\n"},
        KindCase{1, "dir/", -3, " ((empty):-3):\t message 7\n"}, KindCase{1, nullptr, 1, " ((null):1):\t message 7\n"},
        KindCase{1, "", 1, " ((empty):1):\t message 7\n"}, KindCase{1, "a%s%n%d", 1, " (a%s%n%d:1):\t message 7\n"},
        KindCase{2, nullptr, 1, " WARNING: message 7\n"}));

TEST_F(Log, NullAndEmptyFormatsShowAsSuch) {
  for (const auto &[format, shown] : {std::pair<const char *, const char *>{nullptr, "(null)"}, {"", "(empty)"}}) {
    support::write_file(path_, "");
    cslog_init(1, path_.c_str());
    print(format);
    EXPECT_EQ(after_stamp(), process() + "\t " + shown);
  }
}

TEST_F(Log, PercentInArgumentsIsLiteral) {
  cslog_init(1, path_.c_str());
  CSLOG(CSLOG_ERROR, "adt", "%s: %s\n", "100%s%n", "%d");
  EXPECT_EQ(after_stamp(), process() + " ERROR: 100%s%n: %d\n");
}

TEST_F(Log, MacroNamesModuleAndLine) {
  cslog_init(1, path_.c_str());
  const int line = __LINE__ + 1;
  CSLOG(CSLOG_SOURCE, "rds", "here\n");
  EXPECT_EQ(after_stamp(), process() + " (rds:" + std::to_string(line) + "):\t here\n");
}

TEST_F(Log, ProcessIdIsRightAlignedInFivePlaces) {
  cslog_init(1, path_.c_str());
  CSLOG(CSLOG_ERROR, "adt", "Cannot find temporary filename?\n");
  EXPECT_THAT(text(), MatchesRegex("\\[[0-9]{2}/[A-Z][a-z]{2}/[0-9]{4}(:[0-9]{2}){3}\\] "
                                   "( {0,4}[0-9]+)@5: ERROR: Cannot find temporary filename\\?\n"));
}

std::string stamp_of(time_t t) {
  struct tm local;
  ::localtime_r(&t, &local);
  char text[64];
  host_format_time(text, sizeof text, "[%d/%b/%Y:%H:%M:%S]", &local);
  return text;
}

TEST_F(Log, StampIsLocalTime) {
  const support::Environment zone("TZ", "XYZ-13:45");
  cslog_init(1, path_.c_str());
  const time_t before = std::time(nullptr);
  CSLOG(CSLOG_NOTE, "adt", "now\n");
  const time_t after = std::time(nullptr);
  const std::string stamp = text().substr(0, text().find(']') + 1);
  std::vector<std::string> possible;
  for (time_t t = before; t <= after; ++t) possible.push_back(stamp_of(t));
  EXPECT_THAT(possible, ::testing::Contains(stamp));
}

struct DestinationCase {
  const char *name;
  const char *standard_output;
  const char *standard_error;
};

class LogDestination : public Log, public ::testing::WithParamInterface<DestinationCase> {};

TEST_P(LogDestination, SelectsTheStream) {
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  cslog_init(1, GetParam().name);
  CSLOG(CSLOG_WARNING, "adt", "said %s\n", "%s");
  cslog_terminate();
  const auto without_stamp = [](const std::string &s) { return s.empty() ? s : s.substr(s.find(']') + 1); };
  const auto expected = [](const char *s) { return *s == '\0' ? std::string() : process() + s; };
  EXPECT_EQ(without_stamp(::testing::internal::GetCapturedStdout()), expected(GetParam().standard_output));
  EXPECT_EQ(without_stamp(::testing::internal::GetCapturedStderr()), expected(GetParam().standard_error));
}

INSTANTIATE_TEST_SUITE_P(Streams, LogDestination,
                         ::testing::Values(DestinationCase{nullptr, "", " WARNING: said %s\n"},
                                           DestinationCase{"stderr", "", " WARNING: said %s\n"},
                                           DestinationCase{"stdout", " WARNING: said %s\n", ""}));

TEST_F(Log, LineIsOneWriteAfterASeekToTheEnd) {
  support::write_file(path_, "before\n");
  host_.seek = recording_seek;
  host_.write_log = recording_write_log;
  bind();
  cslog_init(1, path_.c_str());
  CSLOG(CSLOG_NOTE, "adt", "%s and %s\n", "one", "two");
  EXPECT_THAT(text(), MatchesRegex("before\n\\[[^\n]*\\] +[0-9]+@5:\t one and two\n"));
  EXPECT_THAT(file_calls, ::testing::ElementsAre("seek 0 2", "write " + std::to_string(text().size() - 7)));
}

TEST_F(Log, WriteErrorsAreIgnored) {
  host_.write_log = refusing_write_log;
  bind();
  cslog_init(1, path_.c_str());
  CSLOG(CSLOG_NOTE, "adt", "lost\n");
  host_.write_log = qxapi_posix_host()->write_log;
  bind();
  CSLOG(CSLOG_NOTE, "adt", "kept\n");
  EXPECT_EQ(after_stamp(), process() + "\t kept\n");
}

TEST_F(Log, FileThatCannotBeOpenedIsReportedAndSilencesTheLog) {
  const std::string missing = directory_.path("missing/debug.log");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  cslog_init(2, missing.c_str());
  CSLOG(CSLOG_ERROR, "adt", "lost\n");
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Cannot append to " + missing + ".\n");
  EXPECT_EQ(_cslog_level, 2);
}

TEST_F(Log, InitAgainChangesLevelAndDestinationAndForgetsCallSites) {
  const std::string second = directory_.path("second.log");
  host_.open_append = recording_open_append;
  host_.close = recording_close;
  bind();
  cslog_init(1, path_.c_str());
  const HostFileGuard first_file(opened_file);
  _cslog_set_params(CSLOG_ERROR, "adt", 1);
  cslog_init(2, second.c_str());
  EXPECT_TRUE(file_calls.empty()) << "the earlier file was closed";
  _cslog_do_print("plain\n");
  EXPECT_EQ(text(), "");
  EXPECT_THAT(support::read_file(second), HasSubstr(process() + "\t plain\n"));
  EXPECT_EQ(_cslog_level, 2);
}

TEST_F(Log, TerminateAndAFileThatCannotBeOpenedSilenceAStream) {
  const std::string missing = directory_.path("missing/debug.log");
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  for (const char *stream : {"stdout", "stderr"}) {
    cslog_init(1, stream);
    cslog_terminate();
    CSLOG(CSLOG_ERROR, "adt", "lost\n");
    cslog_init(1, stream);
    cslog_init(1, missing.c_str());
    CSLOG(CSLOG_ERROR, "adt", "lost\n");
  }
  const std::string report = "Cannot append to " + missing + ".\n";
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), report + report);
}

TEST_F(Log, TerminateClosesTheFileOnce) {
  host_.close = recording_close;
  bind();
  cslog_init(1, path_.c_str());
  cslog_terminate();
  cslog_terminate();
  EXPECT_THAT(file_calls, ::testing::ElementsAre("close"));
}

using LogDeathTest = Log;

// These lines have no newline, which would flush a line-buffered stream.
TEST_F(LogDeathTest, ALineIsFlushedAtOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::fflush(stdout);
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
        cslog_init(1, "stdout");
        CSLOG(CSLOG_NOTE, "adt", "at once");
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "at once$");
}

TEST_F(LogDeathTest, TerminateFlushesTheStream) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::fflush(stdout);
        ::dup2(STDERR_FILENO, STDOUT_FILENO);
        cslog_init(1, "stdout");
        std::fputs("waiting", stdout);
        cslog_terminate();
        std::_Exit(0);
      },
      ::testing::ExitedWithCode(0), "^waiting$");
}

TEST_F(Log, FileOfRootIsHandedToNobody) {
  cslog_init(1, path_.c_str());
  struct stat status;
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  if (::geteuid() == 0) {
    const struct passwd *nobody = ::getpwnam("nobody");
    ASSERT_NE(nobody, nullptr);
    EXPECT_EQ(status.st_uid, nobody->pw_uid);
    EXPECT_EQ(status.st_gid, nobody->pw_gid);
  } else {
    EXPECT_EQ(status.st_uid, ::geteuid());
  }
  EXPECT_EQ(text(), "");
}

TEST_F(Log, OwnershipThatCannotChangeIsAWarning) {
  const std::string missing = directory_.path("missing");
  cslog_init(1, path_.c_str());
  _cslog_chown("/some/file", "no such user");
  EXPECT_EQ(after_stamp(), process() + " WARNING: Unknown user no such user: Cannot chown /some/file.\n");
  support::write_file(path_, "");
  _cslog_chown(missing.c_str(), "nobody");
  EXPECT_EQ(after_stamp(), process() + " WARNING: chown: " + missing + ": No such file or directory\n");
}

TEST_F(Log, CallSitesAreKeptByThreadIdModulo32) {
  host_.thread_id = current_thread_id;
  bind();
  cslog_init(1, path_.c_str());
  const std::pair<int, int> kinds[] = {{5, CSLOG_ERROR}, {6, CSLOG_WARNING}, {-1, CSLOG_ERROR}};
  for (const auto &[thread, kind] : kinds) {
    current_thread = thread;
    EXPECT_EQ(_cslog_set_params(kind, "adt", 1), thread);
  }
  for (const int thread : {5, 6, 7, 37, -1}) {
    current_thread = thread;
    _cslog_do_print("from %d\n", thread);
  }
  EXPECT_THAT(text(), MatchesRegex("[^\n]*@5: ERROR: from 5\n"
                                   "[^\n]*@6: WARNING: from 6\n"
                                   "[^\n]*@7:\t from 7\n"
                                   "[^\n]*@5: ERROR: from 37\n"
                                   "[^\n]*@31: ERROR: from -1\n"));
}

// Regression: a request of 43 bytes with a padded value of 100 MB was written to standard error in full.
TEST_F(Log, LongLineIsCutAndKeepsItsNewlineWhereverItGoes) {
  const std::string value(10000, 'x');
  ::testing::internal::CaptureStdout();
  ::testing::internal::CaptureStderr();
  for (const char *destination : {"stdout", "stderr", path_.c_str()}) {
    cslog_init(1, destination);
    CSLOG(CSLOG_NOTE, "adt", "%s\n", value.c_str());
  }
  for (const std::string &line :
       {::testing::internal::GetCapturedStdout(), ::testing::internal::GetCapturedStderr(), text()}) {
    EXPECT_EQ(line.size(), 8191u);
    EXPECT_TRUE(line.ends_with("xxx\n"));
  }
  support::write_file(path_, "");
  CSLOG(CSLOG_NOTE, "adt", "%s", value.c_str());
  EXPECT_EQ(text().size(), 8191u);
  EXPECT_TRUE(text().ends_with("xxx")) << "a format without a newline gets none";
}

TEST_F(Log, LineOfExactlyTheLimitIsWhole) {
  cslog_init(1, path_.c_str());
  CSLOG(CSLOG_NOTE, "adt", "\n");
  const size_t overhead = text().size();
  for (const size_t total : {8190, 8191, 8192}) {
    support::write_file(path_, "");
    CSLOG(CSLOG_NOTE, "adt", "%s\n", std::string(total - overhead, 'x').c_str());
    EXPECT_EQ(text().size(), std::min<size_t>(total, 8191));
    EXPECT_TRUE(text().ends_with("x\n"));
  }
}

TEST_F(Log, LongPrefixIsCutAndTheMessageStays) {
  cslog_init(1, path_.c_str());
  const std::string file(600, 'f');
  _cslog_set_params(CSLOG_SOURCE, file.c_str(), 1);
  _cslog_do_print("message %d\n", 7);
  EXPECT_TRUE(text().ends_with("fffmessage 7\n"));
  EXPECT_EQ(text().size(), 511 + std::strlen("message 7\n"));
}

TEST_F(Log, LongFormatIsExpandedWhole) {
  cslog_init(1, path_.c_str());
  const std::string literal(600, 'x');
  print((literal + "%%\n").c_str());
  EXPECT_EQ(after_stamp(), process() + "\t " + literal + "%\n");
}

TEST_F(Log, LinesOfManyThreadsStayWhole) {
  host_.thread_id = qxapi_posix_host()->thread_id;
  bind();
  cslog_init(1, path_.c_str());
  constexpr int thread_count = 40, lines_each = 50;
  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < lines_each; ++i) CSLOG(CSLOG_NOTE, "adt", "thread %d line %d.\n", t, i);
    });
  for (std::thread &thread : threads) thread.join();
  std::array<int, thread_count> next{};
  std::istringstream lines(text());
  for (std::string line; std::getline(lines, line);) {
    int t = -1, i = -1;
    // NOLINTNEXTLINE(cert-err34-c): the numbers are compared below
    ASSERT_EQ(std::sscanf(line.c_str(), "[%*[^]]] %*d@%*d: thread %d line %d.", &t, &i), 2) << line;
    ASSERT_TRUE(t >= 0 && t < thread_count) << line;
    EXPECT_EQ(i, next[static_cast<size_t>(t)]++);
  }
  EXPECT_THAT(next, ::testing::Each(lines_each));
}

class LogLine : public support::HostTest {};

TEST_F(LogLine, WhiteSpaceBecomesBlanks) {
  const std::pair<const char *, const char *> cases[] = {
      {"a\tb\nc", "a b c"}, {"\r\v\f \n", "     "}, {"", ""},
      {"plain", "plain"},   {nullptr, ""},          {"\x01\x1f\x7f\xa0\x85", "\x01\x1f\x7f\xa0\x85"}};
  for (const auto &[text, expected] : cases) {
    const HostText line(cslog_linestr(text));
    EXPECT_STREQ(line.get(), expected);
  }
}

}  // namespace
