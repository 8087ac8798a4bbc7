// SPDX-License-Identifier: MIT
/// Which positions of an index the records that a walk visits have. Header only.
#ifndef SERVICE_RDS_POSITIONS_H
#define SERVICE_RDS_POSITIONS_H

#include <algorithm>
#include <optional>
#include <string_view>

#include "qxapi/ascii.h"
#include "qxapi/guard.h"
#include "qxapi/hex.h"
#include "service/rds/descriptions.h"

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

/// Positions maps numbers to positions of an index. If a number has several positions, it has the last one.
class Positions {
 public:
  /// map maps the numbers of the positions from `first` on; `count` is not 0. Returns false if the numbers are too far
  /// apart, or allocation fails.
  bool map(uint32_t first, const uint32_t *numbers, uint32_t count) noexcept {
    const auto [least, most] = std::minmax_element(numbers, numbers + count);
    least_ = *least;
    size_ = size_t{*most - *least} + 1;
    if (size_ > size_t{4} * count) return false;
    positions_ = host_new<uint32_t>(size_);
    for (uint32_t i = 0; positions_ && i < count; ++i) positions_.get()[numbers[i] - least_] = first + i + 1;
    return positions_ != nullptr;
  }

  /// find returns the position of the record with a key, or nothing.
  std::optional<uint32_t> find(std::string_view key) const noexcept {
    const std::optional<uint32_t> number = number_of(key);
    const bool is_near = number && *number >= least_ && *number - least_ < size_;
    const uint32_t found = is_near ? positions_.get()[*number - least_] : 0;
    return found != 0 ? std::optional(found - 1) : std::nullopt;
  }

 private:
  uint32_t least_ = 0;
  size_t size_ = 0;
  HostPtr<uint32_t> positions_;  // one more than the position, 0 for none
};

}  // namespace rdm

#endif
