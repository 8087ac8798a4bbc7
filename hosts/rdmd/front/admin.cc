// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/admin.h"

#include <sys/socket.h>

#include <array>
#include <exception>
#include <optional>
#include <string_view>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

namespace rdm::rdmd {
namespace {

namespace http = boost::beast::http;
using boost::system::error_code;

constexpr std::size_t head_limit = 8192;
constexpr Duration accept_pause{100};
constexpr std::string_view plain_text = "text/plain; charset=utf-8";
constexpr std::string_view no_files = "the files of the catalogs could not be read in time";

/// Answer is a status, a content type and a body.
struct Answer {
  http::status status;
  std::string_view type;
  std::string body;
};

Answer text(http::status status, std::string body) { return {status, plain_text, std::move(body)}; }

http::status ok_unless(bool failing) { return failing ? http::status::service_unavailable : http::status::ok; }

std::string unreadiness(const AdminSource &source, const Admin::State &health) {
  const std::string reason = source.not_ready();
  return (reason.empty() ? "" : reason + "\n") + (health ? describe_unreadable(*health) : std::string(no_files) + "\n");
}

Answer ready(const AdminSource &source, const Admin::State &health) {
  const std::string reasons = unreadiness(source, health);
  return text(ok_unless(!reasons.empty()), reasons.empty() ? "ready\n" : reasons);
}

Answer healthy(const AdminSource &, const Admin::State &health) {
  constexpr std::string_view json = "application/json";
  if (health) return {ok_unless(is_failing(*health)), json, health_json(*health)};
  return {ok_unless(true), json, R"({"status":"failing","failures":[")" + std::string(no_files) + "\"]}\n"};
}

Answer metrics(const AdminSource &source, const Admin::State &health) {
  const bool is_ready = unreadiness(source, health).empty();
  return {http::status::ok, "text/plain; version=0.0.4; charset=utf-8",
          source.metrics(health ? figures_of(*health) : std::vector<CatalogFigures>(), is_ready)};
}

/// Page is a path whose answer depends on the catalogs.
struct Page {
  std::string_view path;
  Answer (*make)(const AdminSource &, const Admin::State &);
};

constexpr Page pages[] = {{"/readyz", ready}, {"/healthz", healthy}, {"/metrics", metrics}};

}  // namespace

/// AdminConnection serves one request and closes.
class AdminConnection : public std::enable_shared_from_this<AdminConnection> {
 public:
  AdminConnection(io::Socket socket, Admin &admin)
      : admin_(admin), socket_(std::move(socket)), timer_(socket_.get_executor()) {
    parser_.header_limit(head_limit);
    parser_.body_limit(boost::none);  // never read
  }

  void start() {
    close_after(Admin::request_timeout);
    http::async_read_header(
        socket_, buffer_, parser_, [self = shared_from_this(), this](const error_code &error, std::size_t) {
          if (!error) return route();
          if (error == http::error::header_limit || error == http::error::buffer_overflow)
            return answer(text(http::status::request_header_fields_too_large, "The request head is too long.\n"));
          const bool is_malformed = error.category() == make_error_code(http::error::bad_method).category();
          if (is_malformed && error != http::error::end_of_stream && error != http::error::partial_message)
            return answer(text(http::status::bad_request, "The request is malformed.\n"));
          close();
        });
  }

  void close() {
    error_code ignored;
    timer_.cancel();
    socket_.close(ignored);
  }

 private:
  void route() {
    const http::verb method = parser_.get().method();
    if (method != http::verb::get && method != http::verb::head)
      return answer(text(http::status::method_not_allowed, "Use GET or HEAD.\n"));
    const std::string_view target(parser_.get().target().data(), parser_.get().target().size());
    const std::string_view path = target.substr(0, target.find('?'));
    if (path == "/livez") return answer(text(http::status::ok, "live\n"));
    for (const Page &page : pages)
      if (path == page.path) return answer_with_health(page);
    answer(text(http::status::not_found, "There are /livez, /readyz, /healthz and /metrics.\n"));
  }

  void answer_with_health(const Page &page) {
    admin_.with_health([self = shared_from_this(), this, make = page.make](const Admin::State &health) {
      answer(make(admin_.source(), health));
    });
  }

  void answer(Answer made) {
    if (!socket_.is_open()) return;
    response_.result(made.status);
    response_.set(http::field::content_type, boost::string_view(made.type.data(), made.type.size()));
    response_.set(http::field::cache_control, "no-store");
    if (made.status == http::status::method_not_allowed) response_.set(http::field::allow, "GET, HEAD");
    response_.keep_alive(false);
    response_.body() = std::move(made.body);
    response_.prepare_payload();
    close_after(Admin::request_timeout);
    const auto sent = [self = shared_from_this(), this](const error_code &error, std::size_t) {
      error ? close() : linger();
    };
    if (parser_.get().method() == http::verb::head)
      http::async_write_header(socket_, serializer_, sent);
    else
      http::async_write(socket_, serializer_, sent);
  }

