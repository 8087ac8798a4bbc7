// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "qxapi/guard.h"
#include "support/files.h"

using namespace rdm;

namespace {

class File : public ::testing::Test {
 protected:
  static std::string read(host_fd fd, int32_t n) {
    std::string bytes(static_cast<size_t>(n), '?');
    const int32_t got = host_read(fd, bytes.data(), n);
    EXPECT_GE(got, 0);
    bytes.resize(static_cast<size_t>(std::max(got, 0)));
    return bytes;
  }
  static int write(host_fd fd, const std::string &bytes) {
    return host_write(fd, bytes.data(), static_cast<int32_t>(bytes.size()));
  }
  mode_t mode() const {
    struct stat st;
    EXPECT_EQ(::stat(path.c_str(), &st), 0);
    return st.st_mode & 0777;
  }

  support::TemporaryDirectory directory;
  std::string path = directory.path("file");
};

using Open = host_fd (*)(const char *);
constexpr std::array<Open, 4> all_opens = {host_open_read, host_open_write, host_open_append, host_open_readwrite};

/// descriptors counts the process's open descriptors.
long descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

/// Mask sets the process's file mode mask for its scope.
class Mask {
 public:
  explicit Mask(mode_t mask) : before_(::umask(mask)) {}
  Mask(const Mask &) = delete;
  Mask &operator=(const Mask &) = delete;
  ~Mask() { ::umask(before_); }

