// SPDX-License-Identifier: MIT
#include "dba/locator.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "qxapi/uninterrupted.h"

namespace rdm {
namespace {

constexpr size_t piece_size = 1 << 20;

/// PrimaryPage reads the records of a page like hashdb::Cursor, up to the first one that is not on this page alone and
/// up to the first damage.
class PrimaryPage {
 public:
  PrimaryPage(const hashdb::Header &header, const char *page) noexcept
      : page_(page), size_(header.page_size), swapped_(header.byte_order != native_order), key_end_(size_) {
    const uint32_t slots = at(0);
    slots_ = slots % 2 == 0 && 2 * (slots + 3) <= size_ ? slots : 0;
  }

  /// next reads the next record. Returns false if there is none.
  bool next() noexcept {
    if (slot_ >= slots_) return false;
    const uint32_t key_start = at(slot_), value_start = at(slot_ + 1);
    if (value_start < hashdb::slot_mark::first_offset || value_start < 2 * (slots_ + 1)) return false;
    if (value_start > key_start || key_start > key_end_) return false;
    key = {page_ + key_start, key_end_ - key_start};
    value = {page_ + value_start, key_start - value_start};
    key_end_ = value_start;
    slot_ += 2;
    return true;
  }

  std::string_view key, value;

 private:
  static constexpr uint32_t native_order =
      __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? hashdb::little_endian : hashdb::big_endian;

  uint32_t at(uint32_t index) const noexcept {
    uint16_t number = 0;
    std::memcpy(&number, page_ + size_t{2} * index, sizeof number);
    return swapped_ ? __builtin_bswap16(number) : number;
  }

  const char *page_;
  uint32_t size_;
  bool swapped_;
  uint32_t slots_ = 0;
  uint32_t slot_ = 1;
  uint32_t key_end_;
};

uint32_t bucket_of_key(const hashdb::Header &header, std::string_view key) {
  return hashdb::bucket_of(header, hashdb::default_hash(key.data(), key.size()));
}

}  // namespace

bool Locator::open(host_fd file) noexcept {
  file_ = file;
  page_offset_ = -1;
  char bytes[hashdb::header_size];
  const int64_t size = host_seek(file, 0, SEEK_END);
  if (!read(0, bytes, sizeof bytes)) return false;
  header_ = hashdb::decode(reinterpret_cast<const unsigned char *>(bytes));
  if (!hashdb::is_sound(header_, hashdb::default_hash, size)) return false;
  page_ = HostText(static_cast<char *>(host_alloc(header_.page_size)));
  return page_ != nullptr;
}

/// read leaves the position of the descriptor as it is, and its failures unreported: dba_get meets them again.
bool Locator::read(int64_t offset, char *bytes, size_t size) const noexcept {
  return uninterrupted([&] { return ::pread(file_, bytes, size, offset); }) == static_cast<ssize_t>(size);
}

int64_t Locator::offset_of(uint32_t bucket) const noexcept {
  return static_cast<int64_t>(hashdb::bucket_page(header_, bucket) << header_.page_shift);
}

Location Locator::find(std::string_view key, std::string_view &value) noexcept {
  const int64_t offset = offset_of(bucket_of_key(header_, key));
  if (offset != page_offset_) page_offset_ = read(offset, page_.get(), header_.page_size) ? offset : -1;
  if (offset != page_offset_) return {};
  PrimaryPage page(header_, page_.get());
  while (page.next()) {
    if (page.key != key) continue;
    value = page.value;
    return {offset + (value.data() - page_.get()), static_cast<uint32_t>(value.size())};
  }
  return {};
}

void Locator::walk(Visit visit, void *argument) noexcept {
  const HostText piece(static_cast<char *>(host_alloc(piece_size)));
  int64_t start = 0, end = 0;  // of the piece
  for (uint32_t bucket = 0; piece && bucket < buckets(); ++bucket) {
    const int64_t offset = offset_of(bucket);
    if (offset + header_.page_size > end) {
      start = end = offset;
      const auto got = uninterrupted([&] { return ::pread(file_, piece.get(), piece_size, offset); });
      if (got < static_cast<ssize_t>(header_.page_size)) return;
      end += got;
    }
    PrimaryPage page(header_, piece.get() + (offset - start));
    while (page.next())
      if (bucket_of_key(header_, page.key) == bucket)
        visit(argument, page.key, page.value,
              {start + (page.value.data() - piece.get()), static_cast<uint32_t>(page.value.size())});
  }
}

}  // namespace rdm
