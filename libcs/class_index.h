// SPDX-License-Identifier: MIT
/// An index of the classes of a taxonomy while it is loaded.
#ifndef LIBCS_CLASS_INDEX_H
#define LIBCS_CLASS_INDEX_H

#include <algorithm>

#include <libcs/tax.h>

#include "qxapi/name_index.h"

namespace rdm {

/// IndexedClass is the position of a node in the tree.
struct IndexedClass {
  Classification *node = nullptr;
  IndexedClass *parent = nullptr;  // null for the root
  IndexedClass *jump = nullptr;    // an ancestor several levels up
  int32_t depth = 0;               // 0 for the root
  int32_t rank = 0;                // index among the children of the parent
  int32_t capacity = 0;            // of the node's array of children
  IndexedClass *former = nullptr;  // the entry created before this one
  NameLink<IndexedClass> in_index = {};
  std::string_view name() const noexcept { return node->id; }
};

/// ClassIndex builds a tree by appending children and finds the first node of each id in pre-order. Adding a node takes
/// logarithmic time, for every shape of the tree and any number of repeated ids.
class ClassIndex {
 public:
  ClassIndex() = default;
  ClassIndex(const ClassIndex &) = delete;
  ClassIndex &operator=(const ClassIndex &) = delete;
  ~ClassIndex() {
    for (IndexedClass *entry = last_, *former = nullptr; entry != nullptr; entry = former) {
      former = entry->former;
      trim(*entry);
      host_free(entry);
    }
    first_of_id_.release();
  }

  /// add_root adds a root without children. Returns false if allocation fails.
  bool add_root(Classification *root) noexcept {
    HostPtr<IndexedClass> entry = make({.node = root});
    if (!entry || !first_of_id_.add(entry.get())) return false;
    entry->jump = entry.get();
    own(entry.release());
    return true;
  }

  /// find returns the entry of the first node of an id, or null.
  IndexedClass *find(const char *id) const noexcept { return first_of_id_.find(id); }

  /// add makes a node, which must have an id, the last child of a parent. Returns false, with the tree unchanged, if
  /// allocation fails.
  bool add(Classification *node, IndexedClass *parent) noexcept {
    HostPtr<IndexedClass> entry = make({.node = node,
                                        .parent = parent,
                                        .jump = jump_from(parent),
                                        .depth = parent->depth + 1,
                                        .rank = parent->node->child_count});
    if (!entry || !reserve_child(*parent)) return false;
    parent->node->children[parent->node->child_count++] = node;
    index_first(entry.get());
    own(entry.release());
    return true;
  }

 private:
  static HostPtr<IndexedClass> make(const IndexedClass &entry) noexcept {
    HostPtr<IndexedClass> made = host_new<IndexedClass>();
    if (made) *made = entry;
    return made;
  }

  void own(IndexedClass *entry) noexcept {
    entry->former = last_;
    last_ = entry;
  }

  /// index_first adds an entry to the index unless it follows another of the same id in pre-order. add_root has
  /// allocated the index.
  void index_first(IndexedClass *entry) noexcept {
    const IndexedClass *known = find(entry->node->id);
    if (known != nullptr && !comes_before(entry, known)) return;
    if (known != nullptr) first_of_id_.take(entry->name());
    first_of_id_.add(entry);
  }

  /// jump_from returns the jump pointer of a new child (skew-binary jump pointers): any ancestor is reached in a
  /// logarithmic number of steps, and classes of equal depth jump equally far.
  static IndexedClass *jump_from(IndexedClass *parent) noexcept {
    const IndexedClass &jump = *parent->jump;
    return parent->depth - jump.depth == jump.depth - jump.jump->depth ? jump.jump : parent;
  }

  static const IndexedClass *ancestor(const IndexedClass *entry, int32_t depth) noexcept {
    while (entry->depth > depth) entry = entry->jump->depth >= depth ? entry->jump : entry->parent;
    return entry;
  }

  /// comes_before returns true if `a` precedes `b`, another entry, in pre-order.
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

  /// trim shrinks the node's array to the number of its children.
  static void trim(IndexedClass &entry) noexcept {
    if (entry.node->child_count < entry.capacity) resize(entry, entry.node->child_count);
  }

  IndexedClass *last_ = nullptr;
  NameIndex<IndexedClass> first_of_id_{};
};

}  // namespace rdm

#endif
