// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/acknowledgement.h"

#include <algorithm>

namespace rdm::rdmd {
namespace {

using State = ConnectionState;

/// An idle connection with at most this many unacknowledged bytes may make way: the acknowledgement of a short answer
/// may be on its way.
constexpr std::int64_t small_remainder = 16384;

/// How long after an answer the first check is. A client that acknowledges by its next request needs none.
constexpr Duration first_check{4};

}  // namespace

Acknowledgement::Acknowledgement(Channel &channel, const Limits &limits, bool is_unix, Owner &owner)
    : channel_(channel),
      owner_(owner),
      is_unix_(is_unix),
      deadline_(limits.write),
      rate_(limits.send_rate, limits.write * send_rate_slack),
      alarm_(channel.executor()) {}

/// remainder returns the number of bytes to be acknowledged, without the FIN.
std::int64_t Acknowledgement::remainder() {
  if (channel_.entry().turned_away) return 0;
  return channel_.unacknowledged() - (channel_.state() == State::lingering ? 1 : 0);
}

/// taken returns how many bytes count towards the minimum rate: those that the client has acknowledged. On a Unix
/// socket the kernel cannot tell, so what it has taken counts.
std::int64_t Acknowledgement::taken() {
  return channel_.transport().sent() - (is_unix_ ? 0 : channel_.unacknowledged());
}

void Acknowledgement::begin() {
  const std::int64_t sent = channel_.transport().sent(), acknowledged = sent - channel_.unacknowledged();
  const auto now = io::Clock::now();
  deadline_.begin(acknowledged, sent, now);
  rate_.begin(is_unix_ ? sent : acknowledged, sent, now);
}

void Acknowledgement::check_after(Duration time) {
  interval_ = time;
  alarm_.arm(time, channel_.keeper(), [this] { check(); });
}

void Acknowledgement::resume() {
  if (!is_checking() && !is_complete()) check_regularly();
}

/// await checks soon first, because most clients acknowledge at once, and then less often.
void Acknowledgement::await() {
  const std::int64_t rest = remainder();
  if (rest <= 0) return complete(last_sent_);
  // A small remainder may be left to the kernel if another client needs the connection.
  if (channel_.state() == State::idle && rest <= small_remainder) channel_.let_make_way(last_sent_);
  check_after(first_check);
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
