// SPDX-License-Identifier: MIT
/// Making and reading SOIF objects.
#ifndef TESTS_LIBCS_SOIF_OBJECTS_H
#define TESTS_LIBCS_SOIF_OBJECTS_H

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

#include "libcs/guard.h"

namespace rdm::support {

inline std::string bytes_of(const AVPair &pair) { return {pair.value, static_cast<size_t>(pair.vsize)}; }

/// attributes_of returns all attributes of an object by name.
inline std::multimap<std::string, std::string> attributes_of(const SOIF *object) {
  std::multimap<std::string, std::string> attributes;
  for (int32_t i = 0; i < object->attrs->nbuckets; ++i)
    for (const cslist_node *node = object->attrs->buckets[i]->head; node != nullptr; node = node->next) {
      const auto &pair = *static_cast<const AVPair *>(node->data);
      attributes.emplace(pair.attribute, bytes_of(pair));
    }
  return attributes;
}

inline int insert(const SoifPtr &object, const char *name, std::string_view value) {
  return soif_insert(object.get(), name, value.data(), static_cast<int32_t>(value.size()));
}

/// value_of returns the bytes of an attribute, or "(none)".
inline std::string value_of(const SoifPtr &object, const char *name) {
  const AVPair *pair = soif_find(object.get(), name);
  return pair != nullptr ? bytes_of(*pair) : "(none)";
}

/// open_streams counts the slots in use.
inline long open_streams() {
  return std::count_if(std::begin(_soif_state), std::end(_soif_state), [](const soif_stream &s) { return s.in_use; });
}

}  // namespace rdm::support

#endif
