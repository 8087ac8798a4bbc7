// SPDX-License-Identifier: MIT
/// Memory that fails for code that takes it by `new`. Programs link the library refused_new for it.
#ifndef TESTS_SUPPORT_REFUSED_NEW_H
#define TESTS_SUPPORT_REFUSED_NEW_H

#include <cstddef>

namespace rdm::support {

/// RefusedNew lets the first `new` of `least` to `most` bytes fail that any thread does during its lifetime.
class RefusedNew {
 public:
  RefusedNew(std::size_t least, std::size_t most);
  RefusedNew(const RefusedNew &) = delete;
  RefusedNew &operator=(const RefusedNew &) = delete;
  ~RefusedNew();

  /// done tells whether one was refused.
  bool done() const;
};

}  // namespace rdm::support

#endif
