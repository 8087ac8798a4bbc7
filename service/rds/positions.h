// SPDX-License-Identifier: MIT
/// Which positions of an index the records that a walk visits have. Header only.
#ifndef SERVICE_RDS_POSITIONS_H
#define SERVICE_RDS_POSITIONS_H

#include <algorithm>
#include <limits>
#include <optional>
#include <string_view>

#include "qxapi/ascii.h"
#include "qxapi/guard.h"
#include "qxapi/hex.h"
#include "service/rds/descriptions.h"
#include "service/rds/index_file.h"
#include "service/rds/plan.h"

namespace rdm {

/// number_of returns the number of a key, or nothing for a key that no number has.
inline std::optional<uint32_t> number_of(std::string_view key) noexcept {
  uint32_t number = 0;
  for (const char c : key) {
    if (hex::value_of(c) < 0 || ascii::is_upper(c)) return std::nullopt;
    number = number << 4 | static_cast<uint32_t>(hex::value_of(c));
  }
  return key.size() == key_size ? std::optional(number) : std::nullopt;
}

/// Range is a number of neighbours in an index, from the position `first` on.
struct Range {
  uint32_t first = 0, count = 0;
};

/// Positions maps numbers to positions of an index. If a number has several positions, it has the last one.
class Positions {
 public:
  /// map maps the numbers of a range, which is not empty. Returns false if the numbers are too far apart, the index
  /// cannot be read, or allocation fails.
  bool map(IndexFile &index, const Range &range) noexcept {
    if (!measure(index, range) || size_ > size_t{4} * range.count) return false;
    own_ = host_new<uint32_t>(size_);
    return own_ && fill(index, range);
  }

  /// map_in does the same, and takes no memory if the numbers are as near each other as the positions: the map is then
  /// in the states of the entries of a plan, until the caller gives them their own values. All must be unknown.
  bool map_in(Plan &plan, IndexFile &index, const Range &range) noexcept {
    if (!measure(index, range)) return false;
    if (size_ > range.count) return map(index, range);
    plan_ = &plan;
    first_ = range.first;
    return fill(index, range);
  }

  /// find returns the position of the record with a key, or nothing.
  std::optional<uint32_t> find(std::string_view key) const noexcept {
    const std::optional<uint32_t> number = number_of(key);
    const bool is_near = number && *number >= least_ && *number - least_ < size_;
    const uint32_t found = is_near ? at(*number - least_) : 0;
    return found != 0 ? std::optional(found - 1) : std::nullopt;
  }

 private:
  /// measure finds the least number and how far the numbers reach.
  bool measure(IndexFile &index, const Range &range) noexcept {
    uint32_t most = 0;
    least_ = std::numeric_limits<uint32_t>::max();
    for (uint32_t i = 0; i < range.count && !index.failed(); ++i) {
      const uint32_t number = index.entry(range.first + i).number;
      least_ = std::min(least_, number);
      most = std::max(most, number);
    }
    size_ = size_t{most - least_} + 1;
    return !index.failed();
  }

  bool fill(IndexFile &index, const Range &range) noexcept {
    for (uint32_t i = 0; i < range.count && !index.failed(); ++i) {
      const uint32_t number = index.entry(range.first + i).number;
      if (!index.failed()) put(number - least_, range.first + i + 1);
    }
    return !index.failed();
  }

  // A slot has one more than the position, or 0 for none.
  uint32_t at(uint32_t slot) const noexcept {
    return plan_ != nullptr ? uint32_t{plan_->entry(first_ + slot).state} : own_.get()[slot];
  }
  void put(uint32_t slot, uint32_t value) noexcept {
    if (plan_ != nullptr)
      plan_->entry(first_ + slot).state = static_cast<Plan::State>(value);
    else
      own_.get()[slot] = value;
  }

  uint32_t least_ = 0, first_ = 0;
  size_t size_ = 0;
  HostPtr<uint32_t> own_;
  Plan *plan_ = nullptr;
};

}  // namespace rdm

#endif
