// SPDX-License-Identifier: MIT
/// Random bytes for tests.
#ifndef TESTS_SUPPORT_RANDOM_BYTES_H
#define TESTS_SUPPORT_RANDOM_BYTES_H

#include <algorithm>
#include <cstring>
#include <random>
#include <string>

namespace rdm::support {

/// random_bytes returns `size` bytes. Each number of the generator gives four.
inline std::string random_bytes(std::mt19937 &random, size_t size) {
  std::string bytes(size, ' ');
  for (size_t at = 0; at < size; at += 4) {
    const auto word = static_cast<uint32_t>(random());
    std::memcpy(bytes.data() + at, &word, std::min<size_t>(sizeof word, size - at));
  }
  return bytes;
}

}  // namespace rdm::support

#endif
