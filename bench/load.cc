// SPDX-License-Identifier: MIT
#include "load.h"

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <utility>

#include "loopback.h"
#include "median.h"
#include "site.h"

namespace rdm::bench {
namespace {

using Clock = std::chrono::steady_clock;

/// A client whose connection is refused waits this long, so that it leaves the processor to a server that starts.
constexpr std::chrono::milliseconds after_refusal{5};

/// Answer collects one answer with a Content-Length.
class Answer {
 public:
  /// receive returns false if the connection ends before the answer does.
  bool receive(int fd) {
    while (!complete()) {
      std::array<char, 65536> block;
      const ssize_t got = ::recv(fd, block.data(), block.size(), 0);
      if (got <= 0) return false;
      bytes_.append(block.data(), static_cast<std::size_t>(got));
    }
    return true;
  }
  bool begun() const { return !bytes_.empty(); }
  bool good() const { return !bad_ && bytes_.starts_with("HTTP/1.1 200 "); }
  /// failed returns true for what the client of a worker that has ended gets.
  bool failed() const {
    return bytes_.starts_with("HTTP/1.1 500 ") && bytes_.find("\r\nRetry-After: 5\r\n") < body_ && body().empty();
  }
  /// closes returns true if the connection takes no further request.
  bool closes() const { return bytes_.find("\r\nConnection: close\r\n") < body_; }
  std::string_view body() const { return std::string_view(bytes_).substr(body_); }

 private:
  bool complete() {
    if (body_ == 0) {
      const std::size_t end = bytes_.find("\r\n\r\n");
      if (end == std::string::npos) return false;
      body_ = end + 4;
      const std::size_t length = bytes_.find("\r\ncontent-length: ");
      if (length == std::string::npos || length > end) return bad_ = true;
      length_ = std::strtoull(bytes_.c_str() + length + 18, nullptr, 10);
    }
    return bytes_.size() >= body_ + length_;
  }

  std::string bytes_;
  std::size_t body_ = 0, length_ = 0;
  bool bad_ = false;  // no Content-Length
};

std::string request(const std::string &target, Connections connections) {
  return get_request(target, connections == Connections::kept ? "" : "Connection: close\r\n");
}

/// Asking is one client of ask_for.
struct Asking {
  Served served;
  std::vector<double> times;

  /// run asks until `ended` returns true.
  template <typename Ended>
  void run(int port, const std::string &target, Connections connections, const std::string &body, Ended ended) {
    const std::string text = request(target, connections);
    for (Socket socket; !ended();) {
      const auto begin = Clock::now();
      const bool is_new = socket.get() < 0;
      if (is_new) socket = Socket(port);
      Answer answer;
      const bool right = ask(socket, text, answer, is_new) && answer.good() && answer.body() == body;
      ++(right ? served.right : served.wrong);
      if (!right || answer.closes()) socket = Socket();
      times.push_back(std::chrono::duration<double>(Clock::now() - begin).count());
    }
  }

 private:
  /// ask returns true if there is a whole answer.
  bool ask(const Socket &socket, const std::string &text, Answer &answer, bool is_new) {
    if (socket.get() < 0) {
      ++served.refused;
      std::this_thread::sleep_for(after_refusal);
      return false;
    }
    if (!send_all(socket.get(), text) || !answer.receive(socket.get())) {
      ++(answer.begun() ? served.cut : is_new ? served.lost : served.closed);
      return false;
    }
    if (answer.failed()) ++served.failed;
    return true;
  }
};

void add(Served &sum, const Served &served) {
  for (const auto count : {&Served::right, &Served::wrong, &Served::failed, &Served::refused, &Served::closed,
                           &Served::lost, &Served::cut})
    sum.*count += served.*count;
}

std::string first_body(int port, const std::string &target) {
  Socket socket(port);
  Answer answer;
  if (!send_all(socket.get(), request(target, Connections::kept)) || !answer.receive(socket.get()) || !answer.good())
    fail("no answer to " + target);
  return std::string(answer.body());
}

}  // namespace

Served ask_for(int port, const std::string &target, std::size_t clients, Connections connections,
               std::chrono::milliseconds time) {
  const std::string body = first_body(port, target);
  std::vector<Asking> asking(clients);
  const auto begin = Clock::now();
  {
    std::vector<std::jthread> threads;
    threads.reserve(clients);
    for (Asking &client : asking)
      threads.emplace_back(
          [&] { client.run(port, target, connections, body, [&] { return Clock::now() >= begin + time; }); });
  }
  Served served;
  std::vector<double> times;
  for (const Asking &client : asking) {
    add(served, client.served);
    times.insert(times.end(), client.times.begin(), client.times.end());
  }
  served.rate = static_cast<double>(served.right) / std::chrono::duration<double>(Clock::now() - begin).count();
  served.median = std::chrono::duration<double>(median(std::move(times)));
  return served;
}

/// Group is the clients of one kind.
struct Load::Group {
  const Clients clients;
  const std::string body;
  std::vector<Asking> asking;
  std::vector<std::jthread> threads;

