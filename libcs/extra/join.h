// SPDX-License-Identifier: MIT
/// Joining two texts.
#ifndef LIBCS_EXTRA_JOIN_H
#define LIBCS_EXTRA_JOIN_H

#include <string_view>

#include "qxapi/guard.h"

namespace rdm {

/// join returns the two texts with the separator between them, or null if allocation fails.
inline HostText join(std::string_view first, char separator, std::string_view second) noexcept {
  HostText joined(static_cast<char *>(host_alloc(first.size() + second.size() + 2)));
  if (!joined) return joined;
  char *end = joined.get() + first.copy(joined.get(), first.size());
  *end++ = separator;
  end[second.copy(end, second.size())] = '\0';
  return joined;
}

}  // namespace rdm

#endif
