// SPDX-License-Identifier: MIT
#include "tools/rdmctl/classes.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

#include <libcs/soif.h>
#include <libcs/tax.h>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "libcs/guard.h"

namespace rdm::rdmctl {
namespace {

void release(Taxonomy *taxonomy) {
  taxonomy_destroy(taxonomy);
  host_free(taxonomy);
}

using TaxonomyGuard = std::unique_ptr<Taxonomy, Deleter<release>>;

std::string text_or_nothing(const char *text) { return text == nullptr ? "" : text; }

/// Walk receives the nodes in pre-order.
struct Walk {
  const Taxonomy *taxonomy;
  std::vector<Class> classes;
};

void add(Classification *node, void *argument) {
  Walk &walk = *static_cast<Walk *>(argument);
  if (node == walk.taxonomy->root) return;
  const int depth = taxonomy_depth(walk.taxonomy, node);
  walk.classes.push_back({text_or_nothing(node->id), text_or_nothing(node->description),
                          node->parent != nullptr ? text_or_nothing(node->parent->id) : "", depth});
}

}  // namespace

Classes::Classes(const std::string &path) {
  catalog::require_regular(path);
  if (::access(path.c_str(), R_OK) != 0) throw catalog::system_failure("cannot read " + path);
  const TaxonomyGuard taxonomy(taxonomy_load(path.c_str()));
  if (!taxonomy || taxonomy->id == nullptr) throw catalog::Failure("no taxonomy in " + path);
  id_ = taxonomy->id;
  Walk walk{taxonomy.get(), {}};
  taxonomy_walk(taxonomy.get(), 0, add, &walk);
  all_ = std::move(walk.classes);
  for (const Class &one : all_) ids_.insert(one.id);
}

void each_class_of(const catalog::ObjectView &description, const std::function<void(const std::string &id)> &visit) {
  description.each([&](std::string_view name, std::string_view value) {
    const std::string text(name);
    if (name == "classification" || soif_multivalue_attrcmp("classification", text.c_str()) == 1)
      visit(std::string(value));
  });
}

}  // namespace rdm::rdmctl
