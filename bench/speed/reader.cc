// SPDX-License-Identifier: MIT
#include "speed/reader.h"

#include <sys/socket.h>

#include <cerrno>
#include <fstream>

#include "site.h"
#include "speed/answer_head.h"

namespace rdm::bench {
namespace {

bool is_open(int fd) {
  char byte = 0;
  return fd >= 0 && ::recv(fd, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

}  // namespace

void Reader::connect() {
  if (is_open(socket_.get())) return;
  socket_ = Socket(port_);
  if (socket_.get() < 0) fail("nothing listens on port " + std::to_string(port_));
}

std::string_view Reader::receive() {
  const ssize_t got = ::recv(socket_.get(), buffer_.get(), buffer_size, 0);
  if (got <= 0) fail("the connection ends within an answer");
  return {buffer_.get(), static_cast<std::size_t>(got)};
}

std::uint64_t Reader::ask(const std::string &target, const Sink &sink) {
  if (!send_all(socket_.get(), get_request(target))) fail("cannot send a request");
  std::string start;
  std::optional<AnswerHead> head;
  while (!head) head = parse_head(start += receive());
  if (head->status != 200) fail("the answer to " + target + " begins " + start.substr(0, 200));
  std::string_view piece = std::string_view(start).substr(head->size);
  for (std::uint64_t got = 0;;) {
    if (sink) sink(piece);
    if ((got += piece.size()) >= head->body) return head->body;
    piece = receive();
  }
}

void Reader::save(const std::string &target, const std::string &path) {
  std::ofstream file(path, std::ios::binary);
  connect();
  ask(target, [&](std::string_view piece) { file.write(piece.data(), static_cast<std::streamsize>(piece.size())); });
  if (!file.flush()) fail("cannot write " + path);
}

}  // namespace rdm::bench
