// SPDX-License-Identifier: MIT
/// Filling and reading CSIO buffers.
#ifndef TESTS_LIBCS_ADT_CSIO_BUFFERS_H
#define TESTS_LIBCS_ADT_CSIO_BUFFERS_H

#include <algorithm>
#include <string>

#include "libcs/guard.h"

namespace rdm::support {

/// pattern returns `size` bytes that differ from their neighbours.
inline std::string pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 % 251);
  return bytes;
}

inline int append(const CsioPtr &io, const std::string &bytes) {
  return csio_append(io.get(), bytes.data(), static_cast<int32_t>(bytes.size()));
}

/// copy returns up to `n` bytes from the read position.
inline std::string copy(const CsioPtr &io, int32_t n) {
  std::string bytes(static_cast<size_t>(n), '?');
  const int32_t count = csio_copy(io.get(), bytes.data(), n);
  bytes.resize(static_cast<size_t>(std::max(count, 0)));
  return bytes;
}

}  // namespace rdm::support

#endif
