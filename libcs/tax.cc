// SPDX-License-Identifier: MIT
#include <cstring>
#include <string_view>

#include <libcs/log.h>
#include <libcs/tax.h>

#include "libcs/class_index.h"
#include "libcs/guard.h"
#include "libcs/tree_iterator.h"
#include "qxapi/ascii.h"
#include "qxapi/fatal.h"

using namespace rdm;

namespace {

constexpr char root_id[] = "ROOT";
constexpr int info_slots = 7;

constexpr int parents_first = 0, children_first = 2;

using NodePtr = std::unique_ptr<Classification, Deleter<classification_destroy>>;

void release_taxonomy(Taxonomy *t) {
  taxonomy_destroy(t);
  host_free(t);
}
using TaxonomyPtr = std::unique_ptr<Taxonomy, Deleter<release_taxonomy>>;

bool equals(const char *a, const char *b) { return a != nullptr && b != nullptr && std::strcmp(a, b) == 0; }

const char *shown(const char *text) { return text != nullptr ? text : "(null)"; }

char *copy_of(const char *text) { return text != nullptr ? host_strdup(text) : nullptr; }

Classification *find_below(Classification *node, const char *id) {
  if (node == nullptr) return nullptr;
  TreeIterator trail(node);
  while (node != nullptr && !equals(node->id, id)) node = trail.next_preorder();
  return node;
}

/// classification_add_child appends to the parent's array of children. Returns false if allocation fails.
bool classification_add_child(Classification *parent, Classification *child) {
  QX_REQUIRE(parent != nullptr, "tax", "a child has a parent");
  const auto slots = static_cast<size_t>(parent->child_count) + 1;
  auto *children = static_cast<Classification **>(host_realloc(parent->children, slots * sizeof(void *)));
  if (children == nullptr) return false;
  parent->children = children;
  children[parent->child_count++] = child;
  return true;
}

/// is_root returns true if a parent's id, which may be null, means the root.
bool is_root(const char *parent_id) { return parent_id == nullptr || std::strcmp(parent_id, root_id) == 0; }

/// link_back sets the parent of a child: null for a class at the top level.
void link_back(Classification *child, Classification *parent, const char *parent_id) {
  child->parent = is_root(parent_id) ? nullptr : parent;
}

void report_insertion(const char *id, const char *parent_id) {
  CSLOG(CSLOG_ERROR, "tax", "Cannot insert '%s' into parent '%s'\n", shown(id), shown(parent_id));
}

TaxonomyPtr make_taxonomy() {
  HostPtr<Taxonomy> record = host_new<Taxonomy>();
  if (!record) return nullptr;
  TaxonomyPtr taxonomy(record.release());
  taxonomy->info = host_param_create(info_slots);
  taxonomy->root = classification_create();
  if (taxonomy->info == nullptr || taxonomy->root == nullptr) return nullptr;
  taxonomy->root->id = host_strdup(root_id);
  return taxonomy->root->id != nullptr ? std::move(taxonomy) : nullptr;
}

void add_info(Taxonomy &taxonomy, const char *name, const char *value) {
  if (value != nullptr) host_param_add(name, value, taxonomy.info);
}

/// take_taxonomy stores the attributes of a TAXONOMY object with an id, unless an earlier one did.
void take_taxonomy(Taxonomy &taxonomy, const SOIF *object) {
  const char *id = soif_findval(object, "id");
  if (id == nullptr || taxonomy.id != nullptr) return;
  taxonomy.id = host_strdup(id);
  if (taxonomy.id == nullptr) return;
  add_info(taxonomy, "url", object->url);
  for (const char *name : {"last-modified", "maintainer"}) add_info(taxonomy, name, soif_findval(object, name));
}

bool belongs_to(const Taxonomy &taxonomy, const char *taxonomy_id) {
  return taxonomy.id != nullptr && ascii::iequals(taxonomy.id, taxonomy_id);
}

NodePtr make_node(const char *id, const char *description) {
  NodePtr node(classification_create());
  if (!node) return nullptr;
  node->id = host_strdup(id);
  node->description = copy_of(description);
  const bool complete = node->id != nullptr && (description == nullptr || node->description != nullptr);
  return complete ? std::move(node) : nullptr;
}

/// add_class adds a node, which then belongs to the tree. Returns false if there is no such parent or allocation fails.
bool add_class(ClassIndex &classes, Classification *node, const char *parent_id) {
  IndexedClass *parent = classes.find(parent_id);
  if (parent == nullptr || !classes.add(node, parent)) return false;
  link_back(node, parent->node, parent_id);
  return true;
}

/// take_class inserts the class of a CLASSIFICATION object.
void take_class(const Taxonomy &taxonomy, ClassIndex &classes, const SOIF *object) {
  const char *id = soif_findval(object, "id");
  const char *parent_id = soif_findval(object, "parent-id");
  const char *taxonomy_id = soif_findval(object, "taxonomy-id");
  if (id == nullptr || parent_id == nullptr || taxonomy_id == nullptr) {
    CSLOG(CSLOG_WARNING, "tax", "taxonomy_load: Malformed: %s\n", object->url);
    return;
  }
  if (!belongs_to(taxonomy, taxonomy_id)) {
    CSLOG(CSLOG_WARNING, "tax", "taxonomy_load: Misfit: %s\n", object->url);
    return;
  }
  NodePtr node = make_node(id, soif_findval(object, "description"));
  if (node && add_class(classes, node.get(), parent_id))
    static_cast<void>(node.release());
  else
    report_insertion(id, parent_id);
}

/// read_objects reads the file to its end or to a read error.
void read_objects(Taxonomy &taxonomy, ClassIndex &classes, FILE *file) {
  for (SoifReader reader(file);;) {
    const SoifPtr object = reader.next();
    if (!object && (reader.at_end() || std::ferror(file) != 0)) return;
    if (!object) continue;
    if (ascii::iequals(object->template_name, "TAXONOMY"))
      take_taxonomy(taxonomy, object.get());
    else if (ascii::iequals(object->template_name, "CLASSIFICATION"))
      take_class(taxonomy, classes, object.get());
  }
}

}  // namespace

