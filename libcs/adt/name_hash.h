// SPDX-License-Identifier: MIT
/// The default hash of tables, for names that are not terminated by a NUL. Header only.
#ifndef LIBCS_ADT_NAME_HASH_H
#define LIBCS_ADT_NAME_HASH_H

#include <cstdint>
#include <string_view>

namespace rdm {

/// name_hash returns cshashtable_hf_default of a text.
constexpr uint32_t name_hash(std::string_view text) noexcept {
  uint32_t h = 0;
  for (const char c : text) h ^= (h << 8) ^ (h >> 8) ^ static_cast<unsigned char>(c);
  return (static_cast<uint32_t>(text.size()) * 0x9E3779B9u) ^ h;
}

}  // namespace rdm

#endif
