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

}  // namespace

Sender::Sender(std::string head, std::vector<hosts::Piece> pieces, SpillBudget::Share share)
    : pieces_(std::move(pieces)), share_(std::move(share)), head_size_(static_cast<std::int64_t>(head.size())) {
  pieces_.insert(pieces_.begin(), hosts::Piece{std::move(head), nullptr, 0, head_size_});
  // Here, because nothing may fail once the head is sent.
  if (std::any_of(pieces_.begin(), pieces_.end(), [](const hosts::Piece &piece) { return piece.records.has_value(); }))
    cursor_ = std::make_unique<hosts::RecordCursor>(hosts::RecordSlice{});
}

/// begin_piece prepares the current piece.
void Sender::begin_piece() {
  done_ = 0;
  if (current_ < pieces_.size() && is_slice()) *cursor_ = hosts::RecordCursor(*pieces_[current_].records);
}

std::int64_t Sender::send_file(Transport &transport) const {
  const hosts::Piece &piece = pieces_[current_];
  const auto rest = static_cast<std::size_t>(std::min(piece.length - done_, send_quantum));
  return transport.send_file(piece.file->get(), piece.offset + done_, rest);
}

/// send_slice sends records from the mapping of their file. What was sent counts only if the file is still as it was.
std::int64_t Sender::send_slice(Transport &transport) {
  std::array<iovec, hosts::RecordCursor::window_size> vectors;
  const std::span parts = std::span(vectors).first(cursor_->gather(vectors));
  if (parts.empty()) return send_copy(transport);
  std::size_t size = 0;
  for (const iovec &part : parts) size += part.iov_len;
  const bool more = current_ + 1 < pieces_.size() || static_cast<std::int64_t>(size) < cursor_->left();
  const ssize_t put = transport.send_vectors(parts, more);
  if (put < 0 && errno == EFAULT) errno = ESTALE;
  return put > 0 && !cursor_->confirm() ? -1 : put;
}

/// send_copy reads and sends records of a file without a mapping.
std::int64_t Sender::send_copy(Transport &transport) {
  std::array<char, 65536> block;
  const ssize_t got = cursor_->read(block);
  return got < 0 ? got : transport.send({block.data(), static_cast<std::size_t>(got)}, false);
}

/// send_bytes sends the pieces up to the next file or slice, or the first of them, by one system call.
std::int64_t Sender::send_bytes(Transport &transport) const {
  std::array<std::string_view, 8> parts;
  std::size_t count = 0, next = current_;
  for (; next < pieces_.size() && pieces_[next].is_bytes() && count < parts.size(); ++next, ++count)
    parts[count] = std::string_view(pieces_[next].bytes).substr(count == 0 ? static_cast<std::size_t>(done_) : 0);
  return transport.send_parts(std::span(parts).first(count), next < pieces_.size());
}

/// copy_piece copies bytes of a piece from `offset` on, of a slice from the position on. Returns their number, or -1.
/// It is less than the size of `to` if a file is too short, or a slice has many small records.
ssize_t Sender::copy_piece(std::size_t index, std::int64_t offset, std::span<char> to) {
  const hosts::Piece &piece = pieces_[index];
  if (piece.records) return cursor_->read(to);
  if (piece.file) return ::pread(piece.file->get(), to.data(), to.size(), piece.offset + offset);
  return static_cast<ssize_t>(piece.bytes.copy(to.data(), to.size(), static_cast<std::size_t>(offset)));
}

/// fill_record copies the next bytes into `record` and returns their number, or -1 if a file cannot be read. Files are
/// left to send_file if `only_bytes`, and a slice begins a record.
std::int64_t Sender::fill_record(std::span<char> record, bool only_bytes) {
  std::size_t filled = 0;
  std::int64_t done = done_;
  for (std::size_t i = current_; i < pieces_.size() && filled < record.size(); ++i, done = 0) {
    const hosts::Piece &piece = pieces_[i];
    if ((piece.file && only_bytes) || (piece.records && i > current_)) break;
    const auto wanted = std::min(static_cast<std::size_t>(piece.length - done), record.size() - filled);
    const ssize_t got = copy_piece(i, done, record.subspan(filled, wanted));
    if (got < 0 && filled == 0) return got;
    filled += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    if (got < static_cast<ssize_t>(wanted)) break;
  }
  return static_cast<std::int64_t>(filled);
}

/// send_record sends a record over several pieces: the same record again if the transport has not finished it.
std::int64_t Sender::send_record(Transport &transport) {
  std::array<char, Transport::record_size> record;
  const std::int64_t filled = fill_record(record, transport.sends_files());
  return filled <= 0 ? filled : transport.send({record.data(), static_cast<std::size_t>(filled)}, false);
}

std::int64_t Sender::send_next(Transport &transport) {
  if (pieces_[current_].file && transport.sends_files()) return send_file(transport);
  if (transport.is_encrypted()) return send_record(transport);
  return is_slice() ? send_slice(transport) : send_bytes(transport);
}

void Sender::advance(std::int64_t count) {
  sent_ += count;
  while (count > 0) {
    const std::int64_t step = std::min(count, pieces_[current_].length - done_);
    count -= step;
    done_ += step;
    if (is_slice()) cursor_->skip(step);
    if (done_ < pieces_[current_].length) return;
    // Free each piece once it is sent: a slow client occupies memory only for unsent pieces.
    pieces_[current_] = hosts::Piece{};
    ++current_;
    begin_piece();
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
      return put != 0 && errno == ESTALE ? State::changed : State::failed;
  }
  return State::done;
}

}  // namespace rdm::rdmd
