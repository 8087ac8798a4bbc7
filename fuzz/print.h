// SPDX-License-Identifier: MIT
/// Prints and compares SOIF objects for the fuzzers.
#ifndef FUZZ_PRINT_H
#define FUZZ_PRINT_H

#include <string>
#include <utility>
#include <vector>

#include "libcs/guard.h"

namespace rdm::fuzz {

inline std::string print(const SOIF *object) {
  std::string text;
  const soif_output_fn append = [](void *to, const void *bytes, int32_t length) {
    static_cast<std::string *>(to)->append(static_cast<const char *>(bytes), static_cast<size_t>(length));
    return 0;
  };
  SoifWriter(append, &text).print(object);
  return text;
}

/// attributes returns names and values in the order of the table.
inline std::vector<std::pair<std::string, std::string>> attributes(const cshashtable &table) {
  std::vector<std::pair<std::string, std::string>> all;
  for (int32_t i = 0; i < table.nbuckets; ++i)
    for (const cslist_node *node = table.buckets[i]->head; node != nullptr; node = node->next) {
      const auto *pair = static_cast<const AVPair *>(node->data);
      all.emplace_back(pair->attribute, std::string(pair->value, static_cast<size_t>(pair->vsize)));
    }
  return all;
}

/// same returns true if two objects are equal in all their parts.
inline bool same(const SOIF &one, const SOIF &other) {
  return std::string_view(one.template_name) == other.template_name && std::string_view(one.url) == other.url &&
         one.attr_count == other.attr_count && one.value_bytes == other.value_bytes &&
         attributes(*one.attrs) == attributes(*other.attrs);
}

}  // namespace rdm::fuzz

#endif
