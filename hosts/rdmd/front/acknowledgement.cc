// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/acknowledgement.h"

#include <algorithm>

namespace rdm::rdmd {
namespace {

using State = ConnectionState;

/// An idle connection with at most this many unacknowledged bytes may make way: the acknowledgement of a short answer
/// may be on its way.
constexpr std::int64_t small_remainder = 16384;

}  // namespace

Acknowledgement::Acknowledgement(Channel &channel, const Limits &limits, bool is_unix, Owner &owner)
    : channel_(channel),
      owner_(owner),
      is_unix_(is_unix),
      deadline_(limits.write),
      rate_(limits.send_rate, limits.write * send_rate_slack),
      alarm_(channel.executor()) {}

bool Acknowledgement::is_complete() {
  return channel_.entry().turned_away || channel_.unacknowledged() <= (channel_.state() == State::lingering ? 1 : 0);
}

/// taken returns how many bytes count towards the minimum rate: those that the client has acknowledged. On a Unix
/// socket the kernel cannot tell, so what it has taken counts.
std::int64_t Acknowledgement::taken() {
  return channel_.transport().sent() - (is_unix_ ? 0 : channel_.unacknowledged());
}

void Acknowledgement::begin() {
  const std::int64_t sent = channel_.transport().sent();
  const auto now = io::Clock::now();
  deadline_.begin(sent - channel_.unacknowledged(), sent, now);
  rate_.begin(taken(), sent, now);
}

void Acknowledgement::check_after(Duration time) {
  interval_ = time;
  alarm_.arm(time, channel_.keeper(), [this] { check(); });
}

void Acknowledgement::resume() {
  if (!is_checking() && !is_complete()) check_regularly();
}

/// await checks after 1 ms first, because most clients acknowledge at once, and then less often.
void Acknowledgement::await() {
  if (is_complete()) return complete(last_sent_);
  // A small remainder may be left to the kernel if another client needs the connection.
  if (channel_.state() == State::idle && channel_.unacknowledged() <= small_remainder)
    channel_.let_make_way(last_sent_);
  check_after(Duration(1));
}

/// check runs in every state, so a client that keeps sending requests is found too slow as well.
void Acknowledgement::check() {
  const auto now = io::Clock::now();
  const State state = channel_.state();
  const bool waits = state == State::idle || state == State::lingering;
  if (waits && channel_.is_reset()) return owner_.client_reset();
  if (state != State::sending && is_complete()) return waits ? complete(now) : void();
  if (deadline_.expired(channel_.transport().sent() - channel_.unacknowledged(), now))
    return owner_.client_too_slow(Trouble::unread);
  if (rate_.too_slow(taken(), now)) return owner_.client_too_slow(Trouble::too_slow);
  check_after(state == State::sending ? deadline_.interval() : std::min(interval_ * 4, deadline_.interval()));
}

void Acknowledgement::complete(io::Clock::time_point since) {
  stop();
  owner_.acknowledged(since);
}

}  // namespace rdm::rdmd
