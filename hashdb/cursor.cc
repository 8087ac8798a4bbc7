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
  page_number_ = 0;
  const auto offset = static_cast<int64_t>(page << source_.header.page_shift);
  if (offset >= source_.size) {
    std::memset(page_.get(), 0, size);
  } else if (!read_used(offset)) {
    return false;
  }
  page_number_ = page;
  return true;
}

/// read_used reads a page that begins at an offset of the file. Half of a page is free bytes on average: those of a
/// large page are not read.
bool Cursor::read_used(int64_t offset) noexcept {
  constexpr uint32_t large = 8192, start = 512;
  const uint32_t size = source_.header.page_size;
  if (size < large || offset > source_.size - size) return read_part(offset, 0, size);
  return read_part(offset, 0, start) && read_part(offset, data_start(start), size);
}

bool Cursor::read_part(int64_t offset, uint32_t from, uint32_t to) noexcept {
  return source_.read_at(source_.fd, offset + from, page_.get() + from, static_cast<int32_t>(to - from));
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
  if (!read(page) || slots() % 2 != 0 || 2 * (slots() + 3) > source_.header.page_size) return false;
  slot_ = 1;
  key_end_ = source_.header.page_size;
  return true;
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

void Cursor::start(uint32_t bucket) noexcept {
  bucket_ = bucket;
  started_ = true;
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
      return mark >= slot_mark::first_offset ? take_pair() : take_long();
    }
  }
  return true;
}

/// take_pair reads a record on a single page: the value is stored in front of the key.
bool Cursor::take_pair() noexcept {
  const uint32_t key_start = at(slot_);
  const uint32_t value_start = at(slot_ + 1);
  if (!holds(value_start, key_start) || key_start > key_end_) return false;
  key_ = bytes(key_start, key_end_);
  value_ = bytes(value_start, key_start);
  value_offset_ = static_cast<int64_t>((page_number_ << source_.header.page_shift) + value_start);
  key_end_ = value_start;
  slot_ += 2;
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
