// SPDX-License-Identifier: MIT
/// Clients that read slowly, and clients that read nothing.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "hosts/rdmd/pace.h"
#include "hosts/rdmd/server_fixture.h"

using namespace rdm;

namespace {

using support::HttpClient;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int small_buffer = 4096;

class HostReading : public support::ServerTest {
 protected:
  /// is_whole returns true unless the connection was reset.
  static bool is_whole(const HttpClient &client) {
    struct tcp_info info {};
    socklen_t size = sizeof info;
    return ::getsockopt(client.descriptor(), IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && info.tcpi_state != TCP_CLOSE;
  }

  /// read_steadily reads `rate` bytes a second in steps of 50 ms, until `time` is over or the connection ends, and
  /// returns them.
  static std::string read_steadily(const HttpClient &client, std::size_t rate, std::chrono::milliseconds time,
                                   support::Pace &pace) {
    std::string text, block(rate / 20, '\0');
    auto last = Clock::now();
    for (const auto end = last + time; Clock::now() < end; std::this_thread::sleep_for(50ms)) {
      const ssize_t got = ::recv(client.descriptor(), block.data(), block.size(), 0);
      if (got <= 0) break;
      text.append(block, 0, static_cast<std::size_t>(got));
      pace.step(last);
    }
    return text;
  }

  /// is_kept_by_readers returns true if the server cuts off none of several clients that read at these rates.
  bool is_kept_by_readers(std::initializer_list<std::size_t> rates, std::chrono::milliseconds time,
                          support::Pace &pace) const {
    std::atomic<int> kept = 0;
    std::vector<std::thread> readers;
    for (const std::size_t rate : rates)
      readers.emplace_back([&, rate] {
        HttpClient client(port_, false, std::max(small_buffer, static_cast<int>(rate / 10)));
        client.send(get("/rdm/big?12000000"));
        const bool has_read = !read_steadily(client, rate, time, pace).empty();
        kept += has_read && is_whole(client) ? 1 : 0;
      });
    for (std::thread &reader : readers) reader.join();
    return kept == static_cast<int>(rates.size());
  }

  /// is_reset waits until the server has reset the connection.
  static bool is_reset(const HttpClient &client) {
    return support::eventually([&] { return !is_whole(client); });
  }
};

TEST_F(HostReading, ClientsThatReadSteadilyAreNotCutOffHoweverSlowlyTheyRead) {
  // Regression: the time was measured from the kernel's last acceptance of bytes, which happens once per megabyte:
  // clients that read less than that within the limit were cut off.
  EXPECT_TRUE(support::at_pace(1s, [this](std::chrono::milliseconds limit, support::Pace &pace) {
    start({"--write-timeout", support::in_seconds(limit)});
    const bool is_kept = is_kept_by_readers({10'000, 20'000, 50'000, 100'000, 200'000, 1'000'000}, limit * 5, pace);
    EXPECT_EQ(stop(), 0);
    return is_kept;
  }));
}

TEST_F(HostReading, AClientThatReadsNothingIsCutOffWhateverTheSizeOfItsBuffer) {
  start({"--write-timeout", "2"});
  const auto begun = Clock::now();
  std::vector<std::unique_ptr<HttpClient>> clients;
  for (const int buffer : {0, small_buffer, 1 << 20}) {
    clients.push_back(std::make_unique<HttpClient>(port_, false, buffer));
    clients.back()->send(get("/rdm/big?12000000"));
  }
  // Ask the server: the client's system may drop the RST if its buffers are full.
  const std::string cut = "answer cut off: the client acknowledged nothing within the write timeout";
  const auto count_cut = [&] {
    const std::string log = server_->errors();
    std::size_t count = 0;
    for (std::size_t at = 0; (at = log.find(cut, at)) != std::string::npos; ++at) ++count;
    return count;
  };
  EXPECT_TRUE(support::eventually([&] { return count_cut() > 0; }));
  EXPECT_GE(Clock::now() - begun, 2s);
  // The client's system takes the last bytes by window probes, each after twice the time of the one before. With so
  // short a limit, it looks like a slow reader, for which the limit is five times as long.
  EXPECT_TRUE(support::eventually([&] { return count_cut() == clients.size(); }));
}

TEST_F(HostReading, AClientThatReadsNothingCannotHaveTheKernelKeepItsAnswer) {
  // Regression: once the kernel had taken an answer, the server closed the connection; the kernel kept the answer for
  // minutes, and no limit counted it.
  start({"--write-timeout", "0.5", "--linger-timeout", "0.1", "--idle-timeout", "0.1"});
  for (const char *fields : {"", "Connection: close\r\n"})
    for (const bool finished : {false, true}) {
      const auto begun = Clock::now();
      HttpClient client(port_, false, small_buffer);
      client.send(get("/rdm/big?60000", fields));
      if (finished) client.finish_sending();
      EXPECT_TRUE(is_reset(client)) << fields << finished;
      EXPECT_GE(Clock::now() - begun, 500ms) << fields << finished;
    }
}

TEST_F(HostReading, AClientThatReadsNothingAndAsksOnIsCutOff) {
  // Regression: each answer restarted the deadline, until the kernel's buffers were full after 260 answers.
  start({"--write-timeout", "0.5"});
  const std::string waiting = post("/rdm/big?500", "x", "Expect: 100-continue\r\n");
  for (const std::string &request : {get("/rdm/big?500"), waiting}) {
    HttpClient client(port_, false, small_buffer);
    int requests = 0;
    for (; requests < 1000 && is_whole(client); ++requests) {
      const std::size_t head = request.find("\r\n\r\n") + 4;
      client.send(request.substr(0, head));
      std::this_thread::sleep_for(50ms);
      client.send(request.substr(head));
    }
    EXPECT_LT(requests, 130) << request;
  }
  EXPECT_TRUE(server_->await_error("answer cut off: the client acknowledged nothing within the write timeout"));
}

TEST_F(HostReading, AClientThatReadsNothingIsCutOffWhileItsNextRequestIsAwaited) {
  // The timeout for the next request replaced the write timeout of the answer before it.
  start({"--write-timeout", "0.5", "--header-timeout", "3600", "--body-timeout", "3600"});
  const std::string begun_body = "POST /rdm/echo HTTP/1.1\r\nHost: h\r\nContent-Length: 10\r\n\r\nhalf";
  for (const std::string &begun : {std::string("GET /rdm"), begun_body}) {
    for (const bool at_once : {true, false}) {
      const auto start = Clock::now();
      HttpClient client(port_, false, small_buffer);
      client.send(get("/rdm/big?60000") + (at_once ? begun : ""));
      EXPECT_TRUE(client.readable(support::timeout));
      if (!at_once) client.send(begun);
      EXPECT_TRUE(is_reset(client)) << begun << at_once;
      EXPECT_GE(Clock::now() - start, 500ms) << begun << at_once;
    }
  }
}

TEST_F(HostReading, AClientThatReadsAndAsksOnIsNotCutOff) {
  EXPECT_TRUE(support::at_pace(500ms, [this](std::chrono::milliseconds limit, support::Pace &pace) {
    start({"--write-timeout", support::in_seconds(limit)});
    HttpClient client(port_, false, small_buffer);
    auto last = Clock::now();
    for (int i = 0; i < 60; ++i) {
      client.send(get("/rdm/big?2000") + get("/rdm/big?2000"));
      for (int answer = 0; answer < 2; ++answer)
        if (client.receive().body != pattern(2000)) return false;
      std::this_thread::sleep_for(limit / 10);
      pace.step(last);
    }
    return true;
  }));
}

TEST_F(HostReading, TheRestThatTheKernelHasTakenIsWaitedFor) {
  // Neither the linger timeout nor the idle timeout starts before the client has its answer.
  EXPECT_TRUE(support::at_pace(2s, [this](std::chrono::milliseconds limit, support::Pace &pace) {
    start({"--write-timeout", support::in_seconds(limit), "--linger-timeout", "0.1", "--idle-timeout", "0.1"});
    bool is_taken = true;
    for (const char *fields : {"", "Connection: close\r\n"})
      for (const bool finished : {false, true}) {
        HttpClient client(port_, false, small_buffer);
        client.send(get("/rdm/big?60000", fields));
        if (finished) client.finish_sending();
        is_taken = is_taken && read_steadily(client, 40'000, support::timeout, pace).ends_with(pattern(60000));
      }
    return is_taken;
  }));
}

TEST_F(HostReading, AClientThatStillReadsIsNotIdleWhenTheServerStops) {
  start();
  HttpClient client(port_, false, small_buffer);
  client.send(get("/rdm/big?60000"));
  EXPECT_TRUE(client.readable(support::timeout));
  server_->signal(SIGTERM);
  EXPECT_TRUE(server_->await_error("stopping"));
  EXPECT_EQ(client.receive().body, pattern(60000));
  EXPECT_EQ(server_->wait(), 0);
}

}  // namespace
