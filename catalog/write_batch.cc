// SPDX-License-Identifier: MIT
#include "catalog/write_batch.h"

#include "catalog/record.h"

namespace rdm::catalog {
namespace {

constexpr size_t least_slots = 1024;
constexpr size_t url_memory = 16 << 20;  // they are read one by one, in no order

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

WriteBatch::WriteBatch(const Catalog &catalog)
    : catalog_(catalog), url_texts_(catalog.path(), url_memory), records_(catalog.path()) {}

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
  add(number, url, records_.append(record), static_cast<uint32_t>(record.size()));
}

void WriteBatch::put_undated(uint32_t number, std::string_view url, const Undated &undated) {
  put(number, url, undated.record);
  entries_.back().date_offset = undated.date_offset;
  ++undated_;
}

void WriteBatch::set_dates(time_t time) {
  dates_.emplace_back(entries_.size(), date_of(time));
  undated_ = 0;
  note_change(time);
}

void WriteBatch::erase(uint32_t number, std::string_view url) { add(number, url, 0, erased); }

void WriteBatch::add(uint32_t number, std::string_view url, int64_t record_offset, uint32_t record_size) {
  const int64_t url_offset = url_texts_.append(url);
  url_texts_.append(database_key(number));
  const uint32_t hash = hash_of(url);
  entries_.push_back({url_offset, record_offset, number, hash, static_cast<uint32_t>(url.size()), record_size});
  const auto slot = static_cast<uint32_t>(entries_.size());
  *slot_of_number(number) = slot;
  *slot_of_url(url, hash) = slot;
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
  return change->record_size != erased ? std::optional(record(*slot_of_number(number) - 1)) : std::nullopt;
}

void WriteBatch::each_number(const Visitor &visit) const {
  for (size_t at = 0; at < entries_.size(); ++at)
    if (*slot_of_number(entries_[at].number) == at + 1) visit(entries_[at], at);
}

void WriteBatch::each_url(const Visitor &visit) const {
  for (size_t at = 0; at < entries_.size(); ++at)
    if (*urls_.find(entries_[at].url_hash, [at](uint32_t slot) { return slot == at; }) != 0) visit(entries_[at], at);
}

std::string WriteBatch::url(const Change &change) const {
  std::string text(change.url_size, '\0');
  url_texts_.read(change.url_offset, text.data(), text.size());
  return text;
}

/// date_at returns the date of the first call of set_dates after a put, or null if there was none.
const std::string *WriteBatch::date_at(size_t position) const {
  const auto found =
      std::find_if(dates_.begin(), dates_.end(), [=](const auto &date) { return position < date.first; });
  return found != dates_.end() ? &found->second : nullptr;
}

std::string WriteBatch::record(size_t position) const {
  std::string text;
  read_record(position, text);
  return text;
}

void WriteBatch::read_record(size_t position, std::string &text) const {
  const Change &change = entries_[position];
  text.resize(change.record_size);
  records_.read(change.record_offset, text.data(), text.size());
  const std::string *const date = change.date_offset != dated ? date_at(position) : nullptr;
  if (date != nullptr) text.replace(change.date_offset, date->size(), *date);
}

}  // namespace rdm::catalog
