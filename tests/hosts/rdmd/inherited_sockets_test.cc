// SPDX-License-Identifier: MIT
/// Descriptors passed by LISTEN_FDS. The cases that need descriptor 3 run in a child process, which reports by its exit
/// status.

#include "hosts/rdmd/inherited_sockets.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/environment.h"

using namespace rdm;

namespace {

using rdmd::InheritedSocket;
using rdmd::take_inherited_sockets;

/// in_child returns true if `holds` returns true in a child process.
template <typename Holds>
bool in_child(Holds holds) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(holds() ? 0 : 1);
  int status = 0;
  ::waitpid(child, &status, 0);
  return status == 0;
}

/// pass makes `count` inherited descriptors for the calling process.
void pass(int count, const char *names = nullptr) {
  HostFileGuard opened(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const HostFileGuard file(::fcntl(opened.get(), F_DUPFD_CLOEXEC, 100));
  opened = HostFileGuard();
  for (int fd = 3; fd < 3 + count; ++fd) ::dup2(file.get(), fd);
  ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
  ::setenv("LISTEN_FDS", std::to_string(count).c_str(), 1);
  if (names != nullptr) ::setenv("LISTEN_FDNAMES", names, 1);
}

bool environment_is_clean() {
  constexpr const char *names[] = {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"};
  return std::none_of(std::begin(names), std::end(names),
                      [](const char *name) { return std::getenv(name) != nullptr; });
}

TEST(InheritedSockets, AreTakenWithTheirNamesAndHiddenFromChildren) {
  EXPECT_TRUE(in_child([] {
    pass(3, "web:tls");
    const std::vector<InheritedSocket> taken = take_inherited_sockets();
    if (taken.size() != 3 || !environment_is_clean()) return false;
    for (int i = 0; i < 3; ++i)
      if (taken[i].socket.get() != 3 + i || ::fcntl(3 + i, F_GETFD) != FD_CLOEXEC ||
          (::fcntl(3 + i, F_GETFL) & O_NONBLOCK) == 0)
        return false;
    return taken[0].name == "web" && taken[1].name == "tls" && taken[2].name.empty();
  }));
}

TEST(InheritedSockets, AClosedDescriptorIsLeftOut) {
  EXPECT_TRUE(in_child([] {
    pass(2, "first:second");
    ::close(3);
    const std::vector<InheritedSocket> taken = take_inherited_sockets();
    return taken.size() == 1 && taken[0].socket.get() == 4 && taken[0].name == "second";
  }));
}

TEST(InheritedSockets, ThoseOfAnotherProcessAreLeftAloneButHidden) {
  EXPECT_TRUE(in_child([] {
    pass(1);
    ::setenv("LISTEN_PID", "1", 1);
    return take_inherited_sockets().empty() && ::fcntl(3, F_GETFD) == 0 && environment_is_clean();
  }));
}

TEST(InheritedSockets, AMalformedEnvironmentMeansNone) {
  const std::string self = std::to_string(::getpid());
  const std::pair<const char *, const char *> cases[] = {
      {"", "1"}, {"x", "1"}, {"self", ""}, {"self", "x"}, {"self", "-1"}, {"self", "2000000000"}, {"self", "1 "},
  };
  for (const auto &[process, count] : cases) {
    ::setenv("LISTEN_PID", std::string(process) == "self" ? self.c_str() : process, 1);
    ::setenv("LISTEN_FDS", count, 1);
    EXPECT_TRUE(take_inherited_sockets().empty()) << process << ' ' << count;
    EXPECT_TRUE(environment_is_clean());
  }
}

TEST(InheritedSockets, OnlyListeningStreamsCanBeServed) {
  const HostFileGuard stream(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      datagram(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), file(::open("/dev/null", O_RDONLY | O_CLOEXEC)),
      packets(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  EXPECT_FALSE(rdmd::is_listening_stream(stream.get()));
  ASSERT_EQ(::listen(stream.get(), 1), 0);
  EXPECT_TRUE(rdmd::is_listening_stream(stream.get()));
  for (const HostFileGuard *other : {&datagram, &file, &packets}) EXPECT_FALSE(rdmd::is_listening_stream(other->get()));
}

}  // namespace
