// SPDX-License-Identifier: MIT
/// Which attributes an accept list selects. Header only.
#ifndef LIBCS_SOIF_SELECTION_H
#define LIBCS_SOIF_SELECTION_H

#include <algorithm>
#include <string_view>

#include "qxapi/ascii.h"

namespace rdm::soif {

/// is_numbered_instance returns true if `attribute` is `base` in any letter case, a hyphen and a decimal number.
inline bool is_numbered_instance(std::string_view base, std::string_view attribute) noexcept {
  if (attribute.size() < base.size() + 2 || attribute[base.size()] != '-') return false;
  const std::string_view number = attribute.substr(base.size() + 1);
  return ascii::istarts_with(attribute, base) &&
         std::all_of(number.begin(), number.end(), [](char c) { return ascii::is_digit(c); });
}

/// selects returns true if an entry of an accept list is `name`, or the base of which `name` is a numbered instance.
/// `name` is in lower case; the entry must be, too, to select the name itself. It reads the entry only as far as the
/// two agree: taking strlen() of a long entry for each attribute of each object would be slow.
inline bool selects(const char *entry, std::string_view name) noexcept {
  size_t length = 0;
  while (length < name.size() && entry[length] != '\0' && ascii::lower(entry[length]) == name[length]) ++length;
  if (entry[length] != '\0') return false;
  const std::string_view whole(entry, length);
  return name == whole || is_numbered_instance(whole, name);
}

/// is_selected returns true if a null-terminated accept list selects `name`. A null list selects every name.
inline bool is_selected(const char *const *accept, std::string_view name) noexcept {
  if (accept == nullptr) return true;
  for (; *accept != nullptr; ++accept)
    if (selects(*accept, name)) return true;
  return false;
}

}  // namespace rdm::soif

#endif
