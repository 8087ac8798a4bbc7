// SPDX-License-Identifier: MIT
/// The sockets of a server: named by options, or inherited.

#include "hosts/rdmd/listeners.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

using rdmd::InheritedSocket;
using rdmd::ListenError;
using rdmd::ListeningSocket;

class Listeners : public ::testing::Test {
 protected:
  /// inherit makes an inherited socket that listens on an address, and returns that address as text.
  std::string inherit(const std::string &text) {
    HostFileGuard socket =
        rdmd::unix_path(text) ? make_unix(*rdmd::unix_path(text)) : std::move(rdmd::bind_listen(text).sockets.front());
    EXPECT_EQ(::listen(socket.get(), 1), 0);
    std::string address = rdmd::local_address(socket.get()).text();
    descriptors_.push_back(socket.get());
    inherited_.push_back({std::move(socket), ""});
    return address;
  }

  /// open opens the sockets of these options, and returns their addresses.
  std::vector<std::string> open(std::vector<std::string> listen) {
    sockets_.clear();
    settings_.listen = std::move(listen);
    sockets_ = rdmd::open_listeners(settings_, std::move(inherited_),
                                    [this](const std::string &text) { warnings_.push_back(text); });
    std::vector<std::string> addresses;
    for (const ListeningSocket &socket : sockets_) addresses.push_back(socket.address);
    return addresses;
  }

  using Texts = std::vector<std::string>;
  const support::TemporaryDirectory directory_;
  rdmd::Settings settings_;
  std::vector<InheritedSocket> inherited_;
  std::vector<host_fd> descriptors_;  // of the inherited sockets
  std::vector<ListeningSocket> sockets_;
  Texts warnings_;

 private:
  static HostFileGuard make_unix(const std::string &path) {
    rdmd::UnixSocket made = rdmd::bind_unix(path);
    made.file.keep();
    return std::move(made.socket);
  }
};

TEST_F(Listeners, TheDefaultAddressIsUsedIfNoneIsNamed) {
  EXPECT_EQ(rdmd::listen_texts(rdmd::Settings()), Texts{"127.0.0.1:8380"});
}

TEST_F(Listeners, EveryNamedAddressIsBoundInItsOrder) {
  const std::string path = "unix:" + directory_.path("socket");
  const Texts addresses = open({"[::1]:0", path, "127.0.0.1:0"});
  ASSERT_EQ(addresses.size(), 3U);
  EXPECT_EQ(addresses[0].substr(0, 6), "[::1]:");
  EXPECT_EQ(addresses[1], path);
  EXPECT_EQ(addresses[2].substr(0, 10), "127.0.0.1:");
  EXPECT_EQ(warnings_, Texts());
  for (ListeningSocket &socket : sockets_) {
    EXPECT_FALSE(rdmd::is_listening_stream(socket.socket.get())) << socket.address;
    rdmd::begin_listening(socket.socket.get(), socket);
    EXPECT_TRUE(rdmd::is_listening_stream(socket.socket.get())) << socket.address;
  }
}

TEST_F(Listeners, AnAddressThatAServerListensOnIsInUse) {
  for (const std::string &text : {std::string("127.0.0.1:0"), "unix:" + directory_.path("socket")}) {
    rdmd::Settings same;
    same.listen = open({text});
    rdmd::begin_listening(sockets_.front().socket.get(), sockets_.front());
    EXPECT_THROW(rdmd::open_listeners(same, {}, {}), ListenError) << text;
  }
}

TEST_F(Listeners, InheritedSocketsAreMatchedByTheirAddress) {
  const Texts all = {inherit("127.0.0.1:0"), inherit("[::1]:0"), inherit("unix:" + directory_.path("socket"))};
  const Texts addresses = open({all[2], all[1], "127.0.0.1:0", "127.0.0.2:0"});
  ASSERT_EQ(addresses.size(), 4U);
  EXPECT_EQ(Texts(addresses.begin(), addresses.begin() + 3), (Texts{all[2], all[1], all[0]}));
  for (const auto &[at, which] : {std::pair(0, 2), std::pair(1, 1), std::pair(2, 0)})
    EXPECT_EQ(sockets_[at].socket.get(), descriptors_[which]);
  EXPECT_EQ(warnings_, Texts());
}

