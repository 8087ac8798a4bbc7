// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/proxy_header_reader.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string>
#include <variant>

namespace rdm::rdmd {

void ProxyHeaderReader::begin(Duration limit) {
  channel_.limit(limit, [this] { owner_.proxy_header_bad(); });
  channel_.let_make_way(io::Clock::now());
  await();
}

void ProxyHeaderReader::await() {
  channel_.await(
      io::Socket::wait_read, [this] { read(); }, [this] { owner_.proxy_lost(); });
}

void ProxyHeaderReader::read() {
  std::array<char, proxy_header_limit> block;
  const int socket = channel_.descriptor();
  const auto peeked = ::recv(socket, block.data(), block.size(), MSG_PEEK | MSG_DONTWAIT);
  if (peeked < 0 && (errno == EAGAIN || errno == EINTR)) return await();
  if (peeked <= 0) return owner_.proxy_lost();
  std::string &input = channel_.input();
  const std::size_t before = input.size();
  input.append(block.data(), static_cast<std::size_t>(peeked));
  const ProxyHeaderResult result = parse_proxy_header(input);
  if (std::holds_alternative<ProxyHeaderMalformed>(result)) return owner_.proxy_header_bad();
  const auto *header = std::get_if<ProxyHeader>(&result);
  ::recv(socket, block.data(), (header != nullptr ? header->size : input.size()) - before, MSG_DONTWAIT);
  if (header == nullptr) return await();
  channel_.drop_input();
  channel_.lift_limit();
  owner_.proxy_header_read(*header);
}

}  // namespace rdm::rdmd
