// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/lingering.h"

#include <cerrno>
#include <cstdint>

namespace rdm::rdmd {

void Lingering::begin() {
  if (channel_.transport().shut_down() != 0) return errno == EAGAIN ? begin_later() : owner_.lingering_ended();
  channel_.enter(ConnectionState::lingering);
  acknowledgement_.await();
  discard();
}

/// begin_later waits for the socket. The write deadline is running.
void Lingering::begin_later() {
  if (!acknowledgement_.is_checking()) acknowledgement_.check_regularly();
  channel_.await(
      io::Socket::wait_write, [this] { begin(); }, [this] { owner_.lingering_ended(); });
}

void Lingering::discard() {
  channel_.drop_input();
  channel_.read(
      SIZE_MAX, [this] { discard(); }, [this] { input_ended(); });
}

void Lingering::input_ended() {
  if (channel_.is_reset() || acknowledgement_.is_complete()) return owner_.lingering_ended();
  if (channel_.state() != ConnectionState::lingering) return begin();
  input_ended_ = true;
}

void Lingering::acknowledged() {
  if (input_ended_) return owner_.lingering_ended();
  channel_.limit(limit_, [this] { owner_.lingering_ended(); });
}

}  // namespace rdm::rdmd
