// SPDX-License-Identifier: MIT
/// The default callbacks of lists and hash tables, besides the C library's free().
#ifndef LIBCS_ADT_STRINGS_H
#define LIBCS_ADT_STRINGS_H

#include <cstring>

namespace rdm {

inline void *copy_string(const void *item) noexcept { return ::strdup(static_cast<const char *>(item)); }

inline int compare_strings(const void *item, const void *key) noexcept {
  return std::strcmp(static_cast<const char *>(item), static_cast<const char *>(key));
}

}  // namespace rdm

#endif
