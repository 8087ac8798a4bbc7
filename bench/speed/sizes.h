// SPDX-License-Identifier: MIT
/// Values of rows at several sizes of the catalog. Header only.
#ifndef BENCH_SPEED_SIZES_H
#define BENCH_SPEED_SIZES_H

#include <cstddef>
#include <map>
#include <optional>
#include <string>

namespace rdm::bench {

/// Sizes compares values at larger catalogs with those at the size of reference, which must be measured first.
class Sizes {
 public:
  static constexpr std::size_t reference = 20'000;

  /// against_reference returns the value at the size of reference if `records` is more, otherwise nothing. At the size
  /// of reference it keeps the value.
  std::optional<double> against_reference(const std::string &row, std::size_t records, double value) {
    if (records == reference) values_[row] = value;
    const auto found = values_.find(row);
    return records > reference && found != values_.end() ? std::optional(found->second) : std::nullopt;
  }

 private:
  std::map<std::string, double> values_;
};

}  // namespace rdm::bench

#endif
