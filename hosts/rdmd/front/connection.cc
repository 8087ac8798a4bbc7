// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/connection.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <string_view>
#include <utility>

#include <boost/asio/post.hpp>

#include "hosts/rdmd/front/request_id.h"
#include "hosts/rdmd/front/server.h"

namespace rdm::rdmd {
namespace {

using boost::system::error_code;

constexpr std::string_view server_name = "rdmd/" RDM_VERSION;
constexpr std::string_view continue_line = "HTTP/1.1 100 Continue\r\n\r\n";

/// How many unsent bytes beyond the client's window the kernel queues. Without this limit the kernel queues megabytes
/// for a client that does not read; it does not slow down one that reads.
using UnsentLimit = boost::asio::detail::socket_option::integer<IPPROTO_TCP, TCP_NOTSENT_LOWAT>;
constexpr int unsent_limit = 131072;

/// An idle connection with at most this many unacknowledged bytes may make way: the acknowledgement of a short answer
/// may be on its way.
constexpr std::int64_t small_remainder = 16384;

/// Bytes read at a time while reading a head. Bytes after the request are kept until its answer is sent.
constexpr std::size_t head_block = 4096;
/// Bytes of a referer or user agent that the access log shows.
constexpr std::size_t logged_field = 1024;

HeadLimits head_limits(const Limits &limits) { return {limits.head_bytes, limits.target_bytes, limits.head_fields}; }

/// release_memory frees the memory that `value` holds. Assigning an empty string would keep the capacity.
template <typename Value>
void release_memory(Value &value) {
  const Value former = std::exchange(value, Value{});
}

/// is_broken returns true if the connection is reset or shut down in both directions (POLLERR, POLLHUP). A client that
/// has only shut down its sending side still waits for its answer.
bool is_broken(io::Socket &socket) {
  struct pollfd state {
    socket.native_handle(), 0, 0
  };
  return ::poll(&state, 1, 0) > 0;
}

/// refusal_text returns the text of the 503 for a client beyond a limit.
std::string_view refusal_text(Trouble reason) {
  if (reason == Trouble::address_full) return "There are too many connections from this address.\n";
  if (reason == Trouble::address_rate) return "There are too many new connections from this address.\n";
  return "The server has as many connections as it can take.\n";
}

/// has_hung_up returns true if the client has closed the connection, or at least its sending side.
bool has_hung_up(int socket) {
  struct pollfd state {
    socket, POLLRDHUP, 0
  };
  return ::poll(&state, 1, 0) > 0;
}

/// is_reset returns true if the TCP state of the connection is CLOSE.
bool is_reset(io::Socket &socket) {
  struct tcp_info info {};
  socklen_t size = sizeof info;
  return ::getsockopt(socket.native_handle(), IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && info.tcpi_state == TCP_CLOSE;
}

}  // namespace

Connection::Connection(io::Socket socket, Server &server, Client client, SslPtr tls)
    : server_(server),
      socket_(std::move(socket)),
      transport_(socket_.native_handle(), std::move(tls)),
      limit_alarm_(socket_.get_executor()),
      number_(server.next_connection()),
      unix_(client.key.is_local()),
      client_(client.text),
      client_key_(client.key),
      proxy_(server.proxies().trusts(client) ? std::make_unique<Client>(std::move(client)) : nullptr),
      deadline_(server.limits().write),
      send_rate_(server.limits().send_rate, server.limits().write * send_rate_slack),
      check_alarm_(socket_.get_executor()),
      reader_(head_limits(server.limits())) {
  roster_entry_.state = &state_;
  error_code ignored;
  socket_.native_non_blocking(true, ignored);
  socket_.set_option(io::Tcp::no_delay(true), ignored);
  socket_.set_option(UnsentLimit(unsent_limit), ignored);
}

Connection::~Connection() { server_.forget(roster_entry_); }

/// on_strand returns a completion handler that keeps the connection alive and does nothing if the state has changed
/// since.
template <typename Handler>
auto Connection::on_strand(Handler handler) {
  return [self = shared_from_this(), this, epoch = epoch_, handler](auto... results) {
    if (epoch == epoch_) handler(results...);
  };
}

void Connection::enter(State state) {
  ++epoch_;
  state_ = state;
  if (std::exchange(waits_, false)) server_.roster().set_busy(roster_entry_);
}

/* ---- From other threads ---- */

void Connection::start() {
  boost::asio::post(socket_.get_executor(),
                    on_strand([this] { server_.reads_proxy_headers() ? await_proxy_header() : begin(); }));
}

void Connection::turn_away(Trouble reason) {
  boost::asio::post(socket_.get_executor(), on_strand([this, reason] { refuse_for(reason); }));
}

void Connection::close_if_idle() {
  boost::asio::post(socket_.get_executor(), [self = shared_from_this(), this] {
    if (waits_ && (state_ == State::idle || state_ == State::handshake)) close();
  });
}

void Connection::make_way(bool at_once) {
  boost::asio::post(socket_.get_executor(), [self = shared_from_this(), this, at_once] {
    if (!waits_) return;
    closer_ = ClosedBy::limit;
    const bool answers =
        state_ == State::head && !at_once && server_.turn_away(roster_entry_, client_key_, Trouble::turned_away);
    if (answers) begin_unread_entry();
    server_.errors().trouble(Trouble::made_way, answers ? who() : client_);
    answers ? refuse({503, refusal_text(Trouble::turned_away)}) : close();
  });
}

void Connection::abort() {
  boost::asio::post(socket_.get_executor(), [self = shared_from_this(), this] {
    closer_ = ClosedBy::server;
    close();
  });
}

/* ---- Deadlines ---- */

void Connection::arm(Alarm &alarm, Duration time, Step step) {
  alarm.armed = true;
  alarm.timer.expires_after(time);
  alarm.timer.async_wait([self = shared_from_this(), this, &alarm, epoch = ++alarm.epoch, step](const error_code &) {
    if (epoch != alarm.epoch) return;
    alarm.armed = false;
    (this->*step)();
  });
}

void Connection::disarm(Alarm &alarm) {
  ++alarm.epoch;
  if (std::exchange(alarm.armed, false)) alarm.timer.cancel();
}

void Connection::give_up_handshake() {
  server_.errors().trouble(Trouble::late_tls, who());
  close();
}

void Connection::give_up_head() {
  begin_unread_entry();
  closer_ = ClosedBy::timeout;
  server_.errors().trouble(Trouble::late_head, who());
  refuse({408, "The request head did not arrive in time.\n"});
}

void Connection::give_up_body() {
  closer_ = ClosedBy::timeout;
  server_.errors().trouble(Trouble::late_body, who());
  refuse({408, "The request body did not arrive in time.\n"});
}

void Connection::give_up_sending(Trouble reason) {
  closer_ = ClosedBy::timeout;
  server_.errors().trouble(reason, who());
  error_code ignored;
  // SO_LINGER with timeout 0: close() then discards the unsent bytes.
  socket_.set_option(boost::asio::socket_base::linger(true, 0), ignored);
  close();
}

/* ---- The client that a proxy names ---- */

void Connection::await_proxy_header() {
  arm(limit_alarm_, server_.limits().header, &Connection::give_up_proxy_header);
  may_make_way(io::Clock::now());
  read_more_proxy_header();
}

void Connection::read_more_proxy_header() {
  socket_.async_wait(io::Socket::wait_read,
                     on_strand([this](const error_code &error) { error ? close() : read_proxy_header(); }));
}

/// read_proxy_header reads the header and not a byte more: the bytes after it are the transport's.
void Connection::read_proxy_header() {
  std::array<char, proxy_header_limit> block;
  const auto peeked = ::recv(socket_.native_handle(), block.data(), block.size(), MSG_PEEK | MSG_DONTWAIT);
  if (peeked < 0 && (errno == EAGAIN || errno == EINTR)) return read_more_proxy_header();
  if (peeked <= 0) return close();
  const std::size_t before = input_.size();
  input_.append(block.data(), static_cast<std::size_t>(peeked));
  const ProxyHeaderResult result = parse_proxy_header(input_);
  if (std::holds_alternative<ProxyHeaderMalformed>(result)) return give_up_proxy_header();
  const auto *header = std::get_if<ProxyHeader>(&result);
  ::recv(socket_.native_handle(), block.data(), (header != nullptr ? header->size : input_.size()) - before,
         MSG_DONTWAIT);
  header != nullptr ? take_proxy_header(*header) : read_more_proxy_header();
}

void Connection::take_proxy_header(const ProxyHeader &header) {
  release_memory(input_);
  disarm(limit_alarm_);
  if (!header.client) return begin();
  const Client client = client_of(*header.client);
  const auto refused = server_.assign(roster_entry_, client);
  set_client(client);
  // A proxy may itself be reached through a proxy.
  proxy_ = server_.proxies().trusts(client) ? std::make_unique<Client>(client) : nullptr;
  if (!refused) return begin();
  if (server_.turn_away(roster_entry_, client_key_, *refused)) return refuse_for(*refused);
  server_.errors().trouble(Trouble::disconnected, client_);
  close();
}

void Connection::give_up_proxy_header() {
  closer_ = ClosedBy::limit;
  server_.errors().trouble(Trouble::proxy_header, client_);
  close();
}

void Connection::set_client(Client client) {
  client_ = std::move(client.text);
  client_key_ = client.key;
}

/// release_client makes the connection the proxy's own again, between the requests of its clients.
void Connection::release_client() {
  if (!proxy_ || client_key_ == proxy_->key) return;
  set_client(*proxy_);
  server_.assign(roster_entry_, *proxy_);
}

/// take_forwarded_client makes the request one of the client that X-Forwarded-For names. Returns the limit that the
/// client's address exceeds, if one is.
std::optional<Trouble> Connection::take_forwarded_client() {
  if (!proxy_) return std::nullopt;
  const Client client = server_.proxies().forwarded(*proxy_, head_.field("x-forwarded-for"));
  const auto refused = server_.assign(roster_entry_, client);
  set_client(client);
  return refused;
}

/// refuse_for refuses a request or a connection beyond a limit, by TLS after the handshake.
void Connection::refuse_for(Trouble reason) {
  closer_ = ClosedBy::limit;
  begin_unread_entry();
  server_.errors().trouble(reason, who());
  refusal_ = reason;
  shake_hands(&Connection::refuse_client);
}

/* ---- TLS ---- */

void Connection::begin() { shake_hands(&Connection::next_request); }

/// shake_hands calls `next` when the TLS handshake is complete, and at once for a plain connection. The connection may
/// make way meanwhile.
void Connection::shake_hands(Step next) {
  if (transport_.is_ready()) return (this->*next)();
  enter(State::handshake);
  may_make_way(io::Clock::now());
  arm(limit_alarm_, server_.limits().header, &Connection::give_up_handshake);
  await_handshake(next);
}

void Connection::await_handshake(Step next) {
  socket_.async_wait(transport_.wanted(io::Socket::wait_read), on_strand([this, next](const error_code &error) {
                       if (error) return close();
                       continue_handshake(next);
                     }));
}

void Connection::continue_handshake(Step next) {
  note_sending();
  if (transport_.handshake() != 0) return errno == EAGAIN ? await_handshake(next) : handshake_failed();
  disarm(limit_alarm_);
  (this->*next)();
}

/// handshake_failed closes the connection, after a plain answer if the client has sent a plain request.
void Connection::handshake_failed() {
  if (!transport_.got_plain_request()) {
    server_.errors().trouble(Trouble::bad_tls, who());
    return close();
  }
  transport_.become_plain();
  refuse({400, "This address speaks TLS: use https.\n"});
}

void Connection::refuse_client() { refuse({503, refusal_text(refusal_)}); }

/* ---- Reading a request ---- */

/// read_more waits for input, reads up to `most` bytes of it and calls `next`, or `ended` at the end of input or on an
/// error.
void Connection::read_more(std::size_t most, Step next, Step ended) {
  if (transport_.has_input())
    return boost::asio::post(socket_.get_executor(), on_strand([=, this] { receive(most, next, ended); }));
  socket_.async_wait(transport_.wanted(io::Socket::wait_read), on_strand([=, this](const error_code &error) {
                       error ? (this->*ended)() : receive(most, next, ended);
                     }));
}

void Connection::receive(std::size_t most, Step next, Step ended) {
  std::array<char, 16384> block;
  const ssize_t count = transport_.receive({block.data(), std::min(most, block.size())});
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return read_more(most, next, ended);
  if (count <= 0) return (this->*ended)();
  input_.append(block.data(), static_cast<std::size_t>(count));
  (this->*next)();
}

void Connection::next_request() {
  release_client();
  reader_ = HeadReader(head_limits(server_.limits()));
  sender_.reset();
  unread_ = false;
  if (skip_empty_lines(input_)) {
    resume_checks();
    return begin_head();
  }
  input_.shrink_to_fit();
  enter(State::idle);
  wait_idle();
  await_acknowledgement();
}

void Connection::begin_head() {
  enter(State::head);
  arm(limit_alarm_, server_.limits().header, &Connection::give_up_head);
  read_head();
}

void Connection::wait_idle() { read_more(head_block, &Connection::leave_idle, &Connection::end_of_input); }

/// leave_idle begins a request unless the input consists of empty lines; those do not extend the idle timeout.
void Connection::leave_idle() {
  if (!skip_empty_lines(input_)) return wait_idle();
  begin_head();
}

void Connection::read_head() {
  HeadResult result = reader_.take(input_);
  if (std::holds_alternative<NeedMore>(result)) {
    if (!waits_ && has_answer()) may_make_way(io::Clock::now());
    return read_more(head_block, &Connection::read_head, &Connection::end_of_input);
  }
  if (const Refusal *refusal = std::get_if<Refusal>(&result)) {
    if (refusal->status == 414 || refusal->status == 431) head_too_large();
    return refuse(*refusal);
  }
  begin_request(std::get<RequestHead>(std::move(result)));
}

/// begin_entry begins the entry of a request in the access log and gives the request its identifier. Status 503 is
/// logged if the server stops, or the client disconnects, before there is an answer.
void Connection::begin_entry(std::string line) {
  id_ = make_request_id();
  entry_ = AccessEntry{};
  entry_.client = client_;
  entry_.time = std::chrono::system_clock::now();
  entry_.line = std::move(line);
  entry_.status = 503;
  entry_.id = id_;
  entry_.connection = number_;
  logged_ = false;
}

/// begin_unread_entry begins the entry of a request whose head cannot be parsed, if no entry has begun: it has the part
/// of the first line that has arrived.
void Connection::begin_unread_entry() {
  if (!logged_) return;
  const std::size_t line = std::min(input_.find_first_of("\r\n"), std::size_t{256});
  begin_entry(input_.substr(0, line));
  head_ = RequestHead{};
}

std::string Connection::who() const { return describe_client(client_, id_); }

void Connection::head_too_large() {
  begin_unread_entry();
  closer_ = ClosedBy::limit;
  server_.errors().trouble(Trouble::large_head, who());
}

void Connection::begin_request(RequestHead head) {
  head_ = std::move(head);
  const auto refused = take_forwarded_client();
  begin_entry(std::move(head_.line));
  entry_.referer = head_.field("referer").substr(0, logged_field);
  entry_.agent = head_.field("user-agent").substr(0, logged_field);
  closer_ = head_.keep_alive ? ClosedBy::server : ClosedBy::client;
  unread_ = head_.length.value_or(0) > 0;
  if (refused) return refuse_for(*refused);
  std::optional<Target> target = parse_target(head_.target);
  if (!target) return refuse({400, "The request target is malformed.\n"});
  target_ = std::move(*target);
  route();
}

void Connection::route() {
  keep_ = head_.keep_alive && !unread_;
  if (!is_service_path(target_.path)) return answer_text(404, "There is no such resource here.\n");
  entry_.for_service = true;
  request_ = make_request(head_, target_, client_);
  request_.variables = {{hosts::request_id_variable, id_}};
  if (!unread_ || *head_.length > body_limit) return submit();
  enter(State::body);
  arm(limit_alarm_, server_.limits().body, &Connection::give_up_body);
  if (head_.expects_continue && input_.empty()) {
    note_sending();
    return send_continue(0);
  }
  read_body();
}

/// send_continue sends the rest of the line "100 Continue" and then reads the body. `done` bytes are sent already.
void Connection::send_continue(std::size_t done) {
  const ssize_t put = transport_.send(continue_line.substr(done), false);
  if (put < 0 && errno != EAGAIN && errno != EINTR) return body_lost();
  if (put > 0) done += static_cast<std::size_t>(put);
  if (done < continue_line.size())
    return socket_.async_wait(transport_.wanted(io::Socket::wait_write),
                              on_strand([this, done](const error_code &error) {
                                if (error) return body_lost();
                                send_continue(done);
                              }));
  resume_checks();
  read_body();
}

void Connection::read_body() {
  const auto length = static_cast<std::size_t>(*head_.length);
  if (input_.size() < length) return read_more(length - input_.size(), &Connection::read_body, &Connection::body_lost);
  std::string following = input_.substr(length);
  input_.resize(length);
  request_.body = std::exchange(input_, std::move(following));
  unread_ = false;
  keep_ = head_.keep_alive;
  submit();
}

void Connection::body_lost() {
  entry_.status = 400;
  closer_ = ClosedBy::client;
  log_request();
  end_of_input();
}

/* ---- Answering it ---- */

void Connection::submit() {
  // First, under the time limit of the request: without memory for the job, that limit ends the connection.
  JobPtr job = make_job();
  disarm(limit_alarm_);
  enter(State::service);
  watch_client();
  server_.dispatcher().submit(std::move(job));
}

JobPtr Connection::make_job() {
  auto job = std::make_unique<Job>();
  job->request = std::move(request_);
  job->client = client_key_;
  job->prompt = is_prompt(job->request);
  // The descriptor by value: this runs on other threads, while the strand may close the socket.
  job->wanted = [this, socket = socket_.native_handle(), half_close = server_.settings().half_close] {
    return state_ == State::service && (half_close || !has_hung_up(socket));
  };
  job->reply = [self = shared_from_this(), this](Reply reply) mutable {
    // Move `self` on: the connection must be destroyed on an I/O thread, because those handle its socket and timers.
    boost::asio::post(socket_.get_executor(), [self = std::move(self), this, reply = std::move(reply)]() mutable {
      if (state_ == State::service) deliver(std::move(reply));
    });
  };
  return job;
}

/// watch_client closes the connection if the client resets it while the request waits or is served. It holds a weak
/// reference only, so that the connection is destroyed if its job is dropped.
void Connection::watch_client() {
  socket_.async_wait(io::Socket::wait_error, [weak = weak_from_this(), this, epoch = epoch_](const error_code &) {
    const auto self = weak.lock();
    if (!self || epoch != epoch_ || !is_broken(socket_)) return;
    closer_ = ClosedBy::client;
    close();
  });
}

void Connection::deliver(Reply reply) {
  error_code ignored;
  socket_.cancel(ignored);
  entry_.queued = reply.queued;
  entry_.served = reply.served;
  entry_.worker = reply.worker;
  entry_.labels = std::move(reply.answer.labels);
  switch (reply.fate) {
    case Fate::answered:
      return deliver(std::move(reply.answer));
    case Fate::abandoned:
      closer_ = ClosedBy::client;
      return close();
    case Fate::crashed:
      // The worker's end is logged with the request.
      return answer_failure();
    case Fate::timed_out:
      server_.errors().error("a request took longer than the service timeout (client " + who() + ")");
      return answer_failure();
    case Fate::queue_full:
      server_.errors().trouble(Trouble::queue_full, who());
      return answer_text(503, "The server has as many requests as it can take.\n");
    case Fate::overdue:
      server_.errors().trouble(Trouble::overdue, who());
      return answer_text(503, "The server is too busy to answer in time.\n");
    case Fate::stopping:
      return answer_text(503, "The server is stopping.\n");
  }
}

void Connection::deliver(hosts::ServiceAnswer answered) {
  switch (answered.outcome) {
    case hosts::Outcome::not_handled:
      return answer_text(404, "There is no such resource here.\n");
    case hosts::Outcome::silent:
      return fail("the plug-in sent no answer");
    case hosts::Outcome::broken:
      return fail("out of memory, or a file operation failed, while answering a request");
    case hosts::Outcome::answered:
      keep_ = keep_ && answered.delimited;
      return answer(answered.head, std::move(answered.pieces));
  }
}

/// answer_failure answers 500 because a worker failed; another one will serve the next request.
void Connection::answer_failure() {
  keep_ = false;
  hosts::Head head = hosts::text_head(500, 0);
  head.fields.push_back({"Retry-After", "5"});
  answer(head, {});
}

/// fail answers 500 and logs `reason`.
void Connection::fail(const std::string &reason) {
  server_.errors().error(reason + " (client " + who() + ")");
  keep_ = false;
  answer_text(500, "");
}

/// refuse answers a request that could not be read completely. The connection is closed afterwards, because the start
/// of a next request cannot be found.
void Connection::refuse(const Refusal &refusal) {
  // A record of "100 Continue" that the socket took only in part would be continued by this answer.
  if (transport_.is_unfinished()) return close();
  error_code ignored;
  socket_.cancel(ignored);
  begin_unread_entry();
  unread_ = true;
  keep_ = false;
  answer_text(refusal.status, refusal.text);
}

void Connection::answer_text(int status, std::string_view text) {
  std::vector<hosts::Piece> pieces;
  const auto length = static_cast<std::int64_t>(text.size());
  if (length > 0 && head_.method != "HEAD") pieces.push_back(hosts::Piece{std::string(text), nullptr, 0, length});
  answer(hosts::text_head(status, length), std::move(pieces));
}

/// open_share returns what the answer takes of the room in temporary files; nothing yet. Clients of Unix sockets and
/// proxies have no limit of their own.
SpillBudget::Share Connection::open_share() {
  const bool limited = !client_key_.is_local() && (!proxy_ || proxy_->key != client_key_);
  return server_.spill_budget().open(limited ? std::optional(client_key_) : std::nullopt);
}

/// refuse_room answers 503 instead of an answer that would take too much room in temporary files.
void Connection::refuse_room() {
  server_.errors().trouble(Trouble::spill_full, who());
  answer_text(503, "There are too many answers waiting to be sent.\n");
}

void Connection::answer(const hosts::Head &head, std::vector<hosts::Piece> pieces) {
  SpillBudget::Share share = open_share();
  if (!share.grow(temporary_bytes(pieces))) return refuse_room();
  disarm(limit_alarm_);
  enter(State::sending);
  keep_ = keep_ && !server_.stopping();
  entry_.status = head.status;
  const std::string_view persistence = keep_ ? (head_.http11 ? "" : "keep-alive") : "close";
  sender_.emplace(hosts::render_head(head, {server_name, std::time(nullptr), persistence, id_}), std::move(pieces),
                  std::move(share));
  answered_at_ = io::Clock::now();
  note_sending();
  was_blocked_ = false;
  release_request();
  send_some();
}

/// release_request frees the request.
void Connection::release_request() {
  release_memory(request_);
  release_memory(head_);
  release_memory(target_);
  if (!keep_) input_.clear();
  input_.shrink_to_fit();
  server_.released();
}

void Connection::send_some() {
  // Take the time before sending, so that connections are ordered by when they were answered, not by how threads are
  // scheduled.
  last_sent_ = io::Clock::now();
  switch (sender_->send(transport_)) {
    case Sender::State::done:
      return sent();
    case Sender::State::more:
      return boost::asio::post(socket_.get_executor(), on_strand([this] { send_some(); }));
    case Sender::State::blocked:
      return await_writable();
    case Sender::State::failed:
      return sending_failed();
  }
}

void Connection::await_writable() {
  if (!std::exchange(was_blocked_, true)) check_client_after(deadline_.interval());
  socket_.async_wait(transport_.wanted(io::Socket::wait_write), on_strand([this](const error_code &error) {
                       if (error) return sending_failed();
                       send_some();
                     }));
}

void Connection::sending_failed() {
  closer_ = ClosedBy::client;
  server_.errors().trouble(Trouble::broken, who());
  close();
}

/* ---- Acknowledgement of the answer ---- */

/// unacknowledged returns the number of bytes that the kernel holds until the client acknowledges them (SIOCOUTQ). A
/// FIN counts as one byte.
std::int64_t Connection::unacknowledged() {
  int count = 0;
  ::ioctl(socket_.native_handle(), SIOCOUTQ, &count);
  return count;
}

/// has_answer returns true if the client has acknowledged all answers. Returns true at once for a client that is turned
/// away.
bool Connection::has_answer() {
  return roster_entry_.turned_away || unacknowledged() <= (state_ == State::lingering ? 1 : 0);
}

/// taken returns how many bytes count towards the minimum rate: those that the client has acknowledged. On a Unix
/// socket SIOCOUTQ counts the kernel's memory, which exceeds the bytes in it, so what the kernel has taken counts.
std::int64_t Connection::taken() { return transport_.sent() - (unix_ ? 0 : unacknowledged()); }

/// note_sending starts the write deadline and the minimum rate unless they are running.
void Connection::note_sending() {
  const std::int64_t acknowledged = transport_.sent() - unacknowledged();
  const auto now = io::Clock::now();
  deadline_.begin(acknowledged, transport_.sent(), now);
  send_rate_.begin(taken(), transport_.sent(), now);
}

/// check_client_after schedules check_client after `time`, which repeats it until all is acknowledged.
void Connection::check_client_after(Duration time) {
  check_interval_ = time;
  arm(check_alarm_, time, &Connection::check_client);
}

/// resume_checks schedules check_client if the client has not acknowledged everything before its next request.
void Connection::resume_checks() {
  if (!check_alarm_.armed && !has_answer()) check_client_after(deadline_.interval());
}

/// await_acknowledgement waits until the client has acknowledged its answer. It checks after 1 ms first, because most
/// clients acknowledge at once, and then less often.
void Connection::await_acknowledgement() {
  if (has_answer()) return acknowledged(last_sent_);
  // A small remainder may be left to the kernel if another client needs the connection.
  if (state_ == State::idle && unacknowledged() <= small_remainder) may_make_way(last_sent_);
  check_client_after(Duration(1));
}

/// check_client closes the connection of a client that has acknowledged nothing within the write deadline, or less than
/// the minimum rate. This holds in every state, so a client that keeps sending requests is closed too.
void Connection::check_client() {
  const auto now = io::Clock::now();
  const bool waits = state_ == State::idle || state_ == State::lingering;
  if (waits && is_reset(socket_)) return close();
  if (state_ != State::sending && has_answer()) return waits ? acknowledged(now) : void();
  const std::int64_t acknowledged = transport_.sent() - unacknowledged();
  if (deadline_.expired(acknowledged, now)) return give_up_sending(Trouble::unread);
  if (send_rate_.too_slow(taken(), now)) return give_up_sending(Trouble::too_slow);
  check_client_after(state_ == State::sending ? deadline_.interval()
                                              : std::min(check_interval_ * 4, deadline_.interval()));
}

/// acknowledged starts the next timeout: the header timeout before the first request, the idle timeout after an answer,
/// the linger timeout after the last answer. It closes the connection if the server is stopping, or if the last answer
/// is acknowledged and the input has ended.
void Connection::acknowledged(io::Clock::time_point since) {
  disarm(check_alarm_);
  if (state_ == State::lingering)
    return ended_ ? close() : arm(limit_alarm_, server_.limits().linger, &Connection::close);
  if (server_.stopping()) return close();
  may_make_way(since);
  arm(limit_alarm_, first_ ? server_.limits().header : server_.limits().idle, &Connection::close);
}

/// may_make_way allows the connection to be ended in favour of a new client.
void Connection::may_make_way(io::Clock::time_point since) {
  if (!std::exchange(waits_, true)) server_.roster().set_waiting(roster_entry_, since);
}

void Connection::sent() {
  disarm(limit_alarm_);
  entry_.complete = true;
  log_request();
  first_ = false;
  if (!keep_) return linger();
  // post() instead of a call: otherwise each of many small requests in one packet would deepen the stack.
  boost::asio::post(socket_.get_executor(), on_strand([this] { next_request(); }));
}

void Connection::log_request() {
  if (std::exchange(logged_, true)) return;
  entry_.bytes = sender_ ? sender_->body_sent() : 0;
  if (sender_) entry_.sent = io::Clock::now() - answered_at_;
  if (!keep_ || !entry_.complete) entry_.closed_by = closer_;
  server_.metrics().count(entry_);
  server_.access().write(entry_);
  release_memory(entry_);
}

/* ---- The end ---- */

/// linger reads and discards input until the client has the last answer, and for the linger timeout after it: close()
/// with unread input sends a reset, on which the client's system discards the unread part of the answer.
void Connection::linger() {
  if (transport_.shut_down() != 0) return errno == EAGAIN ? linger_later() : close();
  enter(State::lingering);
  await_acknowledgement();
  discard();
}

/// linger_later calls linger when the socket takes the end of the TLS session. The write deadline is running.
void Connection::linger_later() {
  if (!check_alarm_.armed) check_client_after(deadline_.interval());
  socket_.async_wait(transport_.wanted(io::Socket::wait_write),
                     on_strand([this](const error_code &error) { error ? close() : linger(); }));
}

void Connection::discard() {
  release_memory(input_);
  read_more(SIZE_MAX, &Connection::discard, &Connection::end_of_input);
}

/// end_of_input closes the connection once the client has acknowledged its answers. Until then the connection stays
/// open and counts towards the limit; otherwise clients that read nothing could make the kernel hold any number of
/// answers.
void Connection::end_of_input() {
  if (is_reset(socket_) || has_answer()) return close();
  if (state_ != State::lingering) return linger();
  ended_ = true;
}

void Connection::close() {
  if (state_ == State::closed) return;
  if (!logged_ && entry_.status == 503 && !sender_) server_.errors().trouble(Trouble::not_served, who());
  disarm(limit_alarm_);
  disarm(check_alarm_);
  // An answer that was cut off does not end with close_notify: its client must not take it for a whole one.
  if (state_ == State::idle && transport_.is_encrypted()) transport_.shut_down();
  enter(State::closed);
  log_request();
  sender_.reset();
  error_code ignored;
  socket_.close(ignored);
}

}  // namespace rdm::rdmd
