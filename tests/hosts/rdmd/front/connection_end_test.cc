// SPDX-License-Identifier: MIT
/// The thread that destroys a connection.

#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <memory>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "hosts/rdmd/front/connection.h"
#include "hosts/rdmd/front/local_worker.h"
#include "hosts/rdmd/front/server_within.h"
#include "hosts/rdmd/transform/transform.h"

using namespace rdm;

namespace {

using namespace std::chrono_literals;

/// Binds the calling thread, and the threads that it starts, to one processor: a thread that is woken runs, and the
/// thread that woke it is preempted.
class OneProcessor {
 public:
  OneProcessor() {
    EXPECT_EQ(::sched_getaffinity(0, sizeof before_, &before_), 0);
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(::sched_getcpu(), &one);
    EXPECT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
  }
  OneProcessor(const OneProcessor &) = delete;
  OneProcessor &operator=(const OneProcessor &) = delete;
  ~OneProcessor() { ::sched_setaffinity(0, sizeof before_, &before_); }

 private:
  cpu_set_t before_;
};

/// A server whose clients are ends of socket pairs; the thread of the test runs its I/O, replies included.
class ConnectionEnd : public ::testing::Test {
 protected:
  ConnectionEnd() {
    server_->dispatcher().add(worker_, 1);
    server_->dispatcher().retire_before(1);
  }

  /// connect starts a connection and returns the client's end of it.
  int connect() {
    int pair[2] = {-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    rdmd::io::Socket socket(boost::asio::make_strand(context_));
    socket.assign(rdmd::io::Tcp::v4(), pair[1]);
    const auto connection = std::make_shared<rdmd::Connection>(std::move(socket), *server_);
    connection_ = connection;
    connection->start();
    return pair[0];
  }

  const OneProcessor one_processor_;
  boost::asio::io_context context_;
  const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_ = make_work_guard(context_);
  support::ServerWithin server_;
  hosts::Plugin plugin_{support::in_build("tests/test_plugin.so")};
  const std::shared_ptr<rdmd::LocalWorker> worker_ = std::make_shared<rdmd::LocalWorker>(
      [this](hosts::ServiceRequest request) { return rdmd::answer_request(plugin_, std::move(request), false); },
      rdmd::io::Executor(context_.get_executor()), server_->dispatcher());
  std::weak_ptr<rdmd::Connection> connection_;
};

TEST_F(ConnectionEnd, ThePluginsThreadNeverDestroysAConnection) {
  // Regression: it sometimes did. The I/O thread was then not told that the connection was gone, and its timers were
  // destroyed on the wrong thread.
  constexpr std::string_view request = "GET /rdm/fast HTTP/1.0\r\n\r\n";
  for (int i = 0; i < 500; ++i) {
    const int client = connect();
    ASSERT_EQ(::send(client, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    ASSERT_EQ(::shutdown(client, SHUT_WR), 0);
    std::array<char, 4096> answer;
    while (!connection_.expired()) {
      ASSERT_NE(context_.run_one_for(1min), 0U)
          << "connection " << i << " has nothing left to do, yet someone holds it";
      ::recv(client, answer.data(), answer.size(), MSG_DONTWAIT);
    }
    ::close(client);
  }
}

}  // namespace
