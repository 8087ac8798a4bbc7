// SPDX-License-Identifier: MIT
/// Parses any bytes as SOIF in memory.

#include <algorithm>
#include <cstring>

#include "fuzz/fuzz.h"
#include "libcs/guard.h"

using namespace rdm;

namespace {

void check(const AVPair &pair) {
  const std::string_view name = pair.attribute;
  fuzz::require(std::none_of(name.begin(), name.end(), [](char c) { return c >= 'A' && c <= 'Z'; }),
                "an attribute name has an upper case letter");
  fuzz::require(pair.vsize >= 0 && pair.value[pair.vsize] == '\0', "a value has no NUL at its end");
}

int64_t check_attributes(const cshashtable &table) {
  int64_t bytes = 0;
  for (int32_t i = 0; i < table.nbuckets; ++i)
    for (const cslist_node *node = table.buckets[i]->head; node != nullptr; node = node->next) {
      const auto *pair = static_cast<const AVPair *>(node->data);
      check(*pair);
      bytes += pair->vsize;
    }
  return bytes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  SoifReader reader(fuzz::text(data, size));
  while (!reader.at_end()) {
    const SoifPtr object = reader.next();
    if (!object) continue;
    fuzz::require(check_attributes(*object->attrs) == object->value_bytes,
                  "value_bytes is not the sum of the value sizes");
    // Only the last value may end past the text, within a limit.
    fuzz::require(object->value_bytes <= static_cast<int64_t>(size) + 65536,
                  "a value was padded by more than 65536 bytes");
    fuzz::require(std::strlen(object->url) < 4096, "a URL has 4096 bytes or more");
  }
  return 0;
}
