// SPDX-License-Identifier: MIT
#include "hosts/common/record_slice.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "qxapi/uninterrupted.h"

namespace rdm::hosts {

std::optional<RecordSlice> RecordSlice::of(const host_slice &slice) {
  if (slice.count == 0 || slice.length < slice.count) {
    errno = EINVAL;
    return std::nullopt;
  }
  RecordSlice made{SharedFile::open(slice.records), SharedFile::open(slice.places), slice.first, slice.count,
                   slice.length};
  return made.records && made.places ? std::optional(std::move(made)) : std::nullopt;
}

/// is_right returns true if a place can be that of a record that `start` bytes of the slice precede.
bool RecordCursor::is_right(const host_place &place, std::uint32_t index, std::int64_t start) const {
  const std::int64_t size = place.size, after = slice_.length - start - size;
  const bool is_in_file = size > 0 && place.offset >= 0 && place.offset <= slice_.records->size() - size;
  return is_in_file && (index + 1 == slice_.count ? after == 0 : after > 0);
}

/// load reads places, unless that of the record at the position is there. Returns false if it is not, or not right.
bool RecordCursor::load() {
  if (index_ < window_end_) return true;
  const auto offset = static_cast<off_t>((std::int64_t{slice_.first} + index_) * std::int64_t{sizeof(host_place)});
  const std::size_t wanted = std::min(window_size, slice_.count - index_) * sizeof(host_place);
  const ssize_t got = uninterrupted([&] { return ::pread(slice_.places->fd(), window_.data(), wanted, offset); });
  const std::size_t count = static_cast<std::size_t>(std::max<ssize_t>(got, 0)) / sizeof(host_place);
  window_start_ = index_;
  std::int64_t start = start_;
  for (std::size_t i = 0; i < count && is_right(window_[i], window_end_, start); ++i, ++window_end_)
    start += window_[i].size;
  if (index_ < window_end_) return true;
  errno = ESTALE;
  return false;
}

std::size_t RecordCursor::gather(std::span<iovec> parts) {
  if (!std::exchange(gathers_, true)) slice_.records->expect(slice_.length);
  const char *const bytes = slice_.records->mapping();
  if (bytes == nullptr || left() == 0 || !load()) return 0;
  const std::size_t count = std::min<std::size_t>(parts.size(), window_end_ - index_);
  std::int64_t within = within_;
  for (std::size_t i = 0; i < count; ++i, within = 0) {
    const host_place &place = window_[index_ - window_start_ + i];
    parts[i] = {const_cast<char *>(bytes + place.offset + within), static_cast<std::size_t>(place.size - within)};
  }
  return count;
}

ssize_t RecordCursor::read(std::span<char> bytes) {
  if (left() == 0) return 0;
  if (!load()) return -1;
  std::size_t done = 0;
  std::int64_t within = within_;
  for (std::uint32_t i = index_; i < window_end_ && done < bytes.size(); ++i, within = 0) {
    const host_place &place = window_[i - window_start_];
    const std::size_t wanted = std::min(bytes.size() - done, static_cast<std::size_t>(place.size - within));
    char *const to = bytes.data() + done;
    const ssize_t got = uninterrupted(
        [&] { return ::pread(slice_.records->fd(), to, wanted, static_cast<off_t>(place.offset + within)); });
    done += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    if (got != static_cast<ssize_t>(wanted)) break;  // the file has changed
  }
  return confirm() ? static_cast<ssize_t>(done) : -1;
}

void RecordCursor::skip(std::int64_t count) {
  within_ += count;
  while (index_ < window_end_ && within_ >= window_[index_ - window_start_].size) {
    const std::int64_t size = window_[index_++ - window_start_].size;
    start_ += size;
    within_ -= size;
  }
  if (left() == 0) SharedFile::let_go_former();
}

bool RecordCursor::confirm() const {
  if (slice_.records->is_unchanged()) return true;
  errno = ESTALE;
  return false;
}

}  // namespace rdm::hosts
