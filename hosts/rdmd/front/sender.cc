// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/sender.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

namespace rdm::rdmd {
namespace {

constexpr std::int64_t send_quantum = 1 << 20;
constexpr std::int64_t kept_in_memory = 4096;

}  // namespace

Sender::Sender(std::string head, std::vector<hosts::Piece> pieces, SpillBudget::Share share)
    : pieces_(std::move(pieces)), share_(std::move(share)), head_size_(static_cast<std::int64_t>(head.size())) {
  pieces_.insert(pieces_.begin(), hosts::Piece{std::move(head), nullptr, 0, head_size_});
}

std::int64_t Sender::send_piece(Transport &transport) {
  const hosts::Piece &piece = pieces_[current_];
  const auto rest = static_cast<std::size_t>(std::min(piece.length - done_, send_quantum));
  if (piece.file) return transport.send_file(piece.file->get(), piece.offset + done_, rest);
  return transport.send({piece.bytes.data() + done_, rest}, current_ + 1 < pieces_.size());
}

void Sender::advance(std::int64_t count) {
  sent_ += count;
  done_ += count;
  if (done_ < pieces_[current_].length) return;
  // Free each piece once it is sent: a slow client occupies memory only for unsent pieces.
  pieces_[current_] = hosts::Piece{};
  ++current_;
  done_ = 0;
}

bool Sender::spill() {
  bool within = true;
  for (std::size_t i = current_; i < pieces_.size(); ++i) within = spill_piece(i, i == current_ ? done_ : 0) && within;
  return within;
}

/// spill_piece returns false if the answer may take no more room.
bool Sender::spill_piece(std::size_t index, std::int64_t done) {
  const std::int64_t rest = pieces_[index].length - done;
  if (pieces_[index].file || rest < kept_in_memory) return true;
  if (!share_.grow(rest)) return false;
  hosts::OutputQueue file(0);
  const std::string_view bytes = std::string_view(pieces_[index].bytes).substr(static_cast<std::size_t>(done));
  if (file.append(bytes) < bytes.size()) {
    share_.shrink(rest);
    return true;
  }
  pieces_[index] = std::move(file.take().front());
  if (index == current_) done_ = 0;
  return true;
}

Sender::State Sender::send(Transport &transport) {
  const std::int64_t stop = sent_ + send_quantum;
  while (current_ < pieces_.size()) {
    if (sent_ >= stop) return State::more;
    const std::int64_t put = send_piece(transport);
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
