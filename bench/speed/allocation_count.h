// SPDX-License-Identifier: MIT
/// Counts what a server allocates.
#ifndef BENCH_SPEED_ALLOCATION_COUNT_H
#define BENCH_SPEED_ALLOCATION_COUNT_H

#include <cstdint>
#include <string>

#include "support/environment.h"
#include "support/files.h"

namespace rdm::bench {

/// AllocationCount has the programs that are started in its scope count their allocations. They must end before it.
class AllocationCount {
 public:
  /// possible returns false in a build with sanitizers, which replace the allocator themselves.
  static bool possible();

  AllocationCount();

  /// value returns the number of allocations so far.
  std::uint64_t value() const;

 private:
  support::TemporaryDirectory directory_;
  std::string file_;
  support::Environment name_, library_;
};

}  // namespace rdm::bench

#endif
