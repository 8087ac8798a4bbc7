#include "catalog/write_batch.h"

#include "catalog/record.h"

namespace catalog {
namespace {

constexpr size_t least_slots = 1024;

/// spread turns a hash into one whose high bits depend on all of its bits.
uint32_t spread(uint32_t hash) { return hash * 2654435769u; }

}  // namespace

template <typename Equal>
uint32_t *Changes::Places::find(uint32_t hash, Equal equal) {
  if (slots.empty()) slots.resize(least_slots);
  size_t at = (uint64_t{spread(hash)} * slots.size()) >> 32;
  while (slots[at] != 0 && !equal(slots[at] - 1)) at = (at + 1) % slots.size();
  return &slots[at];
}

/// grow keeps half of the slots free.
template <typename HashOf>
void Changes::Places::grow(size_t entries, HashOf hash_at) {
  if (2 * entries < slots.size()) return;
  const std::vector<uint32_t> old = std::move(slots);
  slots.assign(2 * old.size(), 0);
  for (uint32_t place : old)
    if (place != 0) *find(hash_at(place - 1), [](uint32_t) { return false; }) = place;
}

Changes::Changes(const Catalog &catalog) : catalog_(catalog), texts_(catalog.path()) {}

uint32_t *Changes::slot_of_number(uint32_t number) const {
  return numbers_.find(number, [&](uint32_t place) { return entries_[place].number == number; });
}

uint32_t *Changes::slot_of_url(std::string_view text, uint32_t hash) const {
  return urls_.find(hash, [&](uint32_t place) {
    const Change &change = entries_[place];
    return change.url_hash == hash && change.url_size == text.size() && url(change) == text;
  });
}

void Changes::put(uint32_t number, std::string_view url, std::string_view record) {
  const int64_t offset = texts_.append(url);
  texts_.append(database_key(number));
  texts_.append(record);
  add({offset, number, hash_of(url), static_cast<uint32_t>(url.size()), static_cast<uint32_t>(record.size())}, url);
}

void Changes::put_undated(uint32_t number, std::string_view url, const Undated &undated) {
  put(number, url, undated.record);
  entries_.back().date_offset = undated.date_offset;
  ++undated_;
}

void Changes::stamp(time_t time) {
  const std::string date = date_of(time);
  for (Change &change : entries_) {
    if (change.date_offset == dated) continue;
    texts_.write(change.offset + change.url_size + database_key_size + change.date_offset, date);
    change.date_offset = dated;
  }
  undated_ = 0;
  note_change(time);
}

void Changes::erase(uint32_t number, std::string_view url) {
  const int64_t offset = texts_.append(url);
  texts_.append(database_key(number));
  add({offset, number, hash_of(url), static_cast<uint32_t>(url.size()), erased}, url);
}

void Changes::add(const Change &change, std::string_view url) {
  entries_.push_back(change);
  const auto place = static_cast<uint32_t>(entries_.size());
  *slot_of_number(change.number) = place;
  *slot_of_url(url, change.url_hash) = place;
  numbers_.grow(place, [this](uint32_t at) { return entries_[at].number; });
  urls_.grow(place, [this](uint32_t at) { return entries_[at].url_hash; });
}

const Changes::Change *Changes::of_number(uint32_t number) const {
  const uint32_t place = *slot_of_number(number);
  return place != 0 ? &entries_[place - 1] : nullptr;
}

const Changes::Change *Changes::of_url(std::string_view text) const {
  const uint32_t place = *slot_of_url(text, hash_of(text));
  return place != 0 ? &entries_[place - 1] : nullptr;
}

std::optional<uint32_t> Changes::number_of(std::string_view url) const {
  const Change *change = of_url(url);
  if (change == nullptr) return catalog_.number_of(url);
  return change->record_size != erased ? std::optional(change->number) : std::nullopt;
}

std::optional<std::string> Changes::get(uint32_t number) const {
  const Change *change = of_number(number);
  if (change == nullptr) return catalog_.get(number);
  return change->record_size != erased ? std::optional(record(*change)) : std::nullopt;
}

void Changes::each_number(const Visit &visit) const {
  for (uint32_t place : numbers_.slots)
    if (place != 0) visit(entries_[place - 1]);
}

void Changes::each_url(const Visit &visit) const {
  for (uint32_t place : urls_.slots)
    if (place != 0) visit(entries_[place - 1]);
}

std::string Changes::text(int64_t offset, size_t size) const {
  std::string bytes(size, '\0');
  texts_.read(offset, bytes.data(), size);
  return bytes;
}

std::string Changes::record(const Change &change) const {
  return text(change.offset + change.url_size + database_key_size, change.record_size);
}

}  // namespace catalog
