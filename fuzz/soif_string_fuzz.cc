// SPDX-License-Identifier: MIT
/// Parses any bytes as SOIF in memory, and reads attributes in place, which must give the same.

#include <algorithm>
#include <cstring>

#include "fuzz/fuzz.h"
#include "libcs/guard.h"
#include "libcs/soif/field_reader.h"

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

/// check_field requires that a field of an object was read as the parser did.
void check_field(const soif::Field &field, const SOIF *object) {
  const AVPair *pair = object != nullptr ? soif_find(object, field.name.data()) : nullptr;
  fuzz::require((field.value != nullptr) == (pair != nullptr), "a field was not read as an attribute");
  if (pair != nullptr)
    fuzz::require(std::memcmp(field.value, pair->value, static_cast<size_t>(pair->vsize) + 1) == 0,
                  "a field has another value");
}

/// check_fields reads the fields of a text, and its objects again.
void check_fields(std::string text) {
  const std::string original = text;
  SoifReader objects(original);
  soif::FieldReader reader(text.data(), text.size());
  soif::Field fields[] = {{"title"}, {"author"}, {"a"}, {""}};
  while (!objects.at_end()) {
    const SoifPtr object = objects.next();
    fuzz::require(reader.next(fields) == (object != nullptr), "an object was not read in place");
    fuzz::require(original.size() - reader.left() == static_cast<size_t>(objects.position()),
                  "an object was read to another place");
    if (!object) continue;
    fuzz::require(reader.template_name() == object->template_name, "an object has another template");
    for (const soif::Field &field : fields) check_field(field, object.get());
  }
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
  check_fields(std::string(fuzz::text(data, size)));
  return 0;
}