TEST_F(Listeners, AnInheritedPathIsNotRemoved) {
  const std::string path = directory_.path("socket");
  inherit("unix:" + path);
  open({"unix:" + path});
  sockets_.clear();
  EXPECT_EQ(::access(path.c_str(), F_OK), 0);
}

TEST_F(Listeners, ASuccessorKnowsTheSocketsByTheirNamesAndRemovesTheFile) {
  const std::string path = directory_.path("socket");
  settings_.tls_listen = {"unix:" + path};
  open({"127.0.0.1:0"});
  Texts names;
  for (ListeningSocket &socket : sockets_) {
    rdmd::begin_listening(socket.socket.get(), socket);
    names.push_back(rdmd::inherited_name(socket));
    inherited_.push_back({HostFileGuard(socket.socket.release()), names.back()});
    socket.file.keep();
  }
  EXPECT_EQ(names, (Texts{"plain", "tls-file"}));
  settings_.tls_listen.clear();
  open({});
  ASSERT_EQ(sockets_.size(), 2U);
  EXPECT_FALSE(sockets_[0].tls);
  EXPECT_TRUE(sockets_[1].tls);
  for (ListeningSocket &socket : sockets_) {
    rdmd::begin_listening(socket.socket.get(), socket);
    EXPECT_EQ(rdmd::inherited_name(socket), names[&socket - sockets_.data()]);
  }
  sockets_.clear();
  EXPECT_EQ(::access(path.c_str(), F_OK), -1);
}

TEST_F(Listeners, AnotherPortOrHostIsNotTakenForAnInheritedSocket) {
  const std::string inherited = inherit("127.0.0.1:0"), host = "127.0.0.2" + inherited.substr(inherited.rfind(':'));
  EXPECT_EQ(open({host}), Texts{host});
  EXPECT_EQ(warnings_, Texts{"no option names the inherited socket " + inherited + ": closed"});
  EXPECT_EQ(::fcntl(descriptors_.front(), F_GETFD), -1);
}

TEST_F(Listeners, WithoutOptionsAllInheritedSocketsAreServedAndNoOther) {
  const Texts all = {inherit("127.0.0.1:0"), inherit("[::1]:0")};
  EXPECT_EQ(open({}), all);
  EXPECT_EQ(warnings_, Texts());
}

TEST_F(Listeners, OtherInheritedDescriptorsAreClosedWithAWarning) {
  const std::string address = inherit("127.0.0.1:0");
  const host_fd file = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  inherited_.push_back({HostFileGuard(file), "web"});
  EXPECT_EQ(open({}), Texts{address});
  EXPECT_EQ(warnings_,
            Texts{"inherited descriptor " + std::to_string(file) + " is not a listening stream socket: closed"});
  EXPECT_EQ(::fcntl(file, F_GETFD), -1);
}

TEST_F(Listeners, APathThatAnotherServerTookMeanwhileIsAnError) {
  const std::string path = "unix:" + directory_.path("socket");
  open({path});
  std::vector<ListeningSocket> second = rdmd::open_listeners(settings_, {}, {});
  rdmd::begin_listening(second.front().socket.get(), second.front());
  try {
    rdmd::begin_listening(sockets_.front().socket.get(), sockets_.front());
    FAIL() << "both listen on " << path;
  } catch (const ListenError &error) {
    EXPECT_EQ(error.what(), "cannot listen on " + path + ": Address already in use");
    EXPECT_EQ(error.code(), EADDRINUSE);
  }
}

}  // namespace
