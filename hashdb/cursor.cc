// SPDX-License-Identifier: MIT
#include "hashdb/cursor.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "qxapi/uninterrupted.h"

namespace rdm::hashdb {
namespace {

uint16_t swapped(uint16_t number) { return static_cast<uint16_t>(number << 8 | number >> 8); }

constexpr uint32_t native_order = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? little_endian : big_endian;

}  // namespace

bool read_by_host(host_fd fd, int64_t offset, char *bytes, int32_t size) noexcept {
  return host_seek(fd, offset, SEEK_SET) == offset && host_read(fd, bytes, size) == size;
}

bool read_by_pread(host_fd fd, int64_t offset, char *bytes, int32_t size) noexcept {
  while (size > 0) {
    const auto got = uninterrupted([=] { return ::pread(fd, bytes, static_cast<size_t>(size), offset); });
    if (got <= 0) return false;
    bytes += got, offset += got, size -= static_cast<int32_t>(got);
  }
  return true;
}

bool LongItem::append(std::string_view piece) noexcept {
  if (size_ + piece.size() > capacity_) {
    const size_t capacity = std::max(2 * capacity_, size_ + piece.size());
    auto *grown = static_cast<char *>(host_realloc(bytes_.get(), capacity));
    if (grown == nullptr) {
      errno = ENOMEM;
      return false;
    }
    static_cast<void>(bytes_.release());
    bytes_.reset(grown);
    capacity_ = capacity;
  }
  std::copy(piece.begin(), piece.end(), bytes_.get() + size_);
  size_ += piece.size();
  return true;
}

uint32_t Cursor::at(uint32_t index) const noexcept {
  uint16_t number = 0;
  std::memcpy(&number, page_.get() + size_t{2} * index, sizeof number);
  return source_.header.byte_order == native_order ? number : swapped(number);
}

/// holds returns true if the bytes lie within the page, after the slots in use.
bool Cursor::holds(uint32_t from, uint32_t to) const noexcept {
  return 2 * (slots() + 1) <= from && from <= to && to <= source_.header.page_size;
}

/// read reads a page into memory. A page past the end of the file is read as zeros: it has no slots.
bool Cursor::read(uint64_t page) noexcept {
  if (page == page_number_) return true;
  const uint32_t size = source_.header.page_size;
  if (!page_) page_ = host_new<char>(size);
  if (!page_) {
    errno = ENOMEM;
    return false;
  }
  page_number_ = page;
  loaded_ = 0;
  if (page_offset() >= source_.size) {
    std::memset(page_.get(), 0, size);
    loaded_ = size;
  } else if (!read_start()) {
    page_number_ = 0;
    return false;
  }
  return true;
}

/// read_start reads a page, of a large one only the slots. Half of a page is free bytes on average, and the slots tell
/// where they end.
bool Cursor::read_start() noexcept {
  constexpr uint32_t large = 8192, start = 512;
  const uint32_t size = source_.header.page_size;
  if (size < large || page_offset() > source_.size - size) return load(size);
  if (!load(start)) return false;
  const uint32_t data = data_start(start);
  if (data == start) return load(size);
  loaded_ = data;
  return true;
}

/// load reads the bytes of the page up to an offset that have not been read.
bool Cursor::load(uint32_t to) noexcept {
  if (to <= loaded_) return true;
  const auto size = static_cast<int32_t>(to - loaded_);
  if (!source_.read_at(source_.fd, page_offset() + loaded_, page_.get() + loaded_, size)) return false;
  loaded_ = to;
  return true;
}

/// data_start returns an offset below which nothing lies that the slots lead to, except the first `from` bytes of the
/// page, which have been read. It returns `from` if the slots are not within those, are damaged, or are not of pairs.
uint32_t Cursor::data_start(uint32_t from) const noexcept {
  uint32_t lowest = source_.header.page_size;
  if (2 * (slots() + 3) > from) return from;
  for (uint32_t slot = 1; slot < slots(); slot += 2) {
    const uint32_t mark = at(slot + 1);
    if (mark != slot_mark::link && mark < slot_mark::first_offset) return from;
    if (mark != slot_mark::link) lowest = std::min(lowest, mark);
  }
  return lowest < source_.header.page_size ? std::max(lowest, from) : from;
}

/// enter reads a page and moves to its first record. Returns false if its slots do not fit.
bool Cursor::enter(uint64_t page) noexcept {
  const uint32_t size = source_.header.page_size;
  if (!read(page) || slots() % 2 != 0 || 2 * (slots() + 3) > size) return false;
  slot_ = 1;
  key_end_ = size;
  pair_ = 0;
  return (loads_on_demand_ && is_pair(slot_, key_end_)) || load(size);
}

bool Cursor::enter_bucket() noexcept {
  const uint64_t page = bucket_page(source_.header, bucket_);
  started_ = false;
  waypoint_ = page;
  followed_ = 0;
  next_waypoint_ = 1;
  return enter(page);
}

/// follow enters an overflow page. Returns false for an invalid address, a page past the end of the file and a loop.
bool Cursor::follow(uint32_t address) noexcept {
  const uint64_t page = overflow_page(source_.header, static_cast<uint16_t>(address));
  if (page == 0 || static_cast<int64_t>(page << source_.header.page_shift) >= source_.size) return false;
  if (is_loop(page) || !enter(page)) return false;
  if (followed_by_ != nullptr) followed_by_(argument_, static_cast<uint16_t>(address));
  return true;
}

/// is_loop returns true if the chain of the bucket's pages leads back to a page already read. Brent's cycle detection:
/// O(1) memory, fires within three laps.
bool Cursor::is_loop(uint64_t page) noexcept {
  if (page == waypoint_) return true;
  if (++followed_ == next_waypoint_) {
    waypoint_ = page;
    followed_ = 0;
    next_waypoint_ *= 2;
  }
  return false;
}

void Cursor::start(uint32_t bucket, Order order) noexcept {
  bucket_ = bucket;
  started_ = true;
  order_ = order;
  loads_on_demand_ = false;
}

Cursor::Result Cursor::next() noexcept {
  const int before = errno;
  errno = 0;
  bool found = false;
  const bool good = (!started_ || enter_bucket()) && take_next(found);
  if (good)
    errno = before;
  else if (errno == 0)
    errno = EINVAL;
  return !good ? damaged : (found ? record : end);
}

Cursor::Result Cursor::find(uint32_t bucket, std::string_view key) noexcept {
  start(bucket);
  return read_to(key);
}

Cursor::Result Cursor::find_newest(uint32_t bucket, std::string_view key) noexcept {
  start(bucket, newest_first);
  loads_on_demand_ = true;
  return read_to(key);
}

Cursor::Result Cursor::read_to(std::string_view key) noexcept {
  Result result = next();
  while (result == record && key_ != key) result = next();
  return result;
}

bool Cursor::take_next(bool &found) noexcept {
  while (slot_ < slots()) {
    const uint32_t mark = at(slot_ + 1);
    if (mark == slot_mark::link) {
      if (!follow(at(slot_))) return false;
    } else {
      found = true;
      if (mark < slot_mark::first_offset) return take_long();
      return order_ == newest_first ? take_newest() : take_pair();
    }
  }
  return true;
}

/// is_pair returns true if a slot begins the record of a single page whose key ends at an offset: the value is stored
/// in front of the key.
bool Cursor::is_pair(uint32_t slot, uint32_t key_end) const noexcept {
  return slot < slots() && at(slot + 1) >= slot_mark::first_offset && holds(at(slot + 1), at(slot)) &&
         at(slot) <= key_end;
}

void Cursor::take(uint32_t slot, uint32_t key_end) noexcept {
  const uint32_t key_start = at(slot), value_start = at(slot + 1);
  key_ = bytes(key_start, key_end);
  value_ = bytes(value_start, key_start);
  value_offset_ = page_offset() + value_start;
}

bool Cursor::take_pair() noexcept {
  if (!is_pair(slot_, key_end_)) return false;
  take(slot_, key_end_);
  key_end_ = at(slot_ + 1);
  slot_ += 2;
  return true;
}

/// find_pairs finds the last of the pairs that begin at the slot. Returns false if there is none.
bool Cursor::find_pairs() noexcept {
  uint32_t key_end = key_end_;
  for (pairs_end_ = slot_; is_pair(pairs_end_, key_end); pairs_end_ += 2) key_end = at(pairs_end_ + 1);
  pair_ = pairs_end_ - 2;
  return pairs_end_ != slot_;
}

/// take_newest reads the last of the pairs from the slot on that it has not read. The slot moves on after the first.
bool Cursor::take_newest() noexcept {
  if (pair_ == 0 && !find_pairs()) return false;
  const uint32_t key_end = pair_ == slot_ ? key_end_ : at(pair_ - 1);
  // If none of the last two is the record that is looked for, it may be any of the others.
  const bool is_new = pairs_end_ - pair_ <= 4;
  if (!load(is_new ? key_end : source_.header.page_size)) return false;
  take(pair_, key_end);
  if (pair_ > slot_) {
    pair_ -= 2;
    return true;
  }
  key_end_ = at(pairs_end_ - 1);
  slot_ = pairs_end_;
  pair_ = 0;
  return true;
}

/// take_long reads a record with pages of its own.
bool Cursor::take_long() noexcept {
  long_key_.clear();
  long_value_.clear();
  if (slot_ != 1 || !take_long_key()) return false;
  if (at(2) == slot_mark::full_key) {
    if (!follow(at(slots() - 1)) || !take_rest_of_value()) return false;
  } else {
    const uint32_t value_start = at(4);
    if (slots() != 4 || !holds(value_start, at(1)) || !long_value_.append(bytes(value_start, at(1)))) return false;
    const bool whole = at(slots() + 1) != 0;  // there are free bytes only if the value ends here
    if (!follow(at(3)) || (!whole && !take_rest_of_value())) return false;
  }
  key_ = long_key_.text();
  value_ = long_value_.text();
  value_offset_ = -1;
  return true;
}

/// take_long_key reads the key and stops on the page on which it ends.
bool Cursor::take_long_key() noexcept {
  while (at(2) == slot_mark::partial_key)
    if (slots() < 4 || !append_page(long_key_) || !follow(at(slots() - 1)) || slots() < 2) return false;
  return (at(2) == slot_mark::full_key || at(2) == slot_mark::full_key_data) && slots() >= 4 && append_page(long_key_);
}

/// take_rest_of_value reads the value's remaining pages and stops after the slots of the last one.
bool Cursor::take_rest_of_value() noexcept {
  while (slots() >= 2 && at(2) == slot_mark::full_key)
    if (slots() < 4 || !append_page(long_value_) || !follow(at(slots() - 1))) return false;
  if (slots() < 2 || at(2) != slot_mark::full_key_data || !append_page(long_value_)) return false;
  key_end_ = at(1);
  slot_ = 3;
  return true;
}

/// append_page appends the bytes from the offset in the page's first slot to the end of the page.
bool Cursor::append_page(LongItem &item) noexcept {
  const uint32_t page_end = source_.header.page_size;
  return holds(at(1), page_end) && item.append(bytes(at(1), page_end));
}

}  // namespace rdm::hashdb