Taxonomy *taxonomy_load(const char *path) noexcept {
  const StdioPtr file = open_stdio(path);
  if (!file) {
    const char *reason = host_last_error_text();
    CSLOG(CSLOG_ERROR, "tax", "taxonomy_load: %s: %s\n", shown(path), reason);
    return nullptr;
  }
  TaxonomyPtr taxonomy = make_taxonomy();
  ClassIndex classes;
  if (!taxonomy || !classes.add_root(taxonomy->root)) return nullptr;
  read_objects(*taxonomy, classes, file.get());
  return taxonomy.release();
}

int taxonomy_insert(Taxonomy *t, Classification *node, const char *parent_id) noexcept {
  Classification *parent = taxonomy_find(t, is_root(parent_id) ? root_id : parent_id);
  node->parent = nullptr;
  if ((is_root(parent_id) || parent != nullptr) && classification_add_child(parent, node))
    link_back(node, parent, parent_id);
  else
    report_insertion(node->id, parent_id);
  // Callers rely on 0 even if the node was not inserted and still belongs to them.
  return 0;
}

Classification *taxonomy_find(Taxonomy *t, const char *id) noexcept {
  if (t == nullptr || id == nullptr) return nullptr;
  return std::strcmp(id, root_id) == 0 ? t->root : find_below(t->root, id);
}

void taxonomy_walk(Taxonomy *t, int mode, classification_fn fn, void *argument) noexcept {
  if (t != nullptr) classification_walk(t->root, mode, fn, argument);
}

void classification_walk(Classification *node, int mode, classification_fn fn, void *argument) noexcept {
  if (node == nullptr || fn == nullptr || mode < parents_first || mode > children_first) return;
  TreeIterator trail(node);
  if (mode == children_first)
    while (Classification *left = trail.next_postorder()) fn(left, argument);
  else
    for (; node != nullptr; node = trail.next_preorder()) fn(node, argument);
}

int taxonomy_depth(const Taxonomy *, const Classification *node) noexcept {
  int depth = 0;
  for (; node != nullptr && node->id != nullptr && std::strcmp(node->id, root_id) != 0; node = node->parent) ++depth;
  return depth;
}

void taxonomy_destroy(Taxonomy *t) noexcept {
  if (t == nullptr) return;
  taxonomy_walk(
      t, children_first, [](Classification *node, void *) { classification_destroy(node); }, nullptr);
  host_param_free(t->info);
  host_free(t->id);
  *t = Taxonomy{};
}

Classification *classification_create() noexcept { return host_new<Classification>().release(); }

void classification_destroy(Classification *node) noexcept {
  if (node == nullptr) return;
  host_free(node->id);
  host_free(node->description);
  host_free(node->children);
  host_free(node);
}
