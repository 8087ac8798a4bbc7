// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/channel.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include <boost/asio/post.hpp>

namespace rdm::rdmd {
namespace {

using boost::system::error_code;

/// How many unsent bytes beyond the client's window the kernel queues. Without this limit the kernel queues megabytes
/// for a client that does not read; it does not slow down one that reads.
using UnsentLimit = boost::asio::detail::socket_option::integer<IPPROTO_TCP, TCP_NOTSENT_LOWAT>;
constexpr int unsent_limit = 131072;

/// is_broken returns true if the connection is reset or shut down in both directions (POLLERR, POLLHUP). A client that
/// has only shut down its sending side still waits for its answer.
bool is_broken(int socket) {
  struct pollfd state {
    socket, 0, 0
  };
  return ::poll(&state, 1, 0) > 0;
}

}  // namespace

bool has_hung_up(int socket) {
  struct pollfd state {
    socket, POLLRDHUP, 0
  };
  return ::poll(&state, 1, 0) > 0;
}

Channel::Channel(Owner &owner, io::Socket socket, SslPtr tls, Roster &roster)
    : owner_(owner),
      socket_(std::move(socket)),
      transport_(socket_.native_handle(), std::move(tls)),
      roster_(roster),
      limit_(socket_.get_executor()),
      watch_alarm_(socket_.get_executor()) {
  entry_.state = &state_;
  error_code ignored;
  socket_.native_non_blocking(true, ignored);
  socket_.set_option(io::Tcp::no_delay(true), ignored);
  socket_.set_option(UnsentLimit(unsent_limit), ignored);
}

/* ---- The state ---- */

void Channel::enter(State state) {
  ++epoch_;
  state_ = state;
  if (std::exchange(may_make_way_, false)) roster_.set_busy(entry_);
}

void Channel::limit(Duration time, Step late) { limit_.arm(time, keeper(), std::move(late)); }

void Channel::let_make_way(io::Clock::time_point since) {
  if (!std::exchange(may_make_way_, true)) roster_.set_waiting(entry_, since);
}

/* ---- Waiting ---- */

std::shared_ptr<void> Channel::keeper() const { return owner_.shared_from_this(); }

/// guarded returns a completion handler that keeps the connection alive and does nothing if the state has changed
/// since.
template <typename Handler>
auto Channel::guarded(Handler handler) {
  return [self = keeper(), this, epoch = epoch_, handler = std::move(handler)](auto... results) {
    if (epoch == epoch_) handler(results...);
  };
}

void Channel::post(Step step) { boost::asio::post(executor(), guarded(std::move(step))); }

void Channel::await(io::Socket::wait_type event, Step ready, Step failed) {
  socket_.async_wait(transport_.wanted(event), guarded([ready = std::move(ready), failed = std::move(failed)](
                                                           const error_code &error) { error ? failed() : ready(); }));
}

void Channel::watch(Step broken) {
  broken_ = std::move(broken);
  watch_alarm_.arm(watch_delay, keeper(), [this] { begin_watching(); });
}

void Channel::begin_watching() {
  watches_ = true;
  socket_.async_wait(io::Socket::wait_error,
                     [weak = owner_.weak_from_this(), this, epoch = epoch_](const error_code &) {
                       const auto self = weak.lock();
                       if (self && epoch == epoch_ && is_broken(descriptor())) broken_();
                     });
}

void Channel::stop_watching() {
  watch_alarm_.disarm();
  if (std::exchange(watches_, false)) cancel();
}

void Channel::read(std::size_t most, const Step &next, const Step &ended) {
  // Not by post and await: their steps would take memory for what this one captures.
  if (transport_.has_input()) return boost::asio::post(executor(), guarded([=, this] { receive(most, next, ended); }));
  socket_.async_wait(transport_.wanted(io::Socket::wait_read),
                     guarded([=, this](const error_code &error) { error ? ended() : receive(most, next, ended); }));
}

void Channel::receive(std::size_t most, const Step &next, const Step &ended) {
  std::array<char, 16384> block;
  const ssize_t count = transport_.receive({block.data(), std::min(most, block.size())});
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return read(most, next, ended);
  if (count <= 0) return ended();
  input_.append(block.data(), static_cast<std::size_t>(count));
  next();
}

void Channel::cancel() {
  error_code ignored;
  socket_.cancel(ignored);
}

/* ---- The socket ---- */

std::int64_t Channel::unacknowledged() {
  int count = 0;
  ::ioctl(descriptor(), SIOCOUTQ, &count);
  return count;
}

bool Channel::is_reset() {
  struct tcp_info info {};
  socklen_t size = sizeof info;
  return ::getsockopt(descriptor(), IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && info.tcpi_state == TCP_CLOSE;
}

void Channel::end() {
  lift_limit();
  watch_alarm_.disarm();
  // An answer that was cut off does not end with close_notify: its client must not take it for a whole one.
  if (state_ == State::idle && transport_.is_encrypted()) transport_.shut_down();
  enter(State::closed);
}

void Channel::close() {
  error_code ignored;
  socket_.close(ignored);
}

void Channel::discard_unsent() {
  error_code ignored;
  // SO_LINGER with timeout 0.
  socket_.set_option(boost::asio::socket_base::linger(true, 0), ignored);
}

}  // namespace rdm::rdmd
