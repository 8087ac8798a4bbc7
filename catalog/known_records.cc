// SPDX-License-Identifier: MIT
#include "catalog/known_records.h"

#include <algorithm>

#include "catalog/record.h"

namespace rdm::catalog {
namespace {

bool by_number(const IndexEntry &a, const IndexEntry &b) { return a.number < b.number; }

bool has_same_bytes(const IndexEntry &a, const IndexEntry &b) { return a.size == b.size && a.checksum == b.checksum; }

/// has_damaged_time returns true if a record differs from its entry only in the text of its time of change.
bool has_damaged_time(const IndexEntry &known, std::string_view record) {
  if (known.size != record.size()) return false;
  const std::string time = date_of(static_cast<time_t>(known.time));
  const std::string start = attribute_head("rd-last-changed", time.size());
  const size_t at = record.find(start);
  if (at == std::string_view::npos || record.size() - at - start.size() < time.size()) return false;
  std::string mended(record);
  mended.replace(at + start.size(), time.size(), time);
  return has_same_bytes(known, entry_of(known.number, mended, known.time));
}

/// only_bit returns the bit that differs between two texts of the same size, given the XOR of their CRC-32, or
/// std::nullopt if more than one bit differs. CRC-32 is linear: the XOR of a bit depends only on its distance from the
/// end.
std::optional<size_t> only_bit(uint32_t difference, size_t size) {
  constexpr uint32_t polynomial = 0xEDB88320;
  uint32_t crc = polynomial;
  for (size_t bit = 8 * size; bit-- > 0; crc = crc >> 1 ^ ((crc & 1) != 0 ? polynomial : 0))
    if (crc == difference) return bit;
  return std::nullopt;
}

/// has_flipped_bit returns true if a record matches its entry after flipping one of its bits.
bool has_flipped_bit(const IndexEntry &known, const IndexEntry &now, std::string_view record) {
  const auto bit = known.size == now.size ? only_bit(known.checksum ^ now.checksum, record.size()) : std::nullopt;
  if (!bit) return false;
  std::string mended(record);
  mended[*bit / 8] = static_cast<char>(mended[*bit / 8] ^ 1 << *bit % 8);
  const std::optional<Outline> outline = outline_of(mended);
  return outline && entry_of(known.number, mended, outline->change_time) == known;
}

}  // namespace

KnownRecords::KnownRecords(std::vector<IndexEntry> entries, std::optional<time_t> newest_given)
    : entries_(std::move(entries)), newest_given_(newest_given) {
  std::stable_sort(entries_.begin(), entries_.end(), by_number);
  for (const IndexEntry &entry : entries_) newest_ = std::max(newest_, entry.time);
}

const IndexEntry *KnownRecords::find(uint32_t number) const {
  const auto found = std::lower_bound(entries_.begin(), entries_.end(), IndexEntry{0, 0, number, 0, 0}, by_number);
  return found != entries_.end() && found->number == number ? &*found : nullptr;
}

std::string KnownRecords::fault_of(uint32_t number, std::string_view record) const {
  const IndexEntry *known = find(number);
  if (known == nullptr) return {};
  const IndexEntry untimed = entry_of(number, record, 0);
  if (has_same_bytes(*known, untimed)) return {};
  const std::optional<Outline> outline = outline_of(record);
  return outline ? fault_of(entry_of(number, record, outline->change_time), record) : "it is not a SOIF object";
}

std::string KnownRecords::fault_of(const IndexEntry &now, std::string_view record) const {
  const IndexEntry *known = find(now.number);
  if (known == nullptr || has_same_bytes(*known, now)) return {};
  if (known->time == now.time)
    return known->size != now.size ? "its size is not that of the index" : "its checksum is not that of the index";
  if (now.time == 0) return "it has lost its time of change";
  if (is_possible(now.time)) return {};
  // Another program may give times that are later than all times of minidba. A single flipped bit counts as damage.
  if (now.time <= newest_ && has_damaged_time(*known, record)) return "its time of change is not that of the index";
  return has_flipped_bit(*known, now, record) ? "one bit of it is not as in the index" : std::string();
}

}  // namespace rdm::catalog
