// SPDX-License-Identifier: MIT
/// Reads the records of a hash file bucket by bucket. The file is not trusted: every offset is checked.
#ifndef HASHDB_CURSOR_H
#define HASHDB_CURSOR_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <qxapi/guard.h>

#include "hashdb/format.h"

namespace rdm::hashdb {

/// ReadAt reads `size` bytes at an offset of a file. Returns false if it cannot read all of them; errno is then that of
/// the failed call, and as it was if the file has ended.
using ReadAt = bool (*)(host_fd fd, int64_t offset, char *bytes, int32_t size) noexcept;
/// read_by_host reads with the procedures of the host and moves the position of the file. read_by_pread takes half as
/// many calls; it is for descriptors of the system.
bool read_by_host(host_fd fd, int64_t offset, char *bytes, int32_t size) noexcept;
bool read_by_pread(host_fd fd, int64_t offset, char *bytes, int32_t size) noexcept;

/// Source is the file that a cursor reads. The file must not change while the cursor exists.
struct Source {
  host_fd fd;
  int64_t size;   // bytes
  Header header;  // is_sound() returned true
  ReadAt read_at = read_by_host;
};

/// LongItem collects the pieces of a key or value that is spread over several pages.
class LongItem {
 public:
  void clear() noexcept { size_ = 0; }
  /// append returns false, with errno ENOMEM, if allocation fails.
  bool append(std::string_view piece) noexcept;
  std::string_view text() const noexcept { return {bytes_.get(), size_}; }

 private:
  HostText bytes_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

/// Cursor reads the records of one bucket at a time. Whatever the file holds, the walk through a bucket ends.
class Cursor {
 public:
  enum Result { record, end, damaged };
  /// Order is that of the short records of a page: new ones are put behind the others.
  enum Order { oldest_first, newest_first };

  /// The cursor keeps a reference to the source.
  explicit Cursor(const Source &source) noexcept : source_(source) {}

  /// start moves to the beginning of a bucket.
  void start(uint32_t bucket, Order order = oldest_first) noexcept;
  /// next reads the next record of the bucket. After `end` and `damaged`, call start again. `damaged` sets errno:
  /// EINVAL for a damaged page, otherwise the errno of the failed read or allocation.
  Result next() noexcept;
  /// find starts at the bucket and reads up to the record with this key.
  Result find(uint32_t bucket, std::string_view key) noexcept;
  /// find_newest does so with the newest records of each page first: of a large page it reads the slots and the last
  /// record, the one before if that has another key, and then the rest. If a page has a key twice, which only damage
  /// does, it finds the last.
  Result find_newest(uint32_t bucket, std::string_view key) noexcept;
  /// watch sets a callback that receives the address of each overflow page that the cursor enters.
  using Followed = void (*)(void *argument, uint16_t address);
  void watch(Followed followed, void *argument) noexcept {
    followed_by_ = followed;
    argument_ = argument;
  }
  /// key and value return the record read last. They are valid until the cursor moves.
  std::string_view key() const noexcept { return key_; }
  std::string_view value() const noexcept { return value_; }
  /// value_offset returns where the value is in the file, or -1 if it is not in one piece.
  int64_t value_offset() const noexcept { return value_offset_; }

 private:
  uint32_t at(uint32_t index) const noexcept;
  uint32_t slots() const noexcept { return at(0); }
  std::string_view bytes(uint32_t from, uint32_t to) const noexcept { return {page_.get() + from, to - from}; }
  bool holds(uint32_t from, uint32_t to) const noexcept;
  int64_t page_offset() const noexcept { return static_cast<int64_t>(page_number_ << source_.header.page_shift); }
  Result read_to(std::string_view key) noexcept;
  bool read(uint64_t page) noexcept;
  bool read_start() noexcept;
  bool load(uint32_t to) noexcept;
  uint32_t data_start(uint32_t from) const noexcept;
  bool enter(uint64_t page) noexcept;
  bool enter_bucket() noexcept;
  bool follow(uint32_t address) noexcept;
  bool is_loop(uint64_t page) noexcept;
  bool take_next(bool &found) noexcept;
  bool is_pair(uint32_t slot, uint32_t key_end) const noexcept;
  void take(uint32_t slot, uint32_t key_end) noexcept;
  bool take_pair() noexcept;
  bool find_pairs() noexcept;
  bool take_newest() noexcept;
  bool take_long() noexcept;
  bool take_long_key() noexcept;
  bool take_rest_of_value() noexcept;
  bool append_page(LongItem &item) noexcept;

  const Source &source_;
  HostText page_;             // the page read last; free bytes of a large page may be those of another
  uint64_t page_number_ = 0;  // its number, 0 for none
  uint32_t loaded_ = 0;       // the offset up to which it has been read
  bool loads_on_demand_ = false;
  bool started_ = false;  // the bucket's first page has not been read yet
  uint32_t bucket_ = 0;
  uint32_t slot_ = 1;     // index of the next record's slot on the page, from 1
  uint32_t key_end_ = 0;  // the offset at which its key ends
  Order order_ = oldest_first;
  uint32_t pair_ = 0;           // newest first: the slot of the next record, 0 if there is none before the slot
  uint32_t pairs_end_ = 0;      // the slot behind the last of these
  uint64_t waypoint_ = 0;       // the saved page of Brent's cycle detection
  uint32_t followed_ = 0;       // pages entered since it was saved
  uint32_t next_waypoint_ = 1;  // save the current page after this many pages
  Followed followed_by_ = nullptr;
  void *argument_ = nullptr;
  LongItem long_key_;
  LongItem long_value_;
  std::string_view key_;
  std::string_view value_;
  int64_t value_offset_ = -1;
};

}  // namespace rdm::hashdb

#endif
