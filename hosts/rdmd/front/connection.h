// SPDX-License-Identifier: MIT
/// One client connection: reads requests, passes them to the plug-in and sends the answers, one after another.
///
/// Unless stated otherwise, members run on the connection's strand. A request is read completely before it is queued
/// for a worker, and its answer is sent after the plug-in has returned. Nothing is read in between: further requests
/// wait in the kernel's socket buffer. If the client resets the connection meanwhile, the connection is closed. A
/// queued request whose client has closed the connection is not passed to the plug-in.
///
/// A waiting connection holds little memory: it has a read buffer only while there is something to read, and frees the
/// request once its answer is queued.
#ifndef HOSTS_RDMD_FRONT_CONNECTION_H
#define HOSTS_RDMD_FRONT_CONNECTION_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hosts/common/service_call.h"
#include "hosts/rdmd/access_log.h"
#include "hosts/rdmd/front/client.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/job.h"
#include "hosts/rdmd/front/proxy_header.h"
#include "hosts/rdmd/front/request_head.h"
#include "hosts/rdmd/front/request_target.h"
#include "hosts/rdmd/front/roster.h"
#include "hosts/rdmd/front/send_rate.h"
#include "hosts/rdmd/front/sender.h"
#include "hosts/rdmd/front/transport.h"
#include "hosts/rdmd/front/write_deadline.h"
#include "hosts/rdmd/log.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class Server;

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  /// Serves the client of an accepted socket, by TLS if `tls` is not null.
  Connection(io::Socket socket, Server &server, Client client = {}, SslPtr tls = nullptr);
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;
  ~Connection();

  /// start begins to serve requests. Call start or turn_away once, from any thread.
  void start();
  /// turn_away answers 503 without reading a request, for a client beyond a limit. `reason` is the trouble to log.
  void turn_away(Trouble reason);

  /// close_if_idle closes the connection if it waits for a request. It may be called from any thread.
  void close_if_idle();
  /// make_way ends the connection, in favour of a new client, if it waits for a request or reads a head. A begun head
  /// is answered with 503 unless the connection is to be closed `at_once`. It may be called from any thread.
  void make_way(bool at_once);
  /// abort closes the connection at once. It may be called from any thread.
  void abort();

  /// roster_entry returns the entry that links the connection into the server's roster.
  Roster::Entry &roster_entry() { return roster_entry_; }

 private:
  using State = ConnectionState;
  using Step = void (Connection::*)();
  /// Alarm is a timer that calls `step` once. Arming it again replaces the pending step.
  struct Alarm {
    explicit Alarm(const io::Executor &strand) : timer(strand) {}
    io::Timer timer;
    std::uint64_t epoch = 0;  // incremented by each arming; handlers with an older value do nothing
    bool armed = false;
  };

  void await_proxy_header();
  void read_more_proxy_header();
  void read_proxy_header();
  void take_proxy_header(const ProxyHeader &header);
  void give_up_proxy_header();
  void set_client(Client client);
  void release_client();
  std::optional<Trouble> take_forwarded_client();
  void refuse_for(Trouble reason);
  void begin();
  void shake_hands(Step next);
  void await_handshake(Step next);
  void continue_handshake(Step next);
  void handshake_failed();
  void refuse_client();
  void next_request();
  void begin_head();
  void wait_idle();
  void leave_idle();
  void read_head();
  void begin_entry(std::string line);
  void begin_unread_entry();
  std::string who() const;
  void head_too_large();
  void begin_request(RequestHead head);
  void route();
  void read_body();
  void send_continue(std::size_t done);
  void body_lost();
  void submit();
  JobPtr make_job();
  void watch_client();
  void deliver(Reply reply);
  void deliver(hosts::ServiceAnswer answered);
  void answer_failure();
  void fail(const std::string &reason);

  void refuse(const Refusal &refusal);
  void answer_text(int status, std::string_view text);
  void answer(const hosts::Head &head, std::vector<hosts::Piece> pieces);
  void release_request();
  SpillBudget::Share open_share();
  void refuse_room();
  void send_some();
  void await_writable();
  void sending_failed();
  void note_sending();
  void check_client();
  void check_client_after(Duration time);
  void resume_checks();
  void await_acknowledgement();
  void acknowledged(io::Clock::time_point since);
  void may_make_way(io::Clock::time_point since);
  std::int64_t unacknowledged();
  std::int64_t taken();
  bool has_answer();
  void sent();
  void log_request();

  void linger();
  void linger_later();
  void discard();
  void end_of_input();
  void close();

  void enter(State state);
  void read_more(std::size_t most, Step next, Step ended);
  void receive(std::size_t most, Step next, Step ended);
  void arm(Alarm &alarm, Duration time, Step step);
  void disarm(Alarm &alarm);
  void give_up_handshake();
  void give_up_head();
  void give_up_body();
  void give_up_sending(Trouble reason);
  template <typename Handler>
  auto on_strand(Handler handler);

  Server &server_;
  io::Socket socket_;
  Transport transport_;
  Alarm limit_alarm_;                       // time limit of the current state
  std::atomic<State> state_ = State::idle;  // written on the strand only; also read by other threads
  std::uint64_t epoch_ = 0;  // incremented by each change of state; handlers with an older value do nothing
  Roster::Entry roster_entry_;
  io::Clock::time_point last_sent_ = io::Clock::now();
  const std::uint64_t number_;
  const bool unix_;  // the socket is a Unix socket
  std::string client_;
  ClientKey client_key_;
  std::unique_ptr<Client> proxy_;           // the proxy, if the connection is from a trusted one; it names clients
  std::string input_;                       // bytes received and not yet parsed
  bool first_ = true;                       // no request has been answered yet
  bool keep_ = false;                       // keep the connection open after the current answer
  bool unread_ = false;                     // the request has a body that has not been read
  Trouble refusal_ = Trouble::turned_away;  // why the client is turned away
  bool waits_ = false;  // may make way: the client has its answers and has not sent the next request completely
  bool ended_ = false;  // the client has shut down its sending side; set while lingering

  // Progress of the client in taking its answers, checked in every state while bytes are unacknowledged.
  WriteDeadline deadline_;
  SendRate send_rate_;
  Alarm check_alarm_;
  Duration check_interval_{};
  bool was_blocked_ = false;  // the socket has blocked during the current answer

  // The current request.
  HeadReader reader_;
  RequestHead head_;
  Target target_;
  hosts::ServiceRequest request_;
  std::optional<Sender> sender_;
  std::string id_;  // of the current request, or of the last one
  AccessEntry entry_;
  io::Clock::time_point answered_at_;   // when there was an answer
  ClosedBy closer_ = ClosedBy::server;  // the reason for closing the connection, if it is closed now
  bool logged_ = true;
};

}  // namespace rdm::rdmd

#endif
