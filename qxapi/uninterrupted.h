// SPDX-License-Identifier: MIT
/// System calls that a signal may interrupt.
#ifndef QXAPI_UNINTERRUPTED_H
#define QXAPI_UNINTERRUPTED_H

#include <cerrno>

namespace rdm {

/// uninterrupted calls `call` again while it fails with EINTR, and returns its result.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) result = call();
  return result;
}

}  // namespace rdm

#endif
