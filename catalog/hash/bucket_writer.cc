// SPDX-License-Identifier: MIT
#include "catalog/hash/bucket_writer.h"

#include <algorithm>
#include <cstring>

namespace rdm::catalog {
namespace {

using hashdb::Header;
namespace slot_mark = hashdb::slot_mark;

constexpr uint32_t slot_size = 2;
constexpr uint32_t pair_size = 2 * slot_size;  // of the slots of a record, or of a link to the next page

/// page_overhead returns the size of the numbers at the start of a page with so many slots.
constexpr uint32_t page_overhead(uint32_t slots) { return slot_size * (slots + 3); }
constexpr uint32_t long_overhead = page_overhead(4);

}  // namespace

bool is_long(const Header &header, uint32_t key_size, uint32_t value_size) {
  return uint64_t{key_size} + value_size + page_overhead(2) + pair_size > header.page_size;
}

void PageCount::add(uint32_t key_size, uint32_t value_size) {
  if (is_long(header_, key_size, value_size)) {
    const uint32_t page_capacity = header_.page_size - long_overhead;
    pages_ += (key_size + value_size + page_capacity - 1) / page_capacity;
    return;
  }
  const uint32_t empty = page_overhead(0) + pair_size, size = key_size + value_size + pair_size;
  if (used_ == 0) used_ = empty;
  const bool fits = used_ + size <= header_.page_size;
  pages_ += fits ? 0 : 1;
  used_ = (fits ? used_ : empty) + size;
}

BucketWriter::BucketWriter(const Header &header, RunWriter &output, Allocate allocate)
    : header_(header), output_(output), allocate_(std::move(allocate)) {}

void BucketWriter::set(uint32_t slot, uint32_t number) {
  const auto half = static_cast<uint16_t>(number);
  std::memcpy(page_ + size_t{slot_size} * slot, &half, sizeof half);
}

/// open begins a page without records.
void BucketWriter::open(uint64_t page_number) {
  page_ = output_.piece(static_cast<int64_t>(page_number << header_.page_shift), header_.page_size);
  slots_ = 0;
  data_start_ = header_.page_size;
}

void BucketWriter::start(uint32_t bucket) { open(bucket_page(header_, bucket)); }

/// close sets the last numbers of the page: the free bytes and the start of the data.
void BucketWriter::close() {
  const uint32_t free_start = page_overhead(slots_);
  set(0, slots_);
  set(slots_ + 1, data_start_ - free_start);
  set(slots_ + 2, data_start_);
  std::fill(page_ + free_start, page_ + data_start_, '\0');
}

/// chain links the page to a new overflow page and makes that the current page.
void BucketWriter::chain() {
  const uint16_t address = allocate_();
  set(slots_ + 1, address);
  set(slots_ + 2, 0);
  slots_ += 2;
  close();
  open(overflow_page(header_, address));
}

void BucketWriter::add(const Record &record) {
  if (is_long(header_, static_cast<uint32_t>(record.key.size()), static_cast<uint32_t>(record.value.size()))) {
    chain();
    put_long(record);
  } else {
    const size_t size = record.key.size() + record.value.size() + pair_size;
    if (page_overhead(slots_) + pair_size + size > data_start_) chain();
    put(record);
  }
}

void BucketWriter::put(const Record &record) {
  data_start_ -= static_cast<uint32_t>(record.key.size());
  set(slots_ + 1, data_start_);
  record.key.copy(page_ + data_start_, record.key.size());
  data_start_ -= static_cast<uint32_t>(record.value.size());
  set(slots_ + 2, data_start_);
  record.value.copy(page_ + data_start_, record.value.size());
  slots_ += 2;
}

/// put_long writes the key and the beginning of the value to the page, and the rest to overflow pages. The last of them
/// stays the current page, so that chain can link it to the next record.
void BucketWriter::put_long(const Record &record) {
  const auto key_size = static_cast<uint32_t>(record.key.size());
  const uint32_t key_start = header_.page_size - key_size;
  record.key.copy(page_ + key_start, key_size);
  std::string_view rest = record.value;
  const uint32_t first_size = key_start - long_overhead;
  rest.substr(0, first_size).copy(page_ + long_overhead, first_size);
  rest.remove_prefix(first_size);
  const uint16_t address = allocate_();
  set(1, key_start), set(2, slot_mark::full_key_data), set(3, address), set(4, long_overhead);
  slots_ = 4;
  data_start_ = long_overhead;
  close();
  open(overflow_page(header_, address));
  for (bool last = false; !last;) {
    const uint32_t size = std::min<uint32_t>(static_cast<uint32_t>(rest.size()), header_.page_size - long_overhead);
    last = size == rest.size();
    data_start_ = header_.page_size - size;
    rest.substr(0, size).copy(page_ + data_start_, size);
    rest.remove_prefix(size);
    set(1, data_start_), set(2, last ? slot_mark::full_key_data : slot_mark::full_key);
    slots_ = 2;
    if (!last) chain();
  }
}

void BucketWriter::finish() { close(); }

}  // namespace rdm::catalog