  /// linger reads and drops input until the client closes: a close with unread input would send a reset, which may
  /// destroy the answer.
  void linger() {
    error_code error;
    socket_.shutdown(io::Socket::shutdown_send, error);
    error ? close() : discard();
  }

  void discard() {
    socket_.async_read_some(
        boost::asio::buffer(dropped_),
        [self = shared_from_this(), this](const error_code &error, std::size_t) { error ? close() : discard(); });
  }

  void close_after(std::chrono::seconds time) {
    timer_.expires_after(time);
    timer_.async_wait([weak = weak_from_this()](const error_code &error) {
      const auto self = weak.lock();
      if (!error && self) self->close();
    });
  }

  Admin &admin_;
  io::Socket socket_;
  io::Timer timer_;
  boost::beast::flat_buffer buffer_{head_limit + 1024};
  http::request_parser<http::empty_body> parser_;
  http::response<http::string_body> response_;
  http::response_serializer<http::string_body> serializer_{response_};
  std::array<char, 1024> dropped_;
};

Admin::Admin(boost::asio::io_context &context, std::string config, AdminSource source)
    : config_(std::move(config)), source_(std::move(source)), strand_(context.get_executor()), files_timer_(strand_) {
  read_catalogs();
}

Admin::~Admin() { files_.join(); }

void Admin::add(ListeningSocket socket) {
  address_ += (address_.empty() ? "" : ", ") + socket.address;
  listeners_.emplace_back(strand_, std::move(socket));
}

void Admin::listen() {
  for (Listener &listener : listeners_) listener.listen();
}

void Admin::start() {
  boost::asio::post(strand_, [this] {
    for (Listener &listener : listeners_) listener.start([this](Listener &from) { return take_client(from); });
  });
}

void Admin::stop() {
  boost::asio::post(strand_, [this] {
    for (Listener &listener : listeners_) listener.stop();
    for (const auto &weak : connections_)
      if (const auto connection = weak.lock()) connection->close();
    files_timer_.cancel();
  });
}

/* ---- Accepting ---- */

/// take_client accepts a client if one is waiting. Returns how long to pause before the next.
Duration Admin::take_client(Listener &listener) {
  try {
    io::Socket socket(strand_);
    sockaddr_storage address{};
    if (listener.accept(socket, address) != 0) return accept_pause;
    make_room();
    const auto connection = std::make_shared<AdminConnection>(std::move(socket), *this);
    connections_.push_back(connection);
    connection->start();
    return Duration::zero();
  } catch (const std::exception &) {
    return accept_pause;
  }
}

void Admin::make_room() {
  connections_.remove_if([](const auto &weak) { return weak.expired(); });
  if (connections_.size() < connection_limit) return;
  if (const auto oldest = connections_.front().lock()) oldest->close();
  connections_.pop_front();
}

/* ---- The catalogs ---- */

void Admin::read_catalogs() {
  catalogs_ = check::configured_catalogs(config_);
  std::vector<std::string> csids;
  for (const check::ConfiguredCatalog &catalog : catalogs_) csids.push_back(catalog.csid);
  source_.set_catalogs(csids);
}

void Admin::reload() {
  boost::asio::post(strand_, [this] {
    read_catalogs();
    health_.reset();
  });
}

void Admin::with_health(Use use) {
  if (health_ && io::Clock::now() - examined_at_ < cache_time) return use(health_);
  waiting_.push_back(std::move(use));
  if (waiting_.size() == 1) {
    files_timer_.expires_after(files_timeout);
    files_timer_.async_wait([this](const error_code &error) {
      // The timer may have been set again since it expired.
      if (!error && files_timer_.expiry() <= io::Clock::now()) answer_waiting(nullptr);
    });
  }
  if (!examining_.exchange(true)) examine_files();
}

void Admin::examine_files() {
  boost::asio::post(files_, [this, catalogs = catalogs_] {
    try {
      const State health = std::make_shared<const Health>(examine(catalogs));
      boost::asio::post(strand_, [this, health] { examined(health); });
    } catch (const std::exception &) {
      // Out of memory: the files count as not read, and the next request tries again.
      examining_ = false;
    }
  });
}

void Admin::examined(State health) {
  examining_ = false;
  health_ = std::move(health);
  examined_at_ = io::Clock::now();
  files_timer_.cancel();
  answer_waiting(health_);
}

void Admin::answer_waiting(const State &health) {
  for (const Use &use : std::exchange(waiting_, {})) use(health);
}

}  // namespace rdm::rdmd
