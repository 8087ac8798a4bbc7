// SPDX-License-Identifier: MIT
#include "service/rds/plan.h"

#include <algorithm>

namespace rdm {

bool Plan::prepare(uint32_t count) noexcept {
  // Memory of this size is mapped by the allocator, so pages that no request touches are never taken.
  entries_.reset(static_cast<Entry *>(host_alloc((size_t{count} + 1) * sizeof(Entry))));
  cleared_ = host_new<bool>(count / part + 1);
  count_ = count;
  return entries_ && cleared_;
}

Plan::Entry &Plan::entry(uint32_t position) noexcept {
  bool &cleared = cleared_.get()[position / part];
  if (!cleared) {
    const uint32_t first = position - position % part;
    std::uninitialized_value_construct_n(entries_.get() + first, std::min(part, count_ - first));
    cleared = true;
  }
  return entries_.get()[position];
}

}  // namespace rdm
