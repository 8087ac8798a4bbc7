// SPDX-License-Identifier: MIT
/// Makes `new` and the allocations of Asio fail, and counts the calls of `new`. Programs link the library refused_new
/// for it.
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

/// RefusedHandler makes the first allocation of Asio for a handler (aligned_alloc) in any thread fail during its
/// lifetime. Asio allocates nothing for a handler that takes the memory of one that has run.
class RefusedHandler {
 public:
  RefusedHandler();
  RefusedHandler(const RefusedHandler &) = delete;
  RefusedHandler &operator=(const RefusedHandler &) = delete;
  ~RefusedHandler();

  /// done returns true if one has failed.
  bool done() const;
};

/// calls_of_new returns how often `new` was called, in any thread.
long calls_of_new();

}  // namespace rdm::support

#endif
