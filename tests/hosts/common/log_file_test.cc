// SPDX-License-Identifier: MIT
#include "hosts/common/log_file.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/file_limit.h"
#include "support/files.h"
#include "support/refused_new.h"

using namespace rdm;

namespace {

using hosts::LogFile;
using namespace std::chrono_literals;

/// line returns line `number` of a log, `size` bytes long with its newline.
std::string line(std::size_t number, std::size_t size = 100) {
  std::string text = std::to_string(number);
  text.resize(size - 1, '.');
  return text + "\n";
}

std::string lines(std::size_t first, std::size_t end, std::size_t size = 100) {
  std::string text;
  for (; first < end; ++first) text += line(first, size);
  return text;
}

/// read_for reads from a descriptor until it has `size` bytes, or until 10 seconds pass without input.
std::string read_for(host_fd fd, std::size_t size) {
  std::string text;
  char block[65536];
  pollfd readable{fd, POLLIN, 0};
  while (text.size() < size && ::poll(&readable, 1, 10'000) > 0) {
    const ssize_t got = ::read(fd, block, sizeof block);
    if (got <= 0) break;
    text.append(block, static_cast<std::size_t>(got));
  }
  return text;
}

/// Pipe is a pipe without a name.
struct Pipe {
  explicit Pipe(int flags = O_CLOEXEC) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, flags), 0);
    reader = HostFileGuard(ends[0]);
    writer = HostFileGuard(ends[1]);
  }
  HostFileGuard reader, writer;
};

