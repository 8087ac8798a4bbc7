// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/master_link.h"

#include <chrono>
#include <thread>
#include <utility>

#include <boost/asio/post.hpp>
#include <gtest/gtest.h>

#include "hosts/rdmd/worker/packet.h"
#include "support/files.h"

using namespace rdm;
using namespace rdm::rdmd;
using namespace std::chrono_literals;

namespace {

TEST(MasterLinks, EndWhenTheyAreStoppedAtTheTimeOfAReport) {
  // Regression: cancelling a timer that has expired has no effect, so the reports went on, and the front never ended.
  const support::TemporaryDirectory directory;
  ErrorLog errors(directory.path("errors"));
  boost::asio::io_context context;
  const io::Executor strand(context.get_executor());
  const Limits limits;
  Dispatcher dispatcher(limits, strand);
  PacketSockets sockets = make_packet_sockets();
  MasterLink link(
      std::move(sockets.second), strand, dispatcher, errors, [](const ControlMessage &) {}, [] {});
  boost::asio::post(strand, [&] {
    link.start();
    // The other thread finds meanwhile that the timer has expired; its handler waits for this strand.
    std::this_thread::sleep_for(1500ms);
    link.stop();
  });
  std::thread other([&] { context.run_for(60s); });
  context.run_for(60s);
  other.join();
  EXPECT_TRUE(context.stopped());
}

}  // namespace
