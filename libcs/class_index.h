// SPDX-License-Identifier: MIT
/// Where the classes of a taxonomy stand while it is loaded.
#ifndef LIBCS_CLASS_INDEX_H
#define LIBCS_CLASS_INDEX_H

#include <algorithm>

#include <libcs/tax.h>

#include "qxapi/name_index.h"

namespace rdm {

/// IndexedClass is the entry of a node in the tree.
struct IndexedClass {
  Classification *node = nullptr;
  IndexedClass *parent = nullptr;  // null for the root
  IndexedClass *jump = nullptr;    // an ancestor, for steps of more than one level
  int32_t depth = 0;               // 0 for the root
  int32_t rank = 0;                // among the children of the parent
  int32_t capacity = 0;            // for children, in the node's array
  IndexedClass *former = nullptr;  // the entry that was made before this one
  NameLink<IndexedClass> in_index = {};
  std::string_view name() const noexcept { return node->id; }
};

/// ClassIndex builds a tree by adding last children, and knows of each id the first node in the order of a walk that
/// puts parents first. Adding takes logarithmic time: a tree is loaded in the time of its size, however it is shaped
/// and however often its ids repeat.
class ClassIndex {
 public:
  ClassIndex() = default;
  ClassIndex(const ClassIndex &) = delete;
  ClassIndex &operator=(const ClassIndex &) = delete;
  ~ClassIndex() {
    for (IndexedClass *entry = last_, *former; entry != nullptr; entry = former) {
      former = entry->former;
      trim(*entry);
      host_free(entry);
    }
    first_of_id_.release();
  }

  /// add_root makes the entry of a node without children. False when memory fails.
  bool add_root(Classification *root) noexcept {
    HostPtr<IndexedClass> entry = make({.node = root});
    if (!entry || !first_of_id_.add(entry.get())) return false;
    entry->jump = entry.get();
    keep(entry.release());
    return true;
  }

  /// find returns the entry of the first node of an id, null when there is none.
  IndexedClass *find(const char *id) const noexcept { return first_of_id_.find(id); }

  /// add makes a node, which has an id, the last child of a parent. False when memory fails; the tree is then as it
  /// was.
  bool add(Classification *node, IndexedClass *parent) noexcept {
    HostPtr<IndexedClass> entry = make({.node = node,
                                        .parent = parent,
                                        .jump = jump_from(parent),
                                        .depth = parent->depth + 1,
                                        .rank = parent->node->child_count});
    if (!entry || !reserve_child(*parent)) return false;
    parent->node->children[parent->node->child_count++] = node;
    note(entry.get());
    keep(entry.release());
    return true;
  }

 private:
  static HostPtr<IndexedClass> make(const IndexedClass &entry) noexcept {
    HostPtr<IndexedClass> made = host_new<IndexedClass>();
    if (made) *made = entry;
    return made;
  }

  void keep(IndexedClass *entry) noexcept {
    entry->former = last_;
    last_ = entry;
  }

  /// note puts a entry into the index unless it comes after another of its id. The root has made the index.
  void note(IndexedClass *entry) noexcept {
    const IndexedClass *known = find(entry->node->id);
    if (known != nullptr && !comes_before(entry, known)) return;
    if (known != nullptr) first_of_id_.take(entry->name());
    first_of_id_.add(entry);
  }

  /// jump_from returns the jump of a new child: by the skew-binary numbers, so that any ancestor is reached in a
  /// logarithmic number of jumps and steps, and classes of equal depth jump equally far.
  static IndexedClass *jump_from(IndexedClass *parent) noexcept {
    const IndexedClass &jump = *parent->jump;
    return parent->depth - jump.depth == jump.depth - jump.jump->depth ? jump.jump : parent;
  }

  static const IndexedClass *ancestor(const IndexedClass *entry, int32_t depth) noexcept {
    while (entry->depth > depth) entry = entry->jump->depth >= depth ? entry->jump : entry->parent;
    return entry;
  }

  /// comes_before returns whether a walk that puts parents first meets `a` before `b`, another entry.
  static bool comes_before(const IndexedClass *a, const IndexedClass *b) noexcept {
    const int32_t depth = std::min(a->depth, b->depth);
    const bool a_is_higher = a->depth == depth;
    a = ancestor(a, depth);
    b = ancestor(b, depth);
    if (a == b) return a_is_higher;
    while (a->parent != b->parent) {
      const bool jumps = a->jump != b->jump;
      a = jumps ? a->jump : a->parent;
      b = jumps ? b->jump : b->parent;
    }
    return a->rank < b->rank;
  }

  static bool resize(IndexedClass &entry, int32_t capacity) noexcept {
    void *children = host_realloc(entry.node->children, static_cast<size_t>(capacity) * sizeof(Classification *));
    if (children == nullptr) return false;
    entry.node->children = static_cast<Classification **>(children);
    entry.capacity = capacity;
    return true;
  }

  static bool reserve_child(IndexedClass &entry) noexcept {
    return entry.node->child_count < entry.capacity || resize(entry, std::max(1, entry.capacity * 2));
  }

  /// trim leaves the node's array as many entries as there are children.
  static void trim(IndexedClass &entry) noexcept {
    if (entry.node->child_count < entry.capacity) resize(entry, entry.node->child_count);
  }

  IndexedClass *last_ = nullptr;
  NameIndex<IndexedClass> first_of_id_{};
};

}  // namespace rdm

#endif
