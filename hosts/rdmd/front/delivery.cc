// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/delivery.h"

#include <utility>

namespace rdm::rdmd {

void Delivery::set(std::string head, std::vector<hosts::Piece> pieces, SpillBudget::Share share) {
  answer_.emplace(std::move(head), std::move(pieces), std::move(share));
  set_at_ = io::Clock::now();
  was_blocked_ = false;
  acknowledgement_.begin();
}

void Delivery::send() {
  // Take the time before sending, so that connections are ordered by when they were answered, not by how threads are
  // scheduled.
  acknowledgement_.note_send();
  switch (answer_->send(channel_.transport())) {
    case Sender::State::done:
      return owner_.delivered();
    case Sender::State::more:
      return channel_.post([this] { send(); });
    case Sender::State::blocked:
      return await();
    case Sender::State::failed:
      return owner_.delivery_failed();
    case Sender::State::changed:
      return owner_.delivery_spoilt();
  }
}

void Delivery::await() {
  if (!std::exchange(was_blocked_, true)) acknowledgement_.check_regularly();
  channel_.await(
      io::Socket::wait_write, [this] { send(); }, [this] { owner_.delivery_failed(); });
}

std::optional<Delivery::Progress> Delivery::progress() const {
  if (!answer_) return std::nullopt;
  return Progress{answer_->body_sent(), io::Clock::now() - set_at_};
}

}  // namespace rdm::rdmd
