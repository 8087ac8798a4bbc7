// SPDX-License-Identifier: MIT
/// Resolving and binding of "HOST:PORT".

#include "hosts/rdmd/listen_address.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/rdmd/front/server_within.h"
#include "hosts/rdmd/rdmd_process.h"

using namespace rdm;

namespace {

/// Names that these tests' getaddrinfo resolves, with their addresses.
const std::map<std::string, std::vector<const char *>> names = {
    {"both.test", {"127.0.0.1", "::1"}},
    {"two.test", {"127.0.0.1", "127.0.0.2"}},
    {"thrice.test", {"127.0.0.1", "127.0.0.1", "127.0.0.2"}},
    {"partly.test", {"198.51.100.1", "127.0.0.1"}},
    {"elsewhere.test", {"198.51.100.1", "198.51.100.2"}},
    {"wildcards.test", {"::", "0.0.0.0"}},
};

/// The number of further calls for which bind() to 127.0.0.2 fails with EADDRINUSE.
int refused_binds = 0;

template <typename Function>
Function *next(const char *name, Function *) {
  return reinterpret_cast<Function *>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's names are reserved

extern "C" int getaddrinfo(const char *node, const char *service, const addrinfo *hints, addrinfo **found) {
  const auto real = next("getaddrinfo", ::getaddrinfo);
  if (std::string_view(node) == "failing.test") {
    errno = EMFILE;
    return EAI_SYSTEM;
  }
  const auto name = names.find(node);
  if (name == names.end()) return real(node, service, hints, found);
  for (const char *address : name->second) {
    if (const int error = real(address, service, hints, found)) return error;
    found = &(*found)->ai_next;
  }
  return 0;
}

extern "C" int bind(int fd, const sockaddr *address, socklen_t size) noexcept {
  const auto *v4 = reinterpret_cast<const sockaddr_in *>(address);
  const bool second = address->sa_family == AF_INET && v4->sin_addr.s_addr == htonl(INADDR_LOOPBACK + 1);
  if (second && refused_binds > 0) {
    --refused_binds;
    errno = EADDRINUSE;
    return -1;
  }
  return next("bind", ::bind)(fd, address, size);
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace {

using rdmd::bind_listen;
using rdmd::BoundSockets;
using rdmd::ListenError;

/// failure tries to bind and returns the message of the error with its code, or "bound".
std::string failure(const std::string &text) {
  try {
    bind_listen(text);
  } catch (const ListenError &error) {
    return std::string(error.what()) + " [" + std::to_string(error.code()) + "]";
  }
  return "bound";
}

std::vector<std::string> addresses(const BoundSockets &bound) {
  std::vector<std::string> texts;
  for (const HostFileGuard &socket : bound.sockets) texts.push_back(rdmd::local_address(socket.get()).text());
  return texts;
}

/// connect_to returns 0 if a connection to the address of a socket succeeds, otherwise the errno.
int connect_to(const HostFileGuard &bound) {
  const rdmd::ListenAddress address = rdmd::local_address(bound.get());
  const HostFileGuard client(::socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto *name = reinterpret_cast<const sockaddr *>(&address.storage);
  return ::connect(client.get(), name, address.size) == 0 ? 0 : errno;
}

TEST(ListenAddress, EveryAddressOfANameIsBoundToTheSamePort) {
  // The server listened only on the first address of a name.
  const BoundSockets bound = bind_listen("both.test:0");
  ASSERT_EQ(bound.sockets.size(), 2u);
  const std::string port = std::to_string(rdmd::local_address(bound.sockets[0].get()).port());
  EXPECT_EQ(addresses(bound), (std::vector<std::string>{"127.0.0.1:" + port, "[::1]:" + port}));
  EXPECT_EQ(bound.missing, std::vector<std::string>{});
}

TEST(ListenAddress, AnAddressThatIsNamedTwiceIsBoundOnce) {
  EXPECT_EQ(rdmd::resolve_listen("thrice.test:0").size(), 2u);
  EXPECT_EQ(bind_listen("thrice.test:0").sockets.size(), 2u);
}

TEST(ListenAddress, WildcardsOfBothFamiliesDoNotCollide) {
  EXPECT_EQ(bind_listen("wildcards.test:0").sockets.size(), 2u);
}

TEST(ListenAddress, AnAddressThatTheMachineDoesNotHaveIsLeftOutAndNamed) {
  const BoundSockets bound = bind_listen("partly.test:0");
  EXPECT_EQ(bound.sockets.size(), 1u);
  EXPECT_EQ(bound.missing, std::vector<std::string>{"198.51.100.1:0: Cannot assign requested address"});
  EXPECT_EQ(failure("elsewhere.test:0"), "cannot listen on elsewhere.test:0: Cannot assign requested address [" +
                                             std::to_string(EADDRNOTAVAIL) + "]");
}

TEST(ListenAddress, PortZeroFindsAPortFreeOnEveryAddress) {
  refused_binds = 3;
  EXPECT_EQ(bind_listen("two.test:0").sockets.size(), 2u);
  EXPECT_EQ(refused_binds, 0);
  refused_binds = 1000;
  EXPECT_EQ(failure("two.test:0"),
            "cannot listen on two.test:0: Address already in use [" + std::to_string(EADDRINUSE) + "]");
  refused_binds = 1;
  const support::ReservedPort reserved;
  const std::string one_port = "two.test:" + std::to_string(reserved.number());
  EXPECT_EQ(failure(one_port),
            "cannot listen on " + one_port + ": Address already in use [" + std::to_string(EADDRINUSE) + "]");
  refused_binds = 0;
}

TEST(ListenAddress, ABoundSocketRefusesClientsAndIsNotInherited) {
  const BoundSockets bound = bind_listen("127.0.0.1:0");
  const HostFileGuard &socket = bound.sockets.front();
  EXPECT_EQ(connect_to(socket), ECONNREFUSED);
  EXPECT_EQ(::fcntl(socket.get(), F_GETFD), FD_CLOEXEC);
  ASSERT_EQ(::listen(socket.get(), 1), 0);
  EXPECT_EQ(connect_to(socket), 0);
  EXPECT_EQ(failure(rdmd::local_address(socket.get()).text()),
            "cannot listen on " + rdmd::local_address(socket.get()).text() + ": Address already in use [" +
                std::to_string(EADDRINUSE) + "]");
}

TEST(ListenAddress, ANameThatCannotBeResolvedIsNamedWithTheReason) {
  EXPECT_EQ(failure("failing.test:0"),
            "cannot listen on failing.test:0: Too many open files [" + std::to_string(EMFILE) + "]");
  EXPECT_EQ(failure("[::1.:0"),
            "cannot listen on [::1.:0: an IPv6 address must be in brackets, such as [::1]:8380 [0]");
  EXPECT_EQ(failure("a b:0"), "cannot listen on a b:0: Name or service not known [0]");
}

TEST(ListenAddress, AMalformedAddressIsRefused) {
  const char required[] = "HOST:PORT is required",
             brackets[] = "an IPv6 address must be in brackets, such as [::1]:8380",
             number[] = "the port is a number from 0 to 65535";
  const std::pair<const char *, const char *> cases[] = {
      {"8380", required},          {":8380", required},        {"127.0.0.1:", required},
      {"::1:8380", brackets},      {"127.0.0.1:http", number}, {"127.0.0.1:65536", number},
      {"127.0.0.1:73916", number}, {"127.0.0.1:-1", number},   {"127.0.0.1:80 ", number},
  };
  for (const auto &[text, reason] : cases)
    EXPECT_EQ(failure(text), "cannot listen on " + std::string(text) + ": " + reason + " [0]");
}

class ListeningServer : public ::testing::Test {
 protected:
  static rdmd::Settings on(const char *listen) {
    rdmd::Settings settings;
    settings.listen = {listen};
    return settings;
  }
};

TEST_F(ListeningServer, ServesClientsOfAllAddresses) {
  support::ServerWithin server(on("both.test:0"));
  const std::string address = server->address();
  const int port = std::stoi(address.substr(address.rfind(':') + 1));
  EXPECT_EQ(address, "127.0.0.1:" + std::to_string(port) + ", [::1]:" + std::to_string(port));
  std::thread thread([&] { EXPECT_TRUE(server->run()); });
  for (const bool ipv6 : {false, true, false, true}) {
    support::HttpClient client(port, ipv6);
    client.send("GET / HTTP/1.0\r\n\r\n");
    EXPECT_EQ(client.receive().status, 404) << ipv6;
  }
  ::kill(::getpid(), SIGTERM);
  thread.join();
}

TEST_F(ListeningServer, SaysWhichAddressOfANameItDoesNotListenOn) {
  const support::ServerWithin server(on("partly.test:0"));
  EXPECT_NE(
      server.errors().find("[warning] rdmd: cannot listen on partly.test:0: 198.51.100.1:0: Cannot assign requested "
                           "address; listening on its other addresses\n"),
      std::string::npos)
      << server.errors();
}

TEST_F(ListeningServer, AnAddressThatAnotherServerTookMeanwhileIsAnError) {
  // Two servers that start at the same time both bind; the second one's listen() must fail.
  support::ServerWithin first(on("127.0.0.1:0"), support::ServerWithin::Listen::no);
  support::ServerWithin second(on(first->address().c_str()), support::ServerWithin::Listen::no);
  first->listen();
  try {
    second->listen();
    FAIL() << "both listen on " << first->address();
  } catch (const ListenError &error) {
    EXPECT_EQ(error.what(), "cannot listen on " + first->address() + ": Address already in use");
  }
}

}  // namespace
