// SPDX-License-Identifier: MIT
/// The median of measurements. Header only.
#ifndef BENCH_MEDIAN_H
#define BENCH_MEDIAN_H

#include <algorithm>
#include <cstddef>
#include <vector>

namespace rdm::bench {

/// median returns the value in the middle, of an even number the upper one of the two; 0 if there is none.
inline double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace rdm::bench

#endif
