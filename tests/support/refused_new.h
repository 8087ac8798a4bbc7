// SPDX-License-Identifier: MIT
/// Makes `new` fail, and counts it. Programs link the library refused_new for it.
#ifndef TESTS_SUPPORT_REFUSED_NEW_H
#define TESTS_SUPPORT_REFUSED_NEW_H

#include <cstddef>

namespace rdm::support {

/// RefusedNew makes the first `new` of `least` to `most` bytes in any thread fail during its lifetime.
class RefusedNew {
 public:
  RefusedNew(std::size_t least, std::size_t most);
  RefusedNew(const RefusedNew &) = delete;
  RefusedNew &operator=(const RefusedNew &) = delete;
  ~RefusedNew();

  /// done returns true if one has failed.
  bool done() const;
};

/// calls_of_new returns how often `new` was called, in any thread.
long calls_of_new();

}  // namespace rdm::support

#endif