class LogFiles : public ::testing::Test {
 protected:
  /// note returns a notice that adds up the dropped lines in reported_.
  LogFile::Notice note() {
    return [this](std::size_t count) {
      reported_ += count;
      return true;
    };
  }
  std::string pipe() {
    EXPECT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    return path_;
  }
  /// read_end opens the pipe for reading.
  HostFileGuard read_end() const { return HostFileGuard(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)); }
  /// await_reports waits until more than `lines` dropped lines were reported.
  void await_reports(std::size_t lines) const {
    for (int i = 0; i < 6000 && reported_ <= lines; ++i) std::this_thread::sleep_for(10ms);
  }
  std::string text() const { return support::read_file(path_); }
  mode_t mode() const {
    struct stat status {};
    EXPECT_EQ(::stat(path_.c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  support::TemporaryDirectory directory_;
  std::string path_ = directory_.path("log");
  std::atomic<std::size_t> reported_ = 0;
};

TEST_F(LogFiles, WritingNeverBlocksOnAPipeWithoutAReader) {
  // Regression: the first write to a full pipe without a reader blocked the service for good.
  LogFile log(pipe(), note());
  std::size_t taken = 0, written = 0;
  const auto in_an_hour = LogFile::Clock::now() + 1h;  // no further notice comes before
  for (; written < 20'000; ++written) taken += log.write(line(written), in_an_hour) ? 1 : 0;
  // A short line would still fit into the queue, but the gap must be in one place.
  EXPECT_FALSE(log.write("short\n", in_an_hour));
  ++written;
  EXPECT_GE(taken * 100, LogFile::queue_limit);
  EXPECT_LT(taken, written);
  EXPECT_EQ(reported_, 1u);
  const HostFileGuard reader = read_end();
  EXPECT_EQ(read_for(reader.get(), taken * 100), lines(0, taken));
  await_reports(1);
  EXPECT_EQ(reported_, written - taken);
  EXPECT_TRUE(log.write("again\n"));
  EXPECT_EQ(read_for(reader.get(), 6), "again\n");
}

TEST_F(LogFiles, LongLinesOfAPipeStayWholeAndInOrder) {
  LogFile log(pipe());
  for (std::size_t i = 0; i < 50; ++i) EXPECT_TRUE(log.write(line(i, 9000)));
  const HostFileGuard reader = read_end();
  EXPECT_EQ(read_for(reader.get(), 450'000), lines(0, 50, 9000));
}

TEST_F(LogFiles, APipeKeepsItsLinesWhileItHasNoReader) {
  LogFile log(pipe());
  read_end();
  EXPECT_TRUE(log.write("kept\n"));
  const HostFileGuard reader = read_end();
  EXPECT_EQ(read_for(reader.get(), 5), "kept\n");
}

TEST_F(LogFiles, AFullDiskDropsLinesTearsNoneAndIsReportedAfterwards) {
  const std::uint64_t dropped_before = hosts::dropped_lines();
  LogFile log(path_, note());
  {
    const support::FileLimit full(250);
    EXPECT_TRUE(log.write(line(0)));
    EXPECT_TRUE(log.write(line(1)));
    EXPECT_TRUE(log.write(line(2)));  // half of it is written; the rest waits
    EXPECT_FALSE(log.write(line(3)));
    EXPECT_FALSE(log.write(line(4) + line(5)));
    EXPECT_EQ(text().size(), 250u);
  }
  EXPECT_EQ(reported_, 1u);
  EXPECT_EQ(hosts::dropped_lines() - dropped_before, 3u);
  EXPECT_TRUE(log.write(line(6)));
  EXPECT_EQ(text(), lines(0, 3) + line(6));
  EXPECT_EQ(reported_, 3u);
}

TEST_F(LogFiles, DroppedLinesAreReportedAtOnceAndThenOnceAMinute) {
  // Regression: the dropped lines were reported only when the server stopped.
  std::vector<std::size_t> counts;
  LogFile log("/dev/full", [&](std::size_t count) {
    counts.push_back(count);
    return true;
  });
  const LogFile::Clock::time_point begin{1h};
  for (int second = 0; second < 150; ++second)
    EXPECT_FALSE(log.write("one\nand another\n", begin + std::chrono::seconds(second)));
  EXPECT_EQ(counts, (std::vector<std::size_t>{2, 120, 120}));
  log.close();
  EXPECT_EQ(counts, (std::vector<std::size_t>{2, 120, 120, 58}));
}

TEST_F(LogFiles, DroppedLinesOfAPipeAreReportedWithoutAFurtherLine) {
  LogFile log(pipe(), note());
  const auto an_hour_ago = LogFile::Clock::now() - 1h;
  while (log.write(line(0), an_hour_ago)) continue;
  EXPECT_GE(reported_, 1u);
  EXPECT_FALSE(log.write(line(1), an_hour_ago));
  await_reports(1);
  EXPECT_EQ(reported_, 2u);
}

TEST_F(LogFiles, LinesQueuedAtTheEndAreCountedAsDropped) {
  pipe();
  const HostFileGuard reader = read_end();
  {
    LogFile log(path_, note());
    for (std::size_t i = 0; i < 20'000; ++i) log.write(line(i));
  }
  EXPECT_EQ(read_for(reader.get(), 2'000'000).size() / 100 + reported_, 20'000u);
}

TEST_F(LogFiles, ANoticeToTheLogItselfWaitsUntilItCanBeWritten) {
  // A notice of each dropped line would be a further line to drop.
  LogFile log(path_, note(), LogFile::NoticeTo::itself);
  {
    const support::FileLimit full(0);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(log.write("one\n"));
    EXPECT_EQ(reported_, 0u);
  }
  EXPECT_TRUE(log.write("two\n"));
  EXPECT_EQ(reported_, 3u);
}

TEST_F(LogFiles, ALogPipeWithoutAReaderDropsItsQueue) {
  ::signal(SIGPIPE, SIG_IGN);
  Pipe pipe(O_CLOEXEC | O_NONBLOCK);
  LogFile log(std::move(pipe.writer), note());
  while (log.write(line(0, 4096))) continue;
  pipe.reader = HostFileGuard();
  for (int i = 0; i < 6000 && log.write("x\n"); ++i) std::this_thread::sleep_for(10ms);
  EXPECT_FALSE(log.write("nobody hears this\n"));
}

TEST_F(LogFiles, DroppedLinesThatCannotBeReportedAreCountedAgain) {
  bool can_report = false;
  std::vector<std::size_t> counts;
  LogFile log(path_, [&](std::size_t count) {
    counts.push_back(count);
    return can_report;
  });
  {
    const support::FileLimit full(0);
    EXPECT_FALSE(log.write("one\n"));
  }
  log.write("two\n");
  can_report = true;
  log.write("three\n");
  log.write("four\n");
  EXPECT_EQ(counts, (std::vector<std::size_t>{1, 1, 1}));
}

TEST_F(LogFiles, AThrowingNoticeDoesNotStopTheLog) {
  LogFile log(path_, [](std::size_t) -> bool { throw std::bad_alloc(); });
  {
    const support::FileLimit full(0);
    EXPECT_FALSE(log.write("one\n"));
  }
  EXPECT_TRUE(log.write("two\n"));
}

TEST_F(LogFiles, ANoticeMayWriteToItsOwnLog) {
  LogFile *self = nullptr;
  LogFile log(
      path_, [&](std::size_t count) { return self->write(hosts::describe_dropped(count) + "\n"); },
      LogFile::NoticeTo::itself);
  self = &log;
  {
    const support::FileLimit full(0);
    EXPECT_FALSE(log.write("one\n"));
  }
  EXPECT_TRUE(log.write("two\n"));
  EXPECT_EQ(text(), "two\n1 line dropped\n");
}

TEST_F(LogFiles, ALineIsDroppedIfAllocationFails) {
  LogFile log(pipe(), note());
  std::size_t taken = 0;
  while (log.write(line(taken, 4096))) ++taken;
  ASSERT_EQ(taken, (65536 + LogFile::queue_limit) / 4096);
  const HostFileGuard reader = read_end();
  EXPECT_EQ(read_for(reader.get(), taken * 4096), lines(0, taken, 4096));
  await_reports(0);
  for (std::size_t i = 0; i < 16; ++i) EXPECT_TRUE(log.write(line(i, 4096)));
  const support::RefusedNew place(4097, 4097);
  EXPECT_FALSE(log.write(line(16, 4096)));
  EXPECT_TRUE(place.done());
}

TEST_F(LogFiles, AThreadThatCannotBeStartedIsTriedAgainWithTheNextLine) {
  LogFile log(pipe(), note());
  for (std::size_t i = 0; i < 16; ++i) log.write(line(i, 4096));
  {
    const support::RefusedNew thread(16, 16);
    EXPECT_TRUE(log.write(line(16, 4096)));
    EXPECT_TRUE(thread.done());
  }
  EXPECT_TRUE(log.write(line(17, 4096)));
  const HostFileGuard reader = read_end();
  EXPECT_EQ(read_for(reader.get(), size_t{18} * 4096), lines(0, 18, 4096));
}

TEST_F(LogFiles, ClosingDoesNotWaitForAPipeWithoutAReader) {
  LogFile log(pipe(), note());
  for (std::size_t i = 0; i < 1000; ++i) log.write(line(i));
  const auto begun = std::chrono::steady_clock::now();
  log.close();
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 1min);
  EXPECT_FALSE(log.write("too late\n"));
}

TEST_F(LogFiles, ClosingWaitsForAReaderThatReads) {
  Pipe pipe;
  std::string got;
  std::thread thread;
  {
    LogFile log(hosts::open_stream(pipe.writer.get()));
    pipe.writer = HostFileGuard();
    for (std::size_t i = 0; i < 2000; ++i) EXPECT_TRUE(log.write(line(i)));
    thread = std::thread([&] { got = read_for(pipe.reader.get(), 200'000); });
  }
  thread.join();
  EXPECT_EQ(got, lines(0, 2000));
}

TEST_F(LogFiles, TheFlagsOfASharedStreamDoNotChange) {
  // A shell loses output if its standard error suddenly becomes non-blocking.
  const Pipe pipe;
  const int flags = ::fcntl(pipe.writer.get(), F_GETFL);
  LogFile log(hosts::open_stream(pipe.writer.get()));
  EXPECT_TRUE(log.write("a line\n"));
  EXPECT_EQ(::fcntl(pipe.writer.get(), F_GETFL), flags);
  EXPECT_EQ(read_for(pipe.reader.get(), 7), "a line\n");
}

TEST_F(LogFiles, AStreamThatBlocksIsWrittenToOnlyWhileItHasRoom) {
  Pipe pipe;
  LogFile log(std::move(pipe.writer));
  for (std::size_t i = 0; i < 20; ++i) EXPECT_TRUE(log.write(line(i, 9000)));
  EXPECT_EQ(read_for(pipe.reader.get(), 180'000), lines(0, 20, 9000));
}

TEST_F(LogFiles, WritingNeverBlocksOnASocketWithoutAReader) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const HostFileGuard reader(ends[0]), stream(ends[1]);
  LogFile log(hosts::open_stream(stream.get()));
  std::size_t taken = 0;
  while (log.write(line(taken))) ++taken;
  EXPECT_GE(taken * 100, LogFile::queue_limit);
  EXPECT_EQ(read_for(reader.get(), taken * 100), lines(0, taken));
}

TEST_F(LogFiles, AStreamToAFileAppends) {
  const HostFileGuard stream(::open(path_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(::write(stream.get(), "before\n", 7), 7);
  LogFile log(hosts::open_stream(stream.get()));
  EXPECT_TRUE(log.write("a line\n"));
  ASSERT_EQ(::write(stream.get(), "after\n", 6), 6);
  EXPECT_EQ(text(), "before\na line\nafter\n");
  EXPECT_TRUE(log.reopen());
}

TEST_F(LogFiles, AFileThatCannotBeOpenedIsNamed) {
  try {
    const LogFile file("/nonexistent/log");
    FAIL() << "the file was opened";
  } catch (const std::system_error &error) {
    EXPECT_STREQ(error.what(), "/nonexistent/log: No such file or directory");
  }
}

TEST_F(LogFiles, ReopeningContinuesInANewFileOfTheSameName) {
  LogFile file(path_);
  file.write("one\n");
  ::chmod(path_.c_str(), 0640);
  std::filesystem::rename(path_, directory_.path("log.1"));
  file.write("two\n");
  EXPECT_TRUE(file.reopen());
  file.write("three\n");
  EXPECT_TRUE(file.reopen());
  file.write("four\n");
  EXPECT_EQ(support::read_file(directory_.path("log.1")), "one\ntwo\n");
  EXPECT_EQ(text(), "three\nfour\n");
  EXPECT_EQ(mode(), 0640u) << "what was kept from others is open to all after a rotation";
}

TEST_F(LogFiles, AFileThatWasMadeForTheLogKeepsItsMode) {
  LogFile file(path_);
  std::filesystem::rename(path_, directory_.path("log.1"));
  support::write_file(path_, "made by the rotation\n");
  ::chmod(path_.c_str(), 0600);
  EXPECT_TRUE(file.reopen());
  file.write("a line\n");
  EXPECT_EQ(text(), "made by the rotation\na line\n");
  EXPECT_EQ(mode(), 0600u);
}

TEST_F(LogFiles, AFailedReopenKeepsTheOldFile) {
  const std::string place = directory_.path("place"), moved = directory_.path("moved");
  std::filesystem::create_directory(place);
  LogFile file(place + "/log");
  std::filesystem::rename(place, moved);
  EXPECT_FALSE(file.reopen());
  EXPECT_EQ(errno, ENOENT);
  file.write("still here\n");
  EXPECT_EQ(support::read_file(moved + "/log"), "still here\n");
}

TEST_F(LogFiles, LinesQueuedForAPipeGoToTheFileThatReplacesIt) {
  LogFile log(pipe());
  for (std::size_t i = 0; i < 16; ++i) EXPECT_TRUE(log.write(line(i, 4096)));
  for (std::size_t i = 16; i < 20; ++i) EXPECT_TRUE(log.write(line(i)));
  ASSERT_EQ(::unlink(path_.c_str()), 0);
  EXPECT_TRUE(log.reopen());
  EXPECT_TRUE(log.write(line(20)));
  EXPECT_EQ(text(), lines(16, 21));
}

TEST_F(LogFiles, TheRestOfALineDoesNotBeginTheNextFile) {
  LogFile log(path_);
  {
    const support::FileLimit full(50);
    EXPECT_TRUE(log.write(line(0)));
  }
  ASSERT_EQ(::unlink(path_.c_str()), 0);
  EXPECT_TRUE(log.reopen());
  EXPECT_TRUE(log.write(line(1)));
  EXPECT_EQ(text(), line(1));
}

TEST_F(LogFiles, ABorrowedDescriptorKeepsItsNumberAndStaysOpen) {
  const HostFileGuard file(hosts::open_log(path_.c_str()));
  {
    LogFile log(file.get(), path_, {});
    EXPECT_EQ(log.path(), path_);
    log.write("one\n");
    std::filesystem::rename(path_, directory_.path("log.1"));
    EXPECT_TRUE(log.reopen());
    log.write("two\n");
    EXPECT_NE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
    log.close();
    // By now the descriptor number may belong to another file.
    std::filesystem::rename(path_, directory_.path("log.2"));
    EXPECT_TRUE(log.reopen());
  }
  EXPECT_EQ(::write(file.get(), "three\n", 6), 6);
  EXPECT_EQ(support::read_file(directory_.path("log.2")), "two\nthree\n");
}

TEST_F(LogFiles, LinesOfConcurrentThreadsAreNotMixed) {
  LogFile log(path_);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; i < 500; ++i) log.write(line(t));
    });
  for (std::thread &thread : threads) thread.join();
  const std::string all = text();
  ASSERT_EQ(all.size(), 200'000u);
  for (std::size_t t = 0; t < 4; ++t) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < all.size(); at += 100) count += all.substr(at, 100) == line(t) ? 1 : 0;
    EXPECT_EQ(count, 500u) << t;
  }
}

}  // namespace
