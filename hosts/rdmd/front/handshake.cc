// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/handshake.h"

#include <cerrno>
#include <utility>

namespace rdm::rdmd {

void Handshake::begin(Duration limit, Step done) {
  if (channel_.transport().is_ready()) return done();
  done_ = std::move(done);
  channel_.enter(ConnectionState::handshake);
  channel_.let_make_way(io::Clock::now());
  channel_.limit(limit, [this] { owner_.handshake_failed(Failure::late); });
  await();
}

void Handshake::await() {
  channel_.await(
      io::Socket::wait_read, [this] { proceed(); }, [this] { owner_.handshake_failed(Failure::lost); });
}

void Handshake::proceed() {
  acknowledgement_.begin();
  if (channel_.transport().handshake() != 0) return errno == EAGAIN ? await() : fail();
  channel_.lift_limit();
  done_();
}

void Handshake::fail() {
  if (!channel_.transport().got_plain_request()) return owner_.handshake_failed(Failure::refused);
  channel_.transport().become_plain();
  owner_.handshake_failed(Failure::plain);
}

}  // namespace rdm::rdmd
