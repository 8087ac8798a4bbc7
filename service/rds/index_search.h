// SPDX-License-Identifier: MIT
/// The search of a since query in an index, for an index in memory and for one in a file. Header only.
#ifndef SERVICE_RDS_INDEX_SEARCH_H
#define SERVICE_RDS_INDEX_SEARCH_H

#include <algorithm>
#include <cstdint>

namespace rdm {

/// search_index is cs_dbsearch over the times that `time_at(position)` returns for the positions 0 to `count` - 1.
/// `count` is not 0.
template <typename TimeAt>
int32_t search_index(uint32_t count, uint64_t since, TimeAt time_at) {
  const int64_t last = int64_t{count} - 1;
  int64_t low = 0, high = last;
  while (low <= high) {
    const int64_t middle = (low + high) / 2;
    // A search that narrows to the last entry returns "nothing to send": harvesters overlap their windows.
    if (middle >= last) return static_cast<int32_t>(count);
    const uint64_t time = time_at(middle);
    if (since == time) return static_cast<int32_t>(middle);
    if (since < time)
      high = middle - 1;
    else
      low = middle + 1;
  }
  const int64_t nearest = std::clamp<int64_t>(std::min(low, high), 0, last);
  if (time_at(nearest) >= since) return static_cast<int32_t>(nearest);
  const int64_t next = std::max(low, high);
  return time_at(next) >= since ? static_cast<int32_t>(next) : -1;
}

}  // namespace rdm

#endif
