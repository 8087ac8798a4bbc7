// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/connection.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>

#include "hosts/rdmd/front/server.h"

namespace rdm::rdmd {
namespace {

constexpr std::string_view server_name = "rdmd/" RDM_VERSION;

/// The time for a request whose client has connected, or begun to send it, just before the server stops.
constexpr Duration first_request_limit{1'000};

/// release_memory frees the memory that `value` holds. Assigning an empty string would keep the capacity.
template <typename Value>
void release_memory(Value &value) {
  const Value former = std::exchange(value, Value{});
}

/// refusal_text returns the text of the 503 for a client beyond a limit.
std::string_view refusal_text(Trouble reason) {
  if (reason == Trouble::address_full) return "There are too many connections from this address.\n";
  if (reason == Trouble::address_rate) return "There are too many new connections from this address.\n";
  return "The server has as many connections as it can take.\n";
}

/// describe_failure describes an answer that was discarded because of an errno; 0 if the reason is not known.
std::string describe_failure(int code) {
  const std::string text = "cannot answer a request";
  return code == 0 ? text : text + ": " + std::generic_category().message(code);
}

}  // namespace

Connection::Connection(io::Socket socket, Server &server, const Client &client, SslPtr tls)
    : server_(server),
      channel_(*this, std::move(socket), std::move(tls), server.roster()),
      client_(server, channel_.entry(), client),
      acknowledgement_(channel_, server.limits(), client.key.is_local(), *this),
      proxy_header_(channel_, *this),
      handshake_(channel_, acknowledgement_, *this),
      reader_(channel_, acknowledgement_, server.limits(), *this),
      delivery_(channel_, acknowledgement_, *this),
      lingering_(channel_, acknowledgement_, server.limits().linger, *this),
      record_(server.next_connection(), client_.text()) {}

Connection::~Connection() {
  // An exception, such as bad_alloc, may have ended the connection in the middle of a request.
  try {
    record_.close_by(ClosedBy::server);
    if (record_.is_open()) end_record();
  } catch (const std::bad_alloc &) {
    // Its line is lost.
  }
  server_.forget(channel_.entry());
}

/* ---- From other threads ---- */

void Connection::start() {
  channel_.post([this] { server_.reads_proxy_headers() ? proxy_header_.begin(server_.limits().header) : begin(); });
}

void Connection::turn_away(Trouble reason) {
  channel_.post([this, reason] { refuse_for(reason); });
}

void Connection::close_if_idle() {
  boost::asio::post(channel_.executor(), [self = shared_from_this(), this] {
    const State state = channel_.state();
    if (!channel_.may_make_way() || (state != State::idle && state != State::handshake)) return;
    if (expects_nothing()) return close();
    channel_.limit(first_request_time(), [this] { close(); });
  });
}

void Connection::make_way(bool at_once) {
  boost::asio::post(channel_.executor(), [self = shared_from_this(), this, at_once] {
    if (!channel_.may_make_way()) return;
    record_.close_by(ClosedBy::limit);
    const bool answers = channel_.state() == State::head && !at_once &&
                         server_.admission().turn_away(channel_.entry(), client_.key(), Trouble::turned_away);
    if (answers) begin_unread_entry();
    server_.errors().trouble(Trouble::made_way, answers ? record_.who() : client_.text());
    answers ? refuse({503, refusal_text(Trouble::turned_away)}) : close();
  });
}

void Connection::abort() {
  boost::asio::post(channel_.executor(), [self = shared_from_this(), this] {
    record_.close_by(ClosedBy::server);
    close();
  });
}

/* ---- Before the first request ---- */

void Connection::proxy_header_read(const ProxyHeader &header) {
  if (!header.client) return begin();
  const auto refused = client_.become(client_of(*header.client));
  if (!refused) return begin();
  if (server_.admission().turn_away(channel_.entry(), client_.key(), *refused)) return refuse_for(*refused);
  server_.errors().trouble(Trouble::disconnected, client_.text());
  close();
}

void Connection::proxy_header_bad() {
  record_.close_by(ClosedBy::limit);
  server_.errors().trouble(Trouble::proxy_header, client_.text());
  close();
}

void Connection::begin() {
  handshake_.begin(server_.limits().header, [this] { next_request(); });
}

/// refuse_for refuses a request or a connection beyond a limit, by TLS after the handshake.
void Connection::refuse_for(Trouble reason) {
  record_.close_by(ClosedBy::limit);
  begin_unread_entry();
  server_.errors().trouble(reason, record_.who());
  handshake_.begin(server_.limits().header, [this, reason] { refuse({503, refusal_text(reason)}); });
}

void Connection::handshake_failed(Handshake::Failure failure) {
  switch (failure) {
    case Handshake::Failure::plain:
      return refuse({400, "This address speaks TLS: use https.\n"});
    case Handshake::Failure::late:
      server_.errors().trouble(Trouble::late_tls, record_.who());
      return close();
    case Handshake::Failure::refused:
      server_.errors().trouble(Trouble::bad_tls, record_.who());
      return close();
    case Handshake::Failure::lost:
      return close();
  }
}

/* ---- A request ---- */

void Connection::next_request() {
  client_.release();
  delivery_.drop();
  unread_ = false;
  reader_.read_next();
}

void Connection::head_read(RequestHead head) {
  head_ = std::move(head);
  const auto refused = client_.forward(head_.field("x-forwarded-for"));
  record_.begin(std::move(head_.line), head_.field("referer"), head_.field("user-agent"));
  record_.close_by(head_.keep_alive ? ClosedBy::server : ClosedBy::client);
  unread_ = head_.length.value_or(0) > 0;
  if (refused) return refuse_for(*refused);
  std::optional<Target> target = parse_target(head_.target);
  if (!target) return refuse({400, "The request target is malformed.\n"});
  route(std::move(*target));
}

void Connection::route(Target target) {
  keep_ = head_.keep_alive && !unread_;
  if (!is_service_path(target.path)) return answer_text(404, "There is no such resource here.\n");
  record_.entry().for_service = true;
  request_ = make_request(head_, std::move(target), client_.text());
  request_.variables.push_back({hosts::request_id_variable, record_.id()});
  if (!unread_ || *head_.length > body_limit) return submit();
  reader_.read_body(static_cast<std::size_t>(*head_.length), head_.expects_continue);
}

void Connection::head_refused(const Refusal &refusal) {
  if (refusal.status == 414 || refusal.status == 431) {
    begin_unread_entry();
    record_.close_by(ClosedBy::limit);
    server_.errors().trouble(Trouble::large_head, record_.who());
  }
  refuse(refusal);
}

void Connection::head_late() {
  begin_unread_entry();
  record_.close_by(ClosedBy::timeout);
  server_.errors().trouble(Trouble::late_head, record_.who());
  refuse({408, "The request head did not arrive in time.\n"});
}

void Connection::begin_unread_entry() {
  if (record_.begin_unread(channel_.input())) head_ = RequestHead{};
}

void Connection::body_read(std::string body) {
  request_.body = std::move(body);
  unread_ = false;
  keep_ = head_.keep_alive;
  submit();
}

void Connection::body_late() {
  record_.close_by(ClosedBy::timeout);
  server_.errors().trouble(Trouble::late_body, record_.who());
  refuse({408, "The request body did not arrive in time.\n"});
}

void Connection::body_lost() {
  record_.entry().status = 400;
  record_.close_by(ClosedBy::client);
  finish_record();
  lingering_.input_ended();
}

/* ---- Serving it ---- */

void Connection::submit() {
  // First, under the time limit of the request: without memory for the job, that limit ends the connection.
  JobPtr job = make_job();
  channel_.lift_limit();
  channel_.enter(State::service);
  // While the request waits or is served. If its job is dropped, the connection is destroyed.
  channel_.watch([this] {
    record_.close_by(ClosedBy::client);
    close();
  });
  server_.dispatcher().submit(std::move(job), channel_.executor());
}

JobPtr Connection::make_job() {
  auto job = std::make_unique<Job>();
  job->request = std::move(request_);
  job->client = client_.key();
  job->prompt = is_prompt(job->request);
  // The descriptor by value: this runs on other threads, while the strand may close the socket.
  job->wanted = [this, socket = channel_.descriptor(), half_close = server_.settings().half_close] {
    return channel_.state() == State::service && (half_close || !has_hung_up(socket));
  };
  job->keeper = shared_from_this();
  job->reply = [this, job = job.get()](Reply reply) {
    // Move the keeper on: the connection must be destroyed on an I/O thread, because those handle its socket and
    // timers. dispatch() answers at once on the thread that has received the answer from a worker.
    boost::asio::dispatch(channel_.executor(),
                          [self = std::move(job->keeper), this, reply = std::move(reply)]() mutable {
                            if (channel_.state() == State::service) deliver_or_close(std::move(reply));
                          });
  };
  return job;
}

/// deliver_or_close keeps exceptions from whoever replies: it replies to other clients as well.
void Connection::deliver_or_close(Reply reply) {
  try {
    deliver(std::move(reply));
  } catch (const std::bad_alloc &error) {
    server_.errors().failure("a connection failed", error);
    record_.close_by(ClosedBy::server);
    close();
  }
}

void Connection::deliver(Reply reply) {
  channel_.stop_watching();
  AccessEntry &entry = record_.entry();
  entry.queued = reply.queued;
  entry.served = reply.served;
  entry.worker = reply.worker;
  entry.labels = std::move(reply.answer.labels);
  switch (reply.fate) {
    case Fate::answered:
      return deliver(std::move(reply.answer));
    case Fate::abandoned:
      record_.close_by(ClosedBy::client);
      return close();
    case Fate::crashed:
      // The worker's end is logged with the request.
      return answer_failure();
    case Fate::timed_out:
      server_.errors().error("a request took longer than the service timeout (client " + record_.who() + ")");
      return answer_failure();
    case Fate::queue_full:
      server_.errors().trouble(Trouble::queue_full, record_.who());
      return answer_text(503, "The server has as many requests as it can take.\n");
    case Fate::overdue:
      server_.errors().trouble(Trouble::overdue, record_.who());
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
      return fail(describe_failure(answered.failure));
    case hosts::Outcome::answered:
      keep_ = keep_ && answered.delimited;
      return answer(answered.head, std::move(answered.pieces));
  }
}

/* ---- Answering it ---- */

/// refuse answers a request that could not be read completely. The connection is closed afterwards, because the start
/// of a next request cannot be found.
void Connection::refuse(const Refusal &refusal) {
  // A record of "100 Continue" that the socket took only in part would be continued by this answer.
  if (channel_.transport().is_unfinished()) return close();
  channel_.cancel();
  begin_unread_entry();
  unread_ = true;
  keep_ = false;
  answer_text(refusal.status, refusal.text);
}

/// fail answers 500 and logs `reason`.
void Connection::fail(const std::string &reason) {
  server_.errors().error(reason + " (client " + record_.who() + ")");
  keep_ = false;
  answer_text(500, "");
}

/// answer_failure answers 500 because a worker failed; another one will serve the next request.
void Connection::answer_failure() {
  keep_ = false;
  hosts::Head head = hosts::text_head(500, 0);
  head.fields.push_back({"Retry-After", "5"});
  answer(head, {});
}

void Connection::answer_text(int status, std::string_view text) {
  std::vector<hosts::Piece> pieces;
  const auto length = static_cast<std::int64_t>(text.size());
  if (length > 0 && head_.method != "HEAD") pieces.push_back(hosts::Piece{std::string(text), nullptr, 0, length});
  answer(hosts::text_head(status, length), std::move(pieces));
}

void Connection::answer(const hosts::Head &head, std::vector<hosts::Piece> pieces) {
  SpillBudget::Share share = open_share();
  if (!share.grow(temporary_bytes(pieces))) return refuse_room();
  channel_.lift_limit();
  channel_.enter(State::sending);
  keep_ = keep_ && !server_.stopping();
  record_.entry().status = head.status;
  const std::string_view persistence = keep_ ? (head_.http11 ? "" : "keep-alive") : "close";
  delivery_.set(hosts::render_head(head, {server_name, std::time(nullptr), persistence, record_.id()}),
                std::move(pieces), std::move(share));
  release_request();
  delivery_.send();
}

/// open_share returns what the answer takes of the room in temporary files; nothing yet.
SpillBudget::Share Connection::open_share() {
  return server_.spill_budget().open(client_.has_limits() ? std::optional(client_.key()) : std::nullopt);
}

/// refuse_room answers 503 instead of an answer that would take too much room in temporary files.
void Connection::refuse_room() {
  server_.errors().trouble(Trouble::spill_full, record_.who());
  answer_text(503, "There are too many answers waiting to be sent.\n");
}

/// release_request frees the request.
void Connection::release_request() {
  release_memory(request_);
  release_memory(head_);
  if (!keep_) channel_.input().clear();
  channel_.input().shrink_to_fit();
  server_.memory_trim().released();
}

void Connection::delivered() {
  channel_.lift_limit();
  record_.entry().complete = true;
  finish_record();
  first_ = false;
  if (!keep_) return lingering_.begin();
  // Otherwise each of many small requests in one packet would deepen the stack.
  if (channel_.input().empty()) return next_request();
  channel_.post([this] { next_request(); });
}

void Connection::delivery_failed() {
  record_.close_by(ClosedBy::client);
  server_.errors().trouble(Trouble::broken, record_.who());
  close();
}

void Connection::delivery_spoilt() {
  record_.close_by(ClosedBy::server);
  server_.errors().error(
      "a database was changed or cut while an answer was sent from it: the answer is broken off "
      "(client " +
      record_.who() + "); replace databases by rename");
  close();
}

/// end_record ends the record of a connection that is closed.
void Connection::end_record() {
  if (record_.is_open() && record_.entry().status == 503 && !delivery_.progress())
    server_.errors().trouble(Trouble::not_served, record_.who());
  finish_record();
}

void Connection::finish_record() { record_.finish(delivery_.progress(), keep_, server_.metrics(), server_.access()); }

/* ---- What follows an answer ---- */

/// expects_nothing returns true for a connection that the server closes when it stops: it has had a request, and no
/// byte of another has arrived.
bool Connection::expects_nothing() {
  int unread = 0;
  ::ioctl(channel_.descriptor(), FIONREAD, &unread);
  return !first_ && unread == 0;
}

/// first_request_time returns the time in which a client that has connected begins its first request.
Duration Connection::first_request_time() const {
  const Duration time = server_.limits().header;
  return server_.stopping() ? std::min(time, first_request_limit) : time;
}

/// acknowledged starts the next timeout: the header timeout before the first request, the idle timeout after an answer,
/// the linger timeout after the last answer.
void Connection::acknowledged(io::Clock::time_point since) {
  if (channel_.state() == State::lingering) return lingering_.acknowledged();
  if (server_.stopping() && expects_nothing()) return close();
  channel_.let_make_way(since);
  const bool soon = first_ || server_.stopping();
  channel_.limit(soon ? first_request_time() : server_.limits().idle, [this] { close(); });
}

void Connection::client_too_slow(Trouble reason) {
  record_.close_by(ClosedBy::timeout);
  server_.errors().trouble(reason, record_.who());
  channel_.discard_unsent();
  close();
}

void Connection::close() {
  if (channel_.state() == State::closed) return;
  acknowledgement_.stop();
  channel_.end();
  end_record();
  delivery_.drop();
  channel_.close();
}

}  // namespace rdm::rdmd
