// SPDX-License-Identifier: MIT
#include "speed/stalled_readers.h"

#include <poll.h>

#include "site.h"

namespace rdm::bench {

StalledReaders::StalledReaders(int port, const std::string &target, std::size_t count) {
  constexpr int receive_buffer = 4096;
  for (std::size_t i = 0; i < count; ++i) {
    sockets_.emplace_back(port, receive_buffer);
    if (!send_all(sockets_.back().get(), get_request(target))) fail("a client cannot connect");
  }
}

void StalledReaders::await_answers(std::chrono::seconds time) const {
  const auto end = std::chrono::steady_clock::now() + time;
  for (const Socket &socket : sockets_) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    pollfd waiting{socket.get(), POLLIN, 0};
    if (left <= 0 || ::poll(&waiting, 1, static_cast<int>(left)) <= 0) fail("an answer does not begin");
  }
}

}  // namespace rdm::bench
