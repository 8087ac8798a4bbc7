// SPDX-License-Identifier: MIT
/// Unix sockets and their files.

#include "hosts/rdmd/socket_file.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;

using rdmd::bind_unix;
using rdmd::check_unix;
using rdmd::ListenError;
using rdmd::SocketFile;
using rdmd::UnixSocket;

class UnixSockets : public ::testing::Test {
 protected:
  /// failure calls `use` and returns the message of its ListenError without the path, or "".
  template <typename Use>
  std::string failure(Use use, const std::string &path) {
    try {
      use(path);
    } catch (const ListenError &error) {
      const std::string text = error.what(), start = "cannot listen on unix:" + path + ": ";
      EXPECT_EQ(text.substr(0, start.size()), start);
      return text.substr(start.size());
    }
    return "";
  }
  /// leave_stale leaves the file of a dead server at path_.
  void leave_stale() {
    UnixSocket dead = bind_unix(path_);
    dead.file.keep();
  }

  const support::TemporaryDirectory directory_;
  const std::string path_ = directory_.path("socket");
};

TEST_F(UnixSockets, AreNamedByAScheme) {
  EXPECT_EQ(rdmd::unix_path("unix:/run/a"), "/run/a");
  EXPECT_EQ(rdmd::unix_path("unix:"), "");
  EXPECT_EQ(rdmd::unix_path("unix.test:80"), std::nullopt);
}

TEST_F(UnixSockets, TheFileIsRemovedAtTheEnd) {
  {
    const UnixSocket bound = bind_unix(path_);
    EXPECT_TRUE(fs::is_socket(path_));
    EXPECT_TRUE(bound.file.is_current());
    EXPECT_EQ(::fcntl(bound.socket.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(rdmd::local_address(bound.socket.get()).text(), "unix:" + path_);
  }
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(UnixSockets, TheUmaskDecidesWhoMayConnect) {
  const mode_t old = ::umask(0117);
  const UnixSocket bound = bind_unix(path_);
  ::umask(old);
  EXPECT_EQ(fs::status(path_).permissions(), fs::perms{0660});
}

TEST_F(UnixSockets, AFileOfADeadServerIsReplaced) {
  leave_stale();
  ASSERT_TRUE(fs::is_socket(path_));
  EXPECT_EQ(failure(check_unix, path_), "");
  const UnixSocket bound = bind_unix(path_);
  EXPECT_TRUE(bound.file.is_current());
}

TEST_F(UnixSockets, AServerThatListensKeepsItsAddress) {
  const UnixSocket bound = bind_unix(path_);
  ASSERT_EQ(::listen(bound.socket.get(), 0), 0);
  // The second attempt finds the accept queue full.
  for (int attempt = 0; attempt < 3; ++attempt) {
    EXPECT_EQ(failure([](const std::string &path) { bind_unix(path); }, path_), "Address already in use");
    EXPECT_EQ(failure(check_unix, path_), "");
  }
  EXPECT_TRUE(bound.file.is_current());
}

TEST_F(UnixSockets, AFileOfAnotherKindIsNotTouched) {
  const std::string path = directory_.write("file", "text"),
                    reason = "Address already in use: the file is not a socket; remove it or choose another path";
  EXPECT_EQ(failure([](const std::string &name) { bind_unix(name); }, path), reason);
  EXPECT_EQ(failure(check_unix, path), reason);
  EXPECT_EQ(support::read_file(path), "text");
}

TEST_F(UnixSockets, APathThatCannotBeBoundIsRefusedWithTheReason) {
  const std::pair<std::string, const char *> cases[] = {
      {"", "Invalid argument"},
      {directory_.path(std::string(200, 'x')), "File name too long"},
      {directory_.path("none/socket"), "No such file or directory"},
  };
  for (const auto &[path, reason] : cases) {
    EXPECT_EQ(failure([](const std::string &name) { bind_unix(name); }, path), reason);
    EXPECT_EQ(failure(check_unix, path), reason);
  }
}

TEST_F(UnixSockets, ACheckLeavesNoFile) {
  EXPECT_EQ(failure(check_unix, path_), "");
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(UnixSockets, AFileThatReplacedOursIsNotRemoved) {
  {
    const UnixSocket first = bind_unix(path_);
    const UnixSocket second = bind_unix(path_);  // the first does not listen yet
    EXPECT_FALSE(first.file.is_current());
    EXPECT_TRUE(second.file.is_current());
    SocketFile(std::move(const_cast<UnixSocket &>(first).file)).remove();
    EXPECT_TRUE(second.file.is_current());
  }
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(UnixSockets, AChildProcessDoesNotRemoveTheFile) {
  UnixSocket bound = bind_unix(path_);
  const pid_t child = ::fork();
  if (child == 0) {
    bound.file.remove();
    ::_exit(0);
  }
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_TRUE(bound.file.is_current());
}

TEST_F(UnixSockets, TheFileStaysForTheProcessThatTakesTheSocketOver) {
  UnixSocket bound = bind_unix(path_);
  bound.file.keep();
  bound.file.remove();
  EXPECT_TRUE(fs::is_socket(path_));
}

}  // namespace