 private:
  mode_t before_;
};

/// Pipe is a pipe whose ends close with its scope.
struct Pipe {
  Pipe() {
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    reader = HostFileGuard(fds[0]);
    writer = HostFileGuard(fds[1]);
  }
  HostFileGuard reader, writer;
};

TEST_F(File, OpenReadReadsExistingFilesOnly) {
  EXPECT_EQ(host_open_read(path.c_str()), -1);
  EXPECT_STREQ(host_last_error_text(), "No such file or directory");
  EXPECT_FALSE(support::file_exists(path));
  support::write_file(path, "bytes");
  const HostFileGuard file(host_open_read(path.c_str()));
  EXPECT_EQ(read(file.get(), 10), "bytes");
  EXPECT_EQ(write(file.get(), "more"), 0);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(File, OpenWriteMakesAPrivateFileWhateverTheMask) {
  for (const mode_t mask : {0000u, 0022u, 0077u}) {
    const Mask guard(mask);
    const HostFileGuard file(host_open_write(path.c_str()));
    ASSERT_TRUE(file);
    EXPECT_EQ(mode(), 0600u);
    ::unlink(path.c_str());
  }
}

TEST_F(File, EveryOpenMakesOneDescriptorThatDoesNotOutliveAnExec) {
  for (const Open open : all_opens) {
    support::write_file(path, "");
    for (const bool exists : {true, false}) {
      if (!exists) ::unlink(path.c_str());
      const auto before = descriptors();
      const HostFileGuard file(open(path.c_str()));
      EXPECT_EQ(descriptors(), before + (file ? 1 : 0));
      if (file) {
        EXPECT_NE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
      }
    }
  }
}

TEST_F(File, OpenWriteEmptiesAnExistingFileAndKeepsItsMode) {
  support::write_file(path, "before");
  ::chmod(path.c_str(), 0640);
  const HostFileGuard file(host_open_write(path.c_str()));
  ASSERT_TRUE(file);
  EXPECT_EQ(support::read_file(path), "");
  EXPECT_EQ(mode(), 0640u);
}

TEST_F(File, OpenWriteReadsAndAppends) {
  const HostFileGuard file(host_open_write(path.c_str()));
  EXPECT_EQ(write(file.get(), "one"), 1);
  EXPECT_EQ(host_seek(file.get(), 1, SEEK_SET), 1);
  EXPECT_EQ(read(file.get(), 10), "ne");
  EXPECT_EQ(host_seek(file.get(), 0, SEEK_SET), 0);
  EXPECT_EQ(write(file.get(), "two"), 1);
  EXPECT_EQ(support::read_file(path), "onetwo");
}

TEST_F(File, OpenAppendMakesOrExtends) {
  const Mask mask(0002);
  for (const char *bytes : {"one", "two"}) {
    const HostFileGuard file(host_open_append(path.c_str()));
    ASSERT_TRUE(file);
    host_seek(file.get(), 0, SEEK_SET);
    EXPECT_EQ(write(file.get(), bytes), 1);
    char byte = 0;
    EXPECT_EQ(host_read(file.get(), &byte, 1), -1) << "it is for writing only";
  }
  EXPECT_EQ(support::read_file(path), "onetwo");
  EXPECT_EQ(mode(), 0644u);
}

TEST_F(File, OpenReadwriteMakesOrKeeps) {
  const Mask mask(0027);
  {
    const HostFileGuard file(host_open_readwrite(path.c_str()));
    EXPECT_EQ(write(file.get(), "abcdef"), 1);
  }
  EXPECT_EQ(mode(), 0640u);
  const HostFileGuard file(host_open_readwrite(path.c_str()));
  EXPECT_EQ(read(file.get(), 2), "ab");
  EXPECT_EQ(write(file.get(), "XY"), 1);
  EXPECT_EQ(support::read_file(path), "abXYef");
}

TEST_F(File, NothingOpensInAMissingDirectory) {
  const std::string missing = directory.path("missing/file");
  for (const Open open : all_opens) {
    EXPECT_EQ(open(missing.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
  }
}

TEST_F(File, ReadStopsAtTheEnd) {
  support::write_file(path, "abc");
  const HostFileGuard file(host_open_read(path.c_str()));
  EXPECT_EQ(read(file.get(), 0), "");
  EXPECT_EQ(read(file.get(), 2), "ab");
  EXPECT_EQ(read(file.get(), 2), "c");
  EXPECT_EQ(read(file.get(), 2), "");
}

TEST_F(File, ReadErrorIsMinusOne) {
  char byte = 0;
  EXPECT_EQ(host_read(-1, &byte, 1), -1);
  EXPECT_STREQ(host_last_error_text(), "Bad file descriptor");
}

TEST_F(File, ReadGathersPieces) {
  Pipe pipe;
  std::thread sender([&] {
    EXPECT_EQ(write(pipe.writer.get(), "one "), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(write(pipe.writer.get(), "two and more"), 1);
  });
  EXPECT_EQ(read(pipe.reader.get(), 7), "one two");
  EXPECT_EQ(read(pipe.reader.get(), 9), " and more");
  sender.join();
}

/// Interruptions lets SIGUSR1 break off system calls for its scope.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // without SA_RESTART
    EXPECT_EQ(::sigaction(SIGUSR1, &action, &before_), 0);
  }
  Interruptions(const Interruptions &) = delete;
  Interruptions &operator=(const Interruptions &) = delete;
  ~Interruptions() { ::sigaction(SIGUSR1, &before_, nullptr); }

  static void send_to(std::thread &thread) {
    for (int i = 0; i < 20; ++i) {
      ::pthread_kill(thread.native_handle(), SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

 private:
  struct sigaction before_ {};
};

TEST_F(File, ReadContinuesAfterASignal) {
  const Interruptions interruptions;
  Pipe pipe;
  std::string got;
  std::thread receiver([&] { got = read(pipe.reader.get(), 5); });
  Interruptions::send_to(receiver);
  EXPECT_EQ(write(pipe.writer.get(), "bytes"), 1);
  receiver.join();
  EXPECT_EQ(got, "bytes");
}

TEST_F(File, WriteWritesAllThereIs) {
  Pipe pipe;
  std::string bytes(1000000, ' ');  // more than a pipe holds
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i % 251);
  std::string got;
  std::thread receiver([&] { got = read(pipe.reader.get(), 1000000); });
  EXPECT_EQ(write(pipe.writer.get(), bytes), 1);
  receiver.join();
  EXPECT_TRUE(got == bytes);
}

TEST_F(File, WritesContinueAfterASignal) {
  const Interruptions interruptions;
  for (const auto writes : {host_write, host_write_log}) {
    Pipe pipe;
    const std::string full(static_cast<size_t>(::fcntl(pipe.writer.get(), F_GETPIPE_SZ)), 'x');
    EXPECT_EQ(write(pipe.writer.get(), full), 1);
    int result = -1;
    std::thread sender([&] { result = writes(pipe.writer.get(), "bytes", 5); });
    Interruptions::send_to(sender);
    EXPECT_EQ(read(pipe.reader.get(), static_cast<int32_t>(full.size())), full);
    EXPECT_EQ(read(pipe.reader.get(), 5), "bytes");
    sender.join();
    EXPECT_EQ(result, 1);
  }
}

TEST_F(File, WriteErrorIsZero) {
  const HostFileGuard full(host_open_readwrite("/dev/full"));
  EXPECT_EQ(write(full.get(), "bytes"), 0);
  EXPECT_STREQ(host_last_error_text(), "No space left on device");
  EXPECT_EQ(host_write_log(full.get(), "bytes", 5), 0);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(write(-1, "bytes"), 0);
  EXPECT_EQ(host_write_log(-1, "bytes", 5), 0);
}

TEST_F(File, WriteOfNothingAndOfOneByteSucceeds) {
  const HostFileGuard file(host_open_write(path.c_str()));
  EXPECT_EQ(host_write(file.get(), "", 0), 1);
  EXPECT_EQ(host_write_log(file.get(), "", 0), 1);
  EXPECT_EQ(write(file.get(), "1"), 1);
  EXPECT_EQ(host_write_log(file.get(), "2", 1), 1);
  EXPECT_EQ(support::read_file(path), "12");
}

TEST_F(File, LogLinesOfManyThreadsStayWhole) {
  constexpr int thread_count = 8, lines_each = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < thread_count; ++t)
    threads.emplace_back([&, t] {
      const HostFileGuard file(host_open_append(path.c_str()));
      const std::string line = std::string(200, static_cast<char>('a' + t)) + "\n";
      for (int i = 0; i < lines_each; ++i)
        EXPECT_EQ(host_write_log(file.get(), line.data(), static_cast<int32_t>(line.size())), 1);
    });
  for (std::thread &thread : threads) thread.join();
  std::map<std::string, int> counts;
  std::istringstream lines(support::read_file(path));
  for (std::string line; std::getline(lines, line);) ++counts[line];
  EXPECT_EQ(counts.size(), static_cast<size_t>(thread_count));
  for (const auto &[line, count] : counts) {
    EXPECT_EQ(line, std::string(200, line[0]));
    EXPECT_EQ(count, lines_each);
  }
}

TEST_F(File, SeekAnswersTheNewPosition) {
  support::write_file(path, "abcdef");
  const HostFileGuard file(host_open_read(path.c_str()));
  EXPECT_EQ(host_seek(file.get(), 0, SEEK_END), 6);
  EXPECT_EQ(host_seek(file.get(), -4, SEEK_CUR), 2);
  EXPECT_EQ(read(file.get(), 2), "cd");
  EXPECT_EQ(host_seek(file.get(), 5000000000, SEEK_SET), 5000000000);
  EXPECT_EQ(read(file.get(), 2), "");
  EXPECT_EQ(host_seek(file.get(), -1, SEEK_SET), -1);
  EXPECT_EQ(host_seek(-1, 0, SEEK_SET), -1);
}

TEST_F(File, CloseClosesOnce) {
  const host_fd fd = host_open_write(path.c_str());
  EXPECT_EQ(host_close(fd), 0);
  EXPECT_EQ(host_close(fd), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(File, StatTellsTheSize) {
  support::write_file(path, "12345");
  struct stat st;
  EXPECT_EQ(host_stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_size, 5);
  EXPECT_EQ(host_stat(directory.path("missing").c_str(), &st), -1);
  EXPECT_STREQ(host_last_error_text(), "No such file or directory");
}

TEST_F(File, UnlinkRemoves) {
  support::write_file(path, "");
  EXPECT_EQ(host_unlink(path.c_str()), 0);
  EXPECT_FALSE(support::file_exists(path));
  EXPECT_EQ(host_unlink(path.c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
}

}  // namespace
