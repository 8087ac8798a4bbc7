// SPDX-License-Identifier: MIT
/// Sends any bytes to the server over a socket. The server must answer with complete HTTP messages and close, however
/// the bytes are split into packets.

#include <sys/socket.h>
#include <unistd.h>

#include <charconv>
#include <csignal>
#include <memory>
#include <utility>

#include "fuzz/site.h"
#include "hosts/common/host_table.h"
#include "hosts/rdmd/front/connection.h"
#include "hosts/rdmd/front/local_worker.h"
#include "hosts/rdmd/front/server.h"
#include "hosts/rdmd/transform/transform.h"

using namespace rdm;

namespace {

using namespace std::chrono_literals;

/// Host is a server whose clients connect by socket pairs.
class Host {
 public:
  Host() : errors_("/dev/null"), access_(""), plugin_(load()), server_(settings(), plugin_, errors_, access_, {}) {
    std::signal(SIGPIPE, SIG_IGN);
    server_.dispatcher().add(worker_, 1);
    server_.dispatcher().retire_before(1);
    fuzz::require(plugin_.init(site_.configuration()).empty(), "the plug-in refused the configuration");
  }

  rdmd::Server &server() { return server_; }
  /// context runs the I/O of all clients in turn. It is destroyed after the thread that calls the plug-in, which may
  /// still post an answer whose client is gone.
  boost::asio::io_context &context() { return context_; }

 private:
  static hosts::Plugin load() {
    hosts::bind_host([](const hosts::Report &) {});
    return hosts::Plugin(PLUGIN);
  }
  static const rdmd::Settings &settings() {
    static const rdmd::Settings settings = [] {
      rdmd::Settings made;
      made.limits.head_bytes = 4096;
      made.limits.target_bytes = 1024;
      return made;
    }();
    return settings;
  }

  boost::asio::io_context context_;
  // While the plug-in answers, the connection waits for no event of this context.
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_ = make_work_guard(context_);
  fuzz::Site site_;
  rdmd::ErrorLog errors_;
  rdmd::AccessLog access_;
  hosts::Plugin plugin_;
  rdmd::Server server_;
  // In the place of the server's own, whose answers would wait for the server to run.
  const std::shared_ptr<rdmd::LocalWorker> worker_ = std::make_shared<rdmd::LocalWorker>(
      [this](hosts::ServiceRequest request) {
        return rdmd::answer_request(plugin_, std::move(request), settings().gzip);
      },
      rdmd::io::Executor(context_.get_executor()), server_.dispatcher());
};

/// Client is one connection to the host and the answers received on it.
class Client {
 public:
  explicit Client(Host &host) : context_(host.context()) {
    int pair[2];
    fuzz::require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair) == 0, "socketpair failed");
    socket_ = pair[0];
    rdmd::io::Socket socket(boost::asio::make_strand(context_));
    socket.assign(rdmd::io::Tcp::v4(), pair[1]);
    const auto connection = std::make_shared<rdmd::Connection>(std::move(socket), host.server());
    connection_ = connection;
    connection->start();
  }
  Client(const Client &) = delete;
  Client &operator=(const Client &) = delete;
  ~Client() { ::close(socket_); }

  /// send makes the server receive `bytes` in a packet of its own.
  void send(std::string_view bytes) {
    while (!bytes.empty() && !connection_.expired()) {
      const ssize_t sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (sent > 0) bytes.remove_prefix(static_cast<size_t>(sent));
      context_.poll();
      receive();
      if (sent < 0 && errno != EAGAIN) return;
    }
  }

  /// answers ends sending and returns everything received until the server closed.
  std::string answers() {
    ::shutdown(socket_, SHUT_WR);
    const auto end = rdmd::io::Clock::now() + 5s;
    while (!connection_.expired()) {
      fuzz::require(rdmd::io::Clock::now() < end, "a connection did not end within 5 seconds");
      context_.run_one_for(100ms);
      receive();
    }
    receive();
    return std::move(received_);
  }

 private:
  void receive() {
    char block[65536];
    for (ssize_t n = 0; (n = ::recv(socket_, block, sizeof block, 0)) > 0;)
      received_.append(block, static_cast<size_t>(n));
  }

  boost::asio::io_context &context_;
  int socket_ = -1;
  std::weak_ptr<rdmd::Connection> connection_;
  std::string received_;
};

std::string converse(Host &host, std::string_view bytes, size_t piece) {
  Client client(host);
  for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) client.send(bytes.substr(0, piece));
  return client.answers();
}

/// cut removes the text from `start` to the end of `stop`.
void cut(std::string &text, std::string_view start, std::string_view stop) {
  for (size_t at = 0; (at = text.find(start, at)) != std::string::npos;) {
    const size_t end = text.find(stop, at);
    text.erase(at, end == std::string::npos ? end : end + stop.size() - at);
  }
}

/// comparable removes parts that differ between equal requests: dates, identifiers, and "100 Continue".
std::string comparable(std::string answers) {
  cut(answers, "Date: ", "\r\n");
  cut(answers, "X-Request-Id: ", "\r\n");
  cut(answers, "HTTP/1.1 100 Continue", "\r\n\r\n");
  return answers;
}

/// body_size returns the length of the body at the front of `rest` for an answer with this head: all of `rest` if no
/// length is declared.
size_t body_size(std::string_view head, std::string_view rest) {
  constexpr std::string_view name = "\r\nContent-Length: ";
  const size_t at = head.find(name);
  if (at == std::string_view::npos) return rest.size();
  size_t length = 0;
  std::from_chars(head.data() + at + name.size(), head.data() + head.size(), length);
  return length;
}

/// check_messages requires complete messages. A missing body is allowed for an answer to HEAD.
void check_messages(std::string_view answers) {
  while (!answers.empty()) {
    fuzz::require(answers.starts_with("HTTP/1.1 "), "an answer does not begin with a status line");
    const size_t end = answers.find("\r\n\r\n");
    fuzz::require(end != std::string_view::npos, "the head of an answer does not end");
    const std::string_view head = answers.substr(0, end);
    answers.remove_prefix(end + 4);
    if (answers.empty() || answers.starts_with("HTTP/1.1 ")) continue;
    const size_t size = body_size(head, answers);
    fuzz::require(size <= answers.size(), "the body of an answer is incomplete");
    answers.remove_prefix(size);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static Host host;
  std::string_view input = fuzz::text(data, size);
  const size_t piece = 1 + fuzz::take(input, 1);
  const std::string whole = comparable(converse(host, input, input.size()));
  fuzz::require(whole == comparable(converse(host, input, piece)), "the answers depend on how the request arrives");
  check_messages(whole);
  return 0;
}
