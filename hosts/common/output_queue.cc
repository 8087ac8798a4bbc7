// SPDX-License-Identifier: MIT
#include "hosts/common/output_queue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "qxapi/temporary_directory.h"
#include "qxapi/uninterrupted.h"
#include "qxapi/unlinked_file.h"

namespace rdm::hosts {
namespace {

/// write_at writes `bytes` at `offset` until pwrite() fails, and returns how many bytes were written.
std::size_t write_at(host_fd fd, std::string_view bytes, std::int64_t offset) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const auto at = offset + static_cast<std::int64_t>(done);
    const ssize_t put = uninterrupted([&] { return ::pwrite(fd, bytes.data() + done, bytes.size() - done, at); });
    if (put <= 0) break;
    done += static_cast<std::size_t>(put);
  }
  return done;
}

}  // namespace

std::size_t OutputQueue::append(std::string_view bytes) {
  // Once bytes are in the file, later bytes must follow there to keep the order.
  const std::size_t fits = spill_file_ ? 0 : std::min(bytes.size(), memory_left_);
  append_memory(bytes.substr(0, fits));
  const std::string_view rest = bytes.substr(fits);
  return fits + (rest.empty() ? 0 : spill(rest));
}

void OutputQueue::append_memory(std::string_view bytes) {
  if (bytes.empty()) return;
  // Room for the head of the answer, too.
  if (pieces_.empty()) pieces_.reserve(2);
  if (pieces_.empty() || !pieces_.back().is_bytes()) pieces_.emplace_back();
  Piece &piece = pieces_.back();
  piece.bytes.append(bytes);
  piece.length += static_cast<std::int64_t>(bytes.size());
  size_ += static_cast<std::int64_t>(bytes.size());
  memory_left_ -= bytes.size();
}

std::size_t OutputQueue::spill(std::string_view bytes) {
  if (!spill_file_) {
    auto file = std::make_shared<const HostFileGuard>(open_unlinked(named_temporary_directory(), "rdm-answer-"));
    if (!*file) return 0;
    spill_file_ = std::move(file);
  }
  const std::size_t put = write_at(spill_file_->get(), bytes, spilled_);
  const auto length = static_cast<std::int64_t>(put);
  if (put > 0 && !pieces_.empty() && pieces_.back().file == spill_file_)
    pieces_.back().length += length;
  else if (put > 0)
    pieces_.push_back(Piece{{}, spill_file_, spilled_, length});
  spilled_ += length;
  size_ += length;
  return put;
}

bool OutputQueue::append_file(host_fd fd, std::int64_t offset, std::int64_t length) {
  if (length <= 0) return true;
  auto copy = std::make_shared<const HostFileGuard>(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
  if (!*copy) return false;
  pieces_.push_back(Piece{{}, std::move(copy), offset, length});
  size_ += length;
  return true;
}

bool OutputQueue::append_slice(const host_slice &slice) {
  std::optional<RecordSlice> records = RecordSlice::of(slice);
  if (!records) return false;
  pieces_.push_back(Piece{{}, nullptr, 0, slice.length, std::move(records)});
  size_ += slice.length;
  return true;
}

std::vector<Piece> OutputQueue::take() {
  size_ = 0;
  spilled_ = 0;
  spill_file_.reset();
  return std::exchange(pieces_, {});
}

}  // namespace rdm::hosts
