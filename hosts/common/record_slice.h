// SPDX-License-Identifier: MIT
/// Records of a file as a part of an answer: what is queued is where they lie, not their bytes.
#ifndef HOSTS_COMMON_RECORD_SLICE_H
#define HOSTS_COMMON_RECORD_SLICE_H

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include <qxapi/slice.h>

#include "hosts/common/shared_file.h"

namespace rdm::hosts {

/// RecordSlice is a host_slice that keeps its files open.
struct RecordSlice {
  std::shared_ptr<const SharedFile> records, places;
  std::uint32_t first = 0, count = 0;
  std::int64_t length = 0;

  /// of returns the slice with these descriptors, which it does not take. Returns nothing, with errno set, if one of
  /// them cannot be kept open.
  static std::optional<RecordSlice> of(const host_slice &slice);
};

/// RecordCursor is a position in a slice, at its start at first. It trusts neither file: if a place is beyond the end
/// of the records, if the sizes do not add up to the length of the slice, or if the file of records has changed, it
/// fails with errno ESTALE. It reads some hundred places at a time; no call looks at more.
class RecordCursor {
 public:
  /// The most records of one call.
  static constexpr std::uint32_t window_size = 256;

  explicit RecordCursor(RecordSlice slice) : slice_(std::move(slice)) {}

  /// left returns the number of bytes from the position to the end.
  std::int64_t left() const { return slice_.length - start_ - within_; }

  /// gather stores where the next bytes lie in the mapping of the file. Returns the number of parts; 0 at the end,
  /// after a failure, and if the file has no mapping, or not yet. When they are used, confirm must say that they were
  /// right.
  std::size_t gather(std::span<iovec> parts);

  /// read reads the next bytes. Returns their number, 0 at the end, or -1.
  ssize_t read(std::span<char> bytes);

  /// skip moves the position by bytes that the last call gathered or read, or by some of them. At the end it lets go of
  /// former files (SharedFile::let_go_former).
  void skip(std::int64_t count);

  /// confirm returns true if the file of records is as it was when the slice was made, and with it all bytes that were
  /// taken so far.
  bool confirm() const;

 private:
  bool load();
  bool is_right(const host_place &place, std::uint32_t index, std::int64_t start) const;

  RecordSlice slice_;
  std::uint32_t index_ = 0;  // of the record at the position
  std::int64_t start_ = 0;   // the bytes of the records before it
  std::int64_t within_ = 0;  // the bytes of it before the position
  bool gathers_ = false;     // once the file of records knows that they are wanted from its mapping
  std::array<host_place, window_size> window_{};
  std::uint32_t window_start_ = 0, window_end_ = 0;  // the records whose places are there, all of them right
};

}  // namespace rdm::hosts

#endif
