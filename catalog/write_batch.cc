// SPDX-License-Identifier: MIT
#include "catalog/write_batch.h"

#include "catalog/record.h"

namespace rdm::catalog {
namespace {

constexpr size_t least_slots = 1024;

/// spread is Fibonacci hashing: the high bits of the result depend on all bits of the hash.
uint32_t spread(uint32_t hash) { return hash * 2654435769u; }

}  // namespace

template <typename Equal>
uint32_t *WriteBatch::HashIndex::find(uint32_t hash, Equal equal) {
  if (slots.empty()) slots.resize(least_slots);
  size_t at = (uint64_t{spread(hash)} * slots.size()) >> 32;
  while (slots[at] != 0 && !equal(slots[at] - 1)) at = (at + 1) % slots.size();
  return &slots[at];
}

/// grow doubles the slots when half of them are used.
template <typename HashOf>
void WriteBatch::HashIndex::grow(size_t entries, HashOf hash_at) {
  if (2 * entries < slots.size()) return;
  const std::vector<uint32_t> old = std::move(slots);
  slots.assign(2 * old.size(), 0);
  for (uint32_t slot : old)
    if (slot != 0) *find(hash_at(slot - 1), [](uint32_t) { return false; }) = slot;
}

WriteBatch::WriteBatch(const Catalog &catalog) : catalog_(catalog), texts_(catalog.path()) {}

uint32_t *WriteBatch::slot_of_number(uint32_t number) const {
  return numbers_.find(number, [&](uint32_t slot) { return entries_[slot].number == number; });
}

uint32_t *WriteBatch::slot_of_url(std::string_view text, uint32_t hash) const {
  return urls_.find(hash, [&](uint32_t slot) {
    const Change &change = entries_[slot];
    return change.url_hash == hash && change.url_size == text.size() && url(change) == text;
  });
}

void WriteBatch::put(uint32_t number, std::string_view url, std::string_view record) {
  const int64_t offset = texts_.append(url);
  texts_.append(database_key(number));
  texts_.append(record);
  add({offset, number, hash_of(url), static_cast<uint32_t>(url.size()), static_cast<uint32_t>(record.size())}, url);
}

void WriteBatch::put_undated(uint32_t number, std::string_view url, const Undated &undated) {
  put(number, url, undated.record);
  entries_.back().date_offset = undated.date_offset;
  ++undated_;
}

void WriteBatch::set_dates(time_t time) {
  const std::string date = date_of(time);
  for (Change &change : entries_) {
    if (change.date_offset == dated) continue;
    texts_.write(change.offset + change.url_size + database_key_size + change.date_offset, date);
    change.date_offset = dated;
  }
  undated_ = 0;
  note_change(time);
}

void WriteBatch::erase(uint32_t number, std::string_view url) {
  const int64_t offset = texts_.append(url);
  texts_.append(database_key(number));
  add({offset, number, hash_of(url), static_cast<uint32_t>(url.size()), erased}, url);
}

void WriteBatch::add(const Change &change, std::string_view url) {
  entries_.push_back(change);
  const auto slot = static_cast<uint32_t>(entries_.size());
  *slot_of_number(change.number) = slot;
  *slot_of_url(url, change.url_hash) = slot;
  numbers_.grow(slot, [this](uint32_t at) { return entries_[at].number; });
  urls_.grow(slot, [this](uint32_t at) { return entries_[at].url_hash; });
}

const WriteBatch::Change *WriteBatch::of_number(uint32_t number) const {
  const uint32_t slot = *slot_of_number(number);
  return slot != 0 ? &entries_[slot - 1] : nullptr;
}

const WriteBatch::Change *WriteBatch::of_url(std::string_view text) const {
  const uint32_t slot = *slot_of_url(text, hash_of(text));
  return slot != 0 ? &entries_[slot - 1] : nullptr;
}

std::optional<uint32_t> WriteBatch::number_of(std::string_view url) const {
  const Change *change = of_url(url);
  if (change == nullptr) return catalog_.number_of(url);
  return change->record_size != erased ? std::optional(change->number) : std::nullopt;
}

std::optional<std::string> WriteBatch::get(uint32_t number) const {
  const Change *change = of_number(number);
  if (change == nullptr) return catalog_.get(number);
  return change->record_size != erased ? std::optional(record(*change)) : std::nullopt;
}

void WriteBatch::each_number(const Visitor &visit) const {
  for (uint32_t slot : numbers_.slots)
    if (slot != 0) visit(entries_[slot - 1]);
}

void WriteBatch::each_url(const Visitor &visit) const {
  for (uint32_t slot : urls_.slots)
    if (slot != 0) visit(entries_[slot - 1]);
}

std::string WriteBatch::text(int64_t offset, size_t size) const {
  std::string bytes(size, '\0');
  texts_.read(offset, bytes.data(), size);
  return bytes;
}

std::string WriteBatch::record(const Change &change) const {
  return text(change.offset + change.url_size + database_key_size, change.record_size);
}

}  // namespace rdm::catalog
