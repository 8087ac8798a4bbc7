// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/sender.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

namespace rdm::rdmd {
namespace {

constexpr std::int64_t send_quantum = 1 << 20;

/// copy_piece copies bytes of a piece from `offset` on. Returns their number, which is less than the size of `to` only
/// if a file is too short, or -1.
ssize_t copy_piece(const hosts::Piece &piece, std::int64_t offset, std::span<char> to) {
  if (piece.file) return ::pread(piece.file->get(), to.data(), to.size(), piece.offset + offset);
  return static_cast<ssize_t>(piece.bytes.copy(to.data(), to.size(), static_cast<std::size_t>(offset)));
}

}  // namespace

Sender::Sender(std::string head, std::vector<hosts::Piece> pieces, SpillBudget::Share share)
    : pieces_(std::move(pieces)), share_(std::move(share)), head_size_(static_cast<std::int64_t>(head.size())) {
  pieces_.insert(pieces_.begin(), hosts::Piece{std::move(head), nullptr, 0, head_size_});
}

std::int64_t Sender::send_file(Transport &transport) const {
  const hosts::Piece &piece = pieces_[current_];
  const auto rest = static_cast<std::size_t>(std::min(piece.length - done_, send_quantum));
  return transport.send_file(piece.file->get(), piece.offset + done_, rest);
}

/// send_bytes sends the pieces up to the next file, or the first of them, by one system call.
std::int64_t Sender::send_bytes(Transport &transport) const {
  std::array<std::string_view, 8> parts;
  std::size_t count = 0, next = current_;
  for (; next < pieces_.size() && !pieces_[next].file && count < parts.size(); ++next, ++count)
    parts[count] = std::string_view(pieces_[next].bytes).substr(count == 0 ? static_cast<std::size_t>(done_) : 0);
  return transport.send_parts(std::span(parts).first(count), next < pieces_.size());
}

/// fill_record copies the next bytes into `record` and returns their number, or -1 if a file cannot be read. Files are
/// left to send_file if `only_bytes`.
std::int64_t Sender::fill_record(std::span<char> record, bool only_bytes) const {
  std::size_t filled = 0;
  std::int64_t done = done_;
  for (std::size_t i = current_; i < pieces_.size() && filled < record.size(); ++i, done = 0) {
    const hosts::Piece &piece = pieces_[i];
    if (piece.file && only_bytes) break;
    const auto wanted = std::min(static_cast<std::size_t>(piece.length - done), record.size() - filled);
    const ssize_t got = copy_piece(piece, done, record.subspan(filled, wanted));
    if (got < 0 && filled == 0) return got;
    filled += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    if (got < static_cast<ssize_t>(wanted)) break;
  }
  return static_cast<std::int64_t>(filled);
}

/// send_record sends a record over several pieces: the same record again if the transport has not finished it.
std::int64_t Sender::send_record(Transport &transport) const {
  std::array<char, Transport::record_size> record;
  const std::int64_t filled = fill_record(record, transport.sends_files());
  return filled <= 0 ? filled : transport.send({record.data(), static_cast<std::size_t>(filled)}, false);
}

std::int64_t Sender::send_next(Transport &transport) {
  if (pieces_[current_].file && transport.sends_files()) return send_file(transport);
  return transport.is_encrypted() ? send_record(transport) : send_bytes(transport);
}

void Sender::advance(std::int64_t count) {
  sent_ += count;
  while (count > 0) {
    const std::int64_t step = std::min(count, pieces_[current_].length - done_);
    count -= step;
    done_ += step;
    if (done_ < pieces_[current_].length) return;
    // Free each piece once it is sent: a slow client occupies memory only for unsent pieces.
    pieces_[current_] = hosts::Piece{};
    ++current_;
    done_ = 0;
  }
}

Sender::State Sender::send(Transport &transport) {
  const std::int64_t stop = sent_ + send_quantum;
  while (current_ < pieces_.size()) {
    if (sent_ >= stop) return State::more;
    const std::int64_t put = send_next(transport);
    if (put > 0)
      advance(put);
    else if (put < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
      return State::blocked;
    else if (put == 0 || errno != EINTR)
      return State::failed;
  }
  return State::done;
}

}  // namespace rdm::rdmd
