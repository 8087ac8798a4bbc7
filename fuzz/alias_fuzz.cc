// SPDX-License-Identifier: MIT
/// Reads any text as an alias file.

#include "fuzz/fuzz.h"
#include "service/alias.h"

using namespace rdm;

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const fuzz::MemoryFile file(fuzz::text(data, size));
  pblock *a2p = nullptr, *p2a = nullptr;
  fuzz::require(alias_init(&a2p, &p2a, file.path().c_str()) == 0, "alias_init refused a readable file");
  for (const char *name : {"a", "parent", "alias"}) {
    const char *parent = alias_to_parent(a2p, name);
    if (parent != nullptr) fuzz::require(alias_to_parent(a2p, parent) != nullptr, "a parent is not found as an alias");
    if (parent != nullptr) fuzz::require(alias_iterate(p2a, parent) == nullptr, "a chain of aliases does not end");
  }
  alias_destroy(a2p, p2a);
  return 0;
}
