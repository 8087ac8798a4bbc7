// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_reader.h"

#include <cerrno>
#include <string_view>
#include <utility>
#include <variant>

namespace rdm::rdmd {
namespace {

constexpr std::string_view continue_line = "HTTP/1.1 100 Continue\r\n\r\n";

/// Bytes read at a time while reading a head. Bytes after the request are kept until its answer is sent.
constexpr std::size_t head_block = 4096;

HeadLimits head_limits(const Limits &limits) { return {limits.head_bytes, limits.target_bytes, limits.head_fields}; }

}  // namespace

RequestReader::RequestReader(Channel &channel, Acknowledgement &acknowledgement, const Limits &limits, Owner &owner)
    : channel_(channel),
      acknowledgement_(acknowledgement),
      limits_(limits),
      owner_(owner),
      head_(head_limits(limits)) {}

void RequestReader::read_next() {
  head_ = HeadReader(head_limits(limits_));
  if (skip_empty_lines(channel_.input())) {
    acknowledgement_.resume();
    return begin_head();
  }
  channel_.input().shrink_to_fit();
  channel_.enter(ConnectionState::idle);
  wait_idle();
  acknowledgement_.await();
}

void RequestReader::wait_idle() {
  channel_.read(
      head_block, [this] { leave_idle(); }, [this] { owner_.input_ended(); });
}

/// leave_idle begins a request unless the input consists of empty lines; those do not extend the idle timeout.
void RequestReader::leave_idle() {
  if (!skip_empty_lines(channel_.input())) return wait_idle();
  begin_head();
}

void RequestReader::begin_head() {
  channel_.enter(ConnectionState::head);
  channel_.limit(limits_.header, [this] { owner_.head_late(); });
  read_head();
}

void RequestReader::read_head() {
  HeadResult result = head_.take(channel_.input());
  if (auto *const head = std::get_if<RequestHead>(&result)) return owner_.head_read(std::move(*head));
  if (const auto *const refusal = std::get_if<Refusal>(&result)) return owner_.head_refused(*refusal);
  if (!channel_.may_make_way() && acknowledgement_.is_complete()) channel_.let_make_way(io::Clock::now());
  channel_.read(
      head_block, [this] { read_head(); }, [this] { owner_.input_ended(); });
}

void RequestReader::read_body(std::size_t length, bool invited) {
  body_length_ = length;
  channel_.enter(ConnectionState::body);
  channel_.limit(limits_.body, [this] { owner_.body_late(); });
  if (!invited || !channel_.input().empty()) return read_body();
  acknowledgement_.begin();
  send_continue(0);
}

/// send_continue sends the rest of the line "100 Continue" and then reads the body. `done` bytes are sent already.
void RequestReader::send_continue(std::size_t done) {
  const ssize_t put = channel_.transport().send(continue_line.substr(done), false);
  if (put < 0 && errno != EAGAIN && errno != EINTR) return owner_.body_lost();
  if (put > 0) done += static_cast<std::size_t>(put);
  if (done < continue_line.size())
    return channel_.await(
        io::Socket::wait_write, [this, done] { send_continue(done); }, [this] { owner_.body_lost(); });
  acknowledgement_.resume();
  read_body();
}

void RequestReader::read_body() {
  std::string &input = channel_.input();
  if (input.size() < body_length_)
    return channel_.read(
        body_length_ - input.size(), [this] { read_body(); }, [this] { owner_.body_lost(); });
  std::string following = input.substr(body_length_);
  input.resize(body_length_);
  owner_.body_read(std::exchange(input, std::move(following)));
}

}  // namespace rdm::rdmd
