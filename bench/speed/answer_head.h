// SPDX-License-Identifier: MIT
/// The head of an HTTP answer: what a client must know to drop the body. Header only.
#ifndef BENCH_SPEED_ANSWER_HEAD_H
#define BENCH_SPEED_ANSWER_HEAD_H

#include <strings.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace rdm::bench {

/// AnswerHead is the head of an answer: its status, its size with the empty line, and the size of the body.
struct AnswerHead {
  int status = 0;
  std::size_t size = 0;
  std::uint64_t body = 0;
  bool operator==(const AnswerHead &) const = default;
};

/// parse_head returns the head at the start of `bytes`, or nothing if its end is not there yet. A head without
/// Content-Length has status 0, because its client cannot find the end of the body.
inline std::optional<AnswerHead> parse_head(std::string_view bytes) {
  static constexpr std::string_view length = "\r\nContent-Length: ";
  const std::size_t end = bytes.find("\r\n\r\n");
  if (end == std::string_view::npos) return {};
  AnswerHead head{0, end + 4, 0};
  for (std::size_t at = bytes.find("\r\n"); at < end; at = bytes.find("\r\n", at + 2)) {
    if (::strncasecmp(bytes.data() + at, length.data(), length.size()) != 0) continue;
    std::from_chars(bytes.data() + at + length.size(), bytes.data() + end, head.body);
    std::from_chars(bytes.data() + bytes.find(' ') + 1, bytes.data() + end, head.status);
  }
  return head;
}

}  // namespace rdm::bench

#endif
