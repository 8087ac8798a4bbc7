// SPDX-License-Identifier: MIT
#include "speed/request_load.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "loopback.h"
#include "site.h"
#include "speed/answer_head.h"

namespace rdm::bench {
namespace {

using Clock = std::chrono::steady_clock;

/// Asking is one connection.
class Asking {
 public:
  Asking(int port, const std::string &request) : socket_(port), request_(&request) {}
  int descriptor() const { return socket_.get(); }
  void ask() const {
    if (!send_all(socket_.get(), *request_)) fail("cannot send a request");
  }
  /// receive returns true if the answer is complete.
  bool receive() {
    std::array<char, 65536> block;
    const ssize_t got = ::recv(socket_.get(), block.data(), block.size(), 0);
    if (got <= 0) fail("the connection ends within an answer");
    bytes_.append(block.data(), static_cast<std::size_t>(got));
    const std::optional<AnswerHead> head = parse_head(bytes_);
    if (!head || bytes_.size() < head->size + head->body) return false;
    if (head->status != 200) fail("an answer begins " + bytes_.substr(0, 200));
    bytes_.clear();
    return true;
  }

 private:
  Socket socket_;
  const std::string *request_;
  std::string bytes_;
};

/// Watched is an epoll instance over all connections.
class Watched {
 public:
  explicit Watched(std::vector<Asking> &all) : events_(::epoll_create1(EPOLL_CLOEXEC)) {
    for (Asking &asking : all) {
      epoll_event event{EPOLLIN, {&asking}};
      ::epoll_ctl(events_, EPOLL_CTL_ADD, asking.descriptor(), &event);
    }
  }
  Watched(const Watched &) = delete;
  Watched &operator=(const Watched &) = delete;
  ~Watched() { ::close(events_); }

  /// serve waits for answers, asks again where `more`, and returns the number of complete answers.
  std::size_t serve(bool more) {
    std::array<epoll_event, 64> ready;
    const int found = ::epoll_wait(events_, ready.data(), ready.size(), 10'000);
    if (found == 0) fail("no answer within ten seconds");
    std::size_t complete = 0;
    for (int i = 0; i < found; ++i) {
      auto &asking = *static_cast<Asking *>(ready[static_cast<std::size_t>(i)].data.ptr);
      if (!asking.receive()) continue;
      ++complete;
      if (more) asking.ask();
    }
    return complete;
  }

 private:
  int events_;
};

}  // namespace

std::size_t ask_again_and_again(int port, const std::string &target, std::size_t connections,
                                std::chrono::milliseconds time) {
  const std::string request = get_request(target);
  std::vector<Asking> all;
  for (std::size_t i = 0; i < connections; ++i) all.emplace_back(port, request);
  Watched watched(all);
  for (const Asking &asking : all) asking.ask();
  std::size_t asked = connections, answered = 0;
  for (const auto end = Clock::now() + time; answered < asked;) {
    const bool more = Clock::now() < end;
    const std::size_t complete = watched.serve(more);
    answered += complete;
    if (more) asked += complete;
  }
  return answered;
}

}  // namespace rdm::bench
