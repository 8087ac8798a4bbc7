// SPDX-License-Identifier: MIT
/// A parsed and printed object must parse to the same object again, except for empty values, which are not printed, and
/// must print to the same bytes.

#include "fuzz/fuzz.h"
#include "fuzz/print.h"

using namespace rdm;

namespace {

auto printed_attributes(const SOIF &object) {
  auto attributes = fuzz::attributes(*object.attrs);
  std::erase_if(attributes, [](const auto &attribute) { return attribute.second.empty(); });
  return attributes;
}

bool is_as_printed(const SOIF &again, const SOIF &object) {
  const auto attributes = fuzz::attributes(*again.attrs);
  return std::string_view(again.template_name) == object.template_name && std::string_view(again.url) == object.url &&
         attributes == printed_attributes(object) && again.attr_count == static_cast<int32_t>(attributes.size()) &&
         again.value_bytes == object.value_bytes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  SoifReader reader(fuzz::text(data, size));
  while (!reader.at_end()) {
    const SoifPtr object = reader.next();
    if (!object) continue;
    const std::string once = fuzz::print(object.get());
    const SoifPtr again = SoifReader(once).next();
    fuzz::require(again != nullptr && is_as_printed(*again, *object), "printing and parsing changed an object");
    fuzz::require(fuzz::print(again.get()) == once, "a second print differs from the first");
  }
  return 0;
}
