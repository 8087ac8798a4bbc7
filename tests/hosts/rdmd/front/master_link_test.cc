// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/master_link.h"

#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <boost/asio/post.hpp>
#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "hosts/rdmd/worker/packet.h"
#include "support/files.h"

using namespace rdm;
using namespace rdm::rdmd;
using namespace std::chrono_literals;

namespace {

/// MasterLinks has a link, and a test in the place of the master.
class MasterLinks : public ::testing::Test {
 protected:
  explicit MasterLinks() : MasterLinks(make_packet_sockets()) {}

  void tell(ControlMessage::Kind kind, const std::vector<host_fd> &files = {}) const {
    EXPECT_TRUE(send_packet(master_.get(), encode(ControlMessage{kind, 1, 1, ""}), files));
  }

  /// is_alive takes the next message and returns true if it says that the front works.
  bool is_alive() const {
    const std::optional<Packet> packet = receive_packet(master_.get(), false);
    return packet && decode_control(packet->bytes).kind == ControlMessage::Kind::alive;
  }

  const support::TemporaryDirectory directory_;
  const Limits limits_;
  ErrorLog errors_{directory_.path("errors")};
  boost::asio::io_context context_;
  const io::Executor strand_{context_.get_executor()};
  Dispatcher dispatcher_{limits_, strand_};
  const HostFileGuard master_;
  MasterLink link_;

 private:
  explicit MasterLinks(PacketSockets sockets)
      : master_(std::move(sockets.first)),
        link_(
            std::move(sockets.second), strand_, dispatcher_, errors_, [](const ControlMessage &) {}, [] {}) {}
};

TEST_F(MasterLinks, SayThatTheyWorkWhenTheyHaveTheWorkersThatWereReady) {
  // Regression: the server was announced, and /readyz still said that no worker is ready.
  link_.start();
  context_.poll();
  EXPECT_FALSE(is_alive());
  const PacketSockets worker = make_packet_sockets();
  tell(ControlMessage::Kind::worker, {worker.second.get()});
  tell(ControlMessage::Kind::begin);
  EXPECT_TRUE(support::eventually([this] {
    context_.poll();
    return is_alive();
  }));
  EXPECT_EQ(dispatcher_.status().free, 1U);
}

TEST_F(MasterLinks, EndWhenTheyAreStoppedAtTheTimeOfAReport) {
  // Regression: cancelling a timer that has expired has no effect, so the reports went on, and the front never ended.
  boost::asio::post(strand_, [this] { link_.start(); });
  std::thread one([this] { context_.run_for(60s); }), other([this] { context_.run_for(60s); });
  tell(ControlMessage::Kind::begin);
  EXPECT_TRUE(support::eventually([this] { return is_alive(); }));
  boost::asio::post(strand_, [this] {
    // The other thread finds meanwhile that the timer has expired; its handler waits for this strand.
    std::this_thread::sleep_for(1500ms);
    link_.stop();
  });
  one.join();
  other.join();
  EXPECT_TRUE(context_.stopped());
}

}  // namespace