  Group(int port, const Clients &kind, const std::atomic<bool> &ends)
      : clients(kind), body(first_body(port, kind.target)), asking(kind.count) {
    for (Asking &client : asking)
      threads.emplace_back([&client, port, &ends, this] {
        client.run(port, clients.target, clients.connections, body, [&ends] { return ends.load(); });
      });
  }
};

Load::Load(int port, const std::vector<Clients> &groups) {
  for (const Clients &clients : groups) groups_.push_back(std::make_unique<Group>(port, clients, ends_));
}

Load::~Load() { ends_ = true; }

Served Load::end() {
  ends_ = true;
  Served served;
  for (const auto &group : groups_) {
    group->threads.clear();
    for (const Asking &client : group->asking) add(served, client.served);
  }
  return served;
}

struct Crowd::Client {
  enum class Kind { stalled, slow, idle } kind;
  std::uint32_t host;
  int fd = -1;
  bool connected = false;
  std::size_t sent = 0;
};

Crowd::Crowd(int port, Size size) : port_(port), events_(::epoll_create1(EPOLL_CLOEXEC)) {
  const auto add = [this](std::size_t count, Client::Kind kind) {
    for (std::size_t i = 0; i < count; ++i)
      clients_.push_back({kind, static_cast<std::uint32_t>(1 + clients_.size() % 200)});
  };
  add(size.stalled, Client::Kind::stalled);
  add(size.slow, Client::Kind::slow);
  add(size.idle, Client::Kind::idle);
  thread_ = std::thread([this] { run(); });
}

Crowd::~Crowd() {
  ends_ = true;
  thread_.join();
  for (Client &client : clients_) leave(client);
  ::close(events_);
}

void Crowd::run() {
  auto next_byte = Clock::now();
  while (!ends_) {
    // At most 500 new connections in a round, so that the backlog of the server does not overflow.
    std::size_t joined = 0;
    for (Client &client : clients_)
      if (client.fd < 0 && joined++ < 500) join(client);
    std::array<epoll_event, 512> ready;
    const int count = ::epoll_wait(events_, ready.data(), ready.size(), 20);
    for (int i = 0; i < count; ++i) {
      const epoll_event &event = ready[static_cast<std::size_t>(i)];
      step(*static_cast<Client *>(event.data.ptr), event.events);
    }
    if (Clock::now() < next_byte) continue;
    next_byte += std::chrono::seconds(1);
    tell_slow_ones();
  }
}

void Crowd::join(Client &client) {
  client.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (client.fd < 0) return;
  const int on = 1, small = 4096;
  ::setsockopt(client.fd, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
  ::setsockopt(client.fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
  const sockaddr_in from = loopback(client.host, 0), to = loopback(0, port_);
  if (::bind(client.fd, reinterpret_cast<const sockaddr *>(&from), sizeof from) != 0) return leave(client);
  if (::connect(client.fd, reinterpret_cast<const sockaddr *>(&to), sizeof to) != 0 && errno != EINPROGRESS)
    return leave(client);
  epoll_event event{EPOLLOUT | EPOLLRDHUP | EPOLLET, {&client}};
  ::epoll_ctl(events_, EPOLL_CTL_ADD, client.fd, &event);
}

/// step begins what the client does when its connection is made, and ends it when the server has closed.
void Crowd::step(Client &client, std::uint32_t events) {
  if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
    if (client.connected) ++made_again_;
    leave(client);
  } else if (!client.connected) {
    client.connected = true;
    ++connected_;
    if (client.kind == Client::Kind::stalled) send_all(client.fd, request(harvest_target, Connections::kept));
  }
}

void Crowd::leave(Client &client) {
  if (client.fd >= 0) ::close(client.fd);
  if (client.connected) --connected_;
  client.fd = -1;
  client.connected = false;
  client.sent = 0;
}

void Crowd::tell_slow_ones() {
  const std::string text = request(status_target, Connections::kept);
  for (Client &client : clients_)
    if (client.kind == Client::Kind::slow && client.connected)
      send_all(client.fd, text.substr(client.sent++ % text.size(), 1));
}

}  // namespace rdm::bench
