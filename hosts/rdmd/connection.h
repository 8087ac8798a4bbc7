// SPDX-License-Identifier: MIT
/// One client connection: requests are read, handed to the plug-in and answered one after another.
///
/// Members run on the connection's own strand where nothing else is said. A request is read whole before it is queued
/// for the plug-in's thread, and its answer is sent after the plug-in has returned; meanwhile nothing is read, so that
/// a client which sends faster than it is answered waits in its own socket. One that resets its connection meanwhile
/// ends it, and a request that has not had its turn by then is not handed to the plug-in.
///
/// A connection that waits holds little memory: it takes a buffer when there is something to read, and lets go of the
/// request when its answer is queued.
#ifndef HOSTS_RDMD_CONNECTION_H
#define HOSTS_RDMD_CONNECTION_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/common/exchange.h"
#include "hosts/common/plugin.h"
#include "hosts/rdmd/request_target.h"
#include "hosts/rdmd/io.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/request_head.h"
#include "hosts/rdmd/roster.h"
#include "hosts/rdmd/sender.h"
#include "hosts/rdmd/settings.h"
#include "hosts/rdmd/write_deadline.h"

namespace rdm::rdmd {

class Server;

/// client_address returns the address of a client as text, "-" when it has gone. An IPv4 client of an IPv6 socket shows
/// as what it is.
std::string client_address(const io::Socket &socket);

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(io::Socket socket, Server &server);
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;
  ~Connection();

  /// start begins to serve requests. To be called once, from any thread, like turn_away.
  void start();
  /// turn_away answers 503 without reading anything, for a client beyond the connection limit.
  void turn_away();

  /// close_if_idle closes the connection if it waits for a request. From any thread.
  void close_if_idle();
  /// abort closes the connection at once. From any thread.
  void abort();

  /// place is where the connection stands in the roster of its server; for the one who admits it.
  Roster::Place &place() { return place_; }

 private:
  enum class State { idle, head, body, service, sending, lingering, closed };
  using Step = void (Connection::*)();
  /// Alarm is a timer that takes a step once. Arming it again replaces that step.
  struct Alarm {
    explicit Alarm(const io::Executor &strand) : timer(strand) {}
    io::Timer timer;
    std::uint64_t epoch = 0;  // of its arming: completions of an earlier one are ignored
    bool armed = false;
  };

  void next_request();
  void begin_head();
  void wait_idle();
  void leave_idle();
  void read_head();
  void begin_request(RequestHead head);
  void route();
  void read_body();
  void send_continue();
  void body_lost();
  void call_plugin();
  void watch_client();
  hosts::Outcome serve();
  void deliver(hosts::Outcome outcome);
  void fail(const std::string &reason);

  void refuse(const Refusal &refusal);
  void answer_text(int status, std::string_view text);
  void answer(const hosts::Head &head, std::vector<hosts::Piece> pieces);
  void release_request();
  void send_some();
  void await_writable();
  void sending_failed();
  void note_sending();
  void look_at_client();
  void look_after(Duration time);
  void keep_looking();
  void await_acknowledgement();
  void acknowledged(io::Clock::time_point since);
  void become_idle(io::Clock::time_point since);
  std::int64_t unacknowledged();
  bool has_answer();
  void sent();
  void log_request();

  void linger();
  void discard();
  void end_of_input();
  void close();

  void enter(State state);
  void read_more(std::size_t most, Step next, Step ended);
  void receive(std::size_t most, Step next, Step ended);
  void arm(Alarm &alarm, Duration time, Step step);
  void disarm(Alarm &alarm);
  void give_up_head();
  void give_up_body();
  void give_up_sending();
  template <typename Handler>
  auto on_strand(Handler handler);

  Server &server_;
  io::Socket socket_;
  Alarm limit_;                             // on the state
  std::atomic<State> state_ = State::idle;  // changed on the strand alone; the plug-in's thread reads it
  std::uint64_t epoch_ = 0;                 // of the state: completions of an earlier one are ignored
  Roster::Place place_;
  io::Clock::time_point last_sent_ = io::Clock::now();
  std::string client_;
  std::string input_;    // bytes received and not yet used
  bool first_ = true;    // no request was answered yet
  bool keep_ = false;    // the connection outlives the answer under way
  bool unread_ = false;  // the request has a body that is not read
  bool idle_ = false;    // the connection may make way: the client has its answer and has not begun its next request
  bool ended_ = false;   // the client has finished sending; noted while lingering

  // What the client takes of its answers. It is looked at in every state, as long as bytes are not acknowledged.
  WriteDeadline deadline_;
  Alarm look_;
  Duration look_interval_{};
  std::int64_t sent_ = 0;     // bytes of all answers, and of what asks for a body
  bool was_blocked_ = false;  // the client did not take the answer under way at once

  // The request under way.
  HeadReader reader_;
  RequestHead head_;
  Target target_;
  std::unique_ptr<hosts::Exchange> exchange_;
  std::optional<Sender> sender_;
  AccessEntry entry_;
  bool logged_ = true;
};

}  // namespace rdm::rdmd

#endif
