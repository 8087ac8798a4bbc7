// SPDX-License-Identifier: MIT
/// Reads any text as a taxonomy file.

#include <libcs/tax.h>

#include "fuzz/fuzz.h"
#include "qxapi/guard.h"

using namespace rdm;

namespace {

struct Walk {
  Taxonomy *taxonomy;
  int nodes = 0;
};

void visit(Classification *node, void *argument) {
  auto *walk = static_cast<Walk *>(argument);
  ++walk->nodes;
  fuzz::require(taxonomy_find(walk->taxonomy, node->id) != nullptr, "a visited node is not found by its id");
  fuzz::require(taxonomy_depth(walk->taxonomy, node) >= 0, "a node has a negative depth");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const fuzz::MemoryFile file(fuzz::text(data, size));
  const HostPtr<Taxonomy> taxonomy(taxonomy_load(file.path().c_str()));
  if (!taxonomy) return 0;
  Walk down{taxonomy.get()}, up{taxonomy.get()};
  taxonomy_walk(taxonomy.get(), 1, visit, &down);
  taxonomy_walk(taxonomy.get(), 2, visit, &up);
  fuzz::require(down.nodes == up.nodes && down.nodes > 0, "two walks visited different numbers of nodes, or none");
  taxonomy_destroy(taxonomy.get());
  return 0;
}
