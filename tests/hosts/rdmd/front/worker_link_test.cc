// SPDX-License-Identifier: MIT
/// The front's end of a worker, with a test in the place of the worker process.

#include "hosts/rdmd/front/worker_link.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using namespace rdm;
using namespace rdm::rdmd;
using namespace std::chrono_literals;

namespace {

class WorkerLinks : public ::testing::Test {
 protected:
  WorkerLinks() {
    PacketSockets sockets = make_packet_sockets();
    socket_ = std::move(sockets.first);
    set_non_blocking(sockets.second.get());
    events_.kill = [this](int) { ++kills_; };
    events_.ended = [this](int, const std::string &request) { ended_with_ = request; };
    link_ = std::make_shared<WorkerLink>(1, std::move(sockets.second), executor_, dispatcher_, events_);
    link_->start();
    orders_ = std::move(receive_packet(socket_.get())->files.at(0));
    dispatcher_.add(link_, 1);
  }

  /// submit submits a request, which the link gets at once.
  void submit(const std::string &name, std::size_t size = 0) {
    auto job = std::make_unique<Job>();
    job->request.line = {{"method", "GET"}, {"uri", name}};
    job->request.body.assign(size, 'x');
    job->wanted = [] { return true; };
    job->reply = [this, name](const Reply &reply) {
      replies_ += name + std::to_string(static_cast<int>(reply.fate)) + " ";
    };
    dispatcher_.submit(std::move(job), executor_);
    read();
  }

  static std::string reply_to(const std::string &name, Fate fate) {
    return name + std::to_string(static_cast<int>(fate)) + " ";
  }

  /// taken takes the next order as the worker does: the name of a request, "reopen", or "-" if there is none.
  std::string taken() {
    const std::optional<Packet> packet = receive_packet(orders_.get(), false);
    if (!packet) return "-";
    const std::optional<RequestOrder> order = decode_order(packet->bytes);
    return order ? order->request.line.at(1).value : "reopen";
  }

  /// taken takes `count` orders and joins what they are.
  std::string taken(int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += taken();
    return all;
  }

  void answer() {
    for (const OutgoingPacket &packet : encode_answer({})) ASSERT_TRUE(send_packet(socket_.get(), packet.bytes));
    read();
  }

  void end_worker() {
    socket_ = HostFileGuard();
    orders_ = HostFileGuard();
    read();
  }

  /// read runs the handlers that are ready: the dispatcher's, and the link's if the worker has sent something.
  void read() {
    context_.restart();
    context_.poll();
  }

  static Limits limits() {
    Limits limits;
    limits.queue = 100s;
    limits.service = 100s;
    return limits;
  }

  const Limits limits_ = limits();
  boost::asio::io_context context_;
  const io::Executor executor_{context_.get_executor()};
  // A clock that stands still: no job waits long, however slow the machine.
  Dispatcher dispatcher_{limits_, executor_, [] { return io::Clock::time_point(10h); }};
  WorkerEvents events_;
  std::shared_ptr<WorkerLink> link_;
  HostFileGuard socket_, orders_;  // the worker's ends
  int kills_ = 0;
  std::string replies_, ended_with_;
};

TEST_F(WorkerLinks, TheWorkerTakesOrdersAtItsOwnPaceAndIsAnsweredInOrder) {
  for (const char *name : {"a", "b", "c"}) submit(name);
  EXPECT_EQ(taken(), "a");
  answer();
  EXPECT_EQ(replies_, reply_to("a", Fate::answered));
  EXPECT_EQ(taken(3), "bc-");
  answer();
  answer();
  EXPECT_EQ(replies_, reply_to("a", Fate::answered) + reply_to("b", Fate::answered) + reply_to("c", Fate::answered));
}

TEST_F(WorkerLinks, OnlyWhatTheWorkerHasNotTakenIsTakenBack) {
  for (const char *name : {"a", "b", "c"}) submit(name);
  EXPECT_EQ(taken(), "a");
  std::vector<JobPtr> jobs = link_->take_back();
  ASSERT_EQ(jobs.size(), 2u);
  EXPECT_EQ(jobs[0]->request.line.at(1).value + jobs[1]->request.line.at(1).value, "bc");
  EXPECT_EQ(taken(), "-");
  EXPECT_TRUE(link_->take_back().empty());
}

TEST_F(WorkerLinks, TheOrderToReopenLogsIsNotTakenBack) {
  submit("a");
  EXPECT_EQ(taken(), "a");
  submit("b");
  link_->reopen_logs();
  EXPECT_EQ(link_->take_back().size(), 1u);
  EXPECT_EQ(taken(2), "reopen-");
}

TEST_F(WorkerLinks, AWorkerThatEndsCostsTheRequestThatItHadTakenAndNoOther) {
  for (const char *name : {"a", "b", "c"}) submit(name);
  EXPECT_EQ(taken(), "a");
  answer();
  EXPECT_EQ(taken(), "b");
  end_worker();
  EXPECT_EQ(replies_, reply_to("a", Fate::answered) + reply_to("b", Fate::crashed));
  EXPECT_EQ(ended_with_, "\"GET b\" (client )");
  EXPECT_EQ(dispatcher_.status().queued, 1u);
}

TEST_F(WorkerLinks, AWorkerThatEndsBeforeItTakesAnOrderCostsNone) {
  for (const char *name : {"a", "b"}) submit(name);
  end_worker();
  EXPECT_EQ(replies_ + ended_with_, "");
  EXPECT_EQ(dispatcher_.status().queued, 2u);
}

TEST_F(WorkerLinks, ALateWorkerIsKilledForTheRequestThatItHasTaken) {
  for (const char *name : {"a", "b"}) submit(name);
  EXPECT_EQ(taken(), "a");
  link_->kill();
  EXPECT_EQ(kills_, 1);
  end_worker();
  EXPECT_EQ(replies_, reply_to("a", Fate::timed_out));
  EXPECT_EQ(dispatcher_.status().queued, 1u);
}

TEST_F(WorkerLinks, AnIdleWorkerIsNotKilled) {
  link_->kill();
  EXPECT_EQ(kills_, 0);
}

TEST_F(WorkerLinks, AWorkerThatIsRetiredWithItsLastAnswerEndsByItself) {
  // Regression: the link read on from the socket that it had just closed, took that for nonsense, and had a worker of a
  // former configuration killed before the plug-in's exits.
  submit("a");
  EXPECT_EQ(taken(), "a");
  dispatcher_.retire_before(2);
  answer();
  EXPECT_EQ(replies_, reply_to("a", Fate::answered));
  EXPECT_TRUE(receive_packet(orders_.get(), false)->bytes.empty());
  EXPECT_EQ(kills_, 0);
}

TEST_F(WorkerLinks, OrdersThatTheSocketDoesNotTakeFollowLater) {
  constexpr std::size_t large = 100000;  // three fill the socket
  for (const char *name : {"a", "b", "c", "d"}) submit(name, large);
  std::string names;
  for (int i = 0; i < 4; ++i) {
    names += taken();
    answer();
  }
  EXPECT_EQ(names + taken(), "abcd-");
  EXPECT_EQ(replies_, reply_to("a", Fate::answered) + reply_to("b", Fate::answered) + reply_to("c", Fate::answered) +
                          reply_to("d", Fate::answered));
}

TEST_F(WorkerLinks, AnAnswerThatNobodyAskedForEndsTheWorker) {
  answer();
  EXPECT_EQ(kills_, 1);
  submit("a");
  EXPECT_EQ(dispatcher_.status().queued, 1u);
}

}  // namespace
