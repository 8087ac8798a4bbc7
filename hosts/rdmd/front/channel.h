// SPDX-License-Identifier: MIT
/// The server's end of a connection: its socket, the bytes received and not yet used, its state, and the time limit of
/// that state.
///
/// The parts of a connection wait through its channel. Each waiting keeps the connection alive, and its step is dropped
/// if the connection has entered another state since. Unless stated otherwise, members run on the connection's strand.
#ifndef HOSTS_RDMD_FRONT_CHANNEL_H
#define HOSTS_RDMD_FRONT_CHANNEL_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "hosts/rdmd/front/alarm.h"
#include "hosts/rdmd/front/io.h"
#include "hosts/rdmd/front/roster.h"
#include "hosts/rdmd/front/transport.h"
#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {

class Channel {
 public:
  using Owner = std::enable_shared_from_this<Connection>;
  using State = ConnectionState;

  /// Takes the socket of a client, who speaks TLS if `tls` is not null. The channel is a member of `owner`.
  Channel(Owner &owner, io::Socket socket, SslPtr tls, Roster &roster);
  Channel(const Channel &) = delete;
  Channel &operator=(const Channel &) = delete;

  /* ---- The state ---- */

  /// state may be called from any thread.
  State state() const { return state_; }
  /// enter changes the state. The steps that wait are dropped, and the connection no longer may make way.
  void enter(State state);
  /// limit calls `late` after `time` unless lift_limit is called before. A change of state does not lift the limit.
  void limit(Duration time, Step late);
  void lift_limit() { limit_.disarm(); }
  /// let_make_way allows the connection to be ended in favour of a new client; it has waited for its client since
  /// `since`.
  void let_make_way(io::Clock::time_point since);
  bool may_make_way() const { return may_make_way_; }
  /// entry links the connection into the server's roster.
  Roster::Entry &entry() { return entry_; }

  /* ---- Waiting ---- */

  /// post calls `step` after the handlers that are ready now. It may be called from any thread before there are steps.
  void post(Step step);
  /// await calls `ready` after the socket has become ready for `event`, or for what TLS needs instead; `failed` if
  /// waiting failed.
  void await(io::Socket::wait_type event, Step ready, Step failed);
  /// watch calls `broken` when the client resets the connection, until stop_watching. It begins after watch_delay: most
  /// requests are answered by then. From then on it does not keep the connection alive.
  void watch(Step broken);
  void stop_watching();
  static constexpr Duration watch_delay{100};
  /// read waits for input, appends up to `most` bytes of it to input() and calls `next`, or `ended` at the end of input
  /// or on an error.
  void read(std::size_t most, const Step &next, const Step &ended);
  /// cancel ends all waiting for the socket.
  void cancel();

  /* ---- The socket ---- */

  Transport &transport() { return transport_; }
  std::string &input() { return input_; }
  /// drop_input drops the input and frees its memory.
  void drop_input() { std::string().swap(input_); }
  /// executor returns the strand. It may be called from any thread.
  io::Executor executor() { return socket_.get_executor(); }
  int descriptor() { return socket_.native_handle(); }
  /// keeper returns a pointer that keeps the connection alive.
  std::shared_ptr<void> keeper() const;
  /// unacknowledged returns the number of bytes that the kernel holds until the client acknowledges them. A FIN counts
  /// as one byte. For a Unix socket it is the kernel's memory, which exceeds the bytes in it.
  std::int64_t unacknowledged();
  /// is_reset returns true if the TCP state of the connection is CLOSE.
  bool is_reset();

  /// end enters the state `closed`; the client of an idle connection gets close_notify by TLS.
  void end();
  /// close closes the socket.
  void close();
  /// discard_unsent makes close discard the unsent bytes.
  void discard_unsent();

 private:
  template <typename Handler>
  auto guarded(Handler handler);
  void receive(std::size_t most, const Step &next, const Step &ended);
  void begin_watching();

  Owner &owner_;
  io::Socket socket_;
  Transport transport_;
  Roster &roster_;
  Roster::Entry entry_;
  std::atomic<State> state_ = State::idle;  // written on the strand only
  std::uint64_t epoch_ = 0;                 // incremented by each change of state
  Alarm limit_;
  Alarm watch_alarm_;
  bool watches_ = false;
  Step broken_;
  std::string input_;  // bytes received and not yet parsed
  bool may_make_way_ = false;
};

/// has_hung_up returns true if the client has closed the connection, or at least its sending side. It may be called
/// from any thread.
bool has_hung_up(int socket);

}  // namespace rdm::rdmd

#endif
