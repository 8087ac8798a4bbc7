/// Where the classes of a taxonomy stand while it is loaded.
#ifndef LIBCS_PLACES_H
#define LIBCS_PLACES_H

#include <algorithm>

#include <libcs/tax.h>

#include "qxapi/name_index.h"

/// Place is the place of a node in the tree.
struct Place {
  Classification *node = nullptr;
  Place *parent = nullptr;  // null for the root
  Place *jump = nullptr;    // an ancestor, for steps of more than one level
  int32_t depth = 0;        // 0 for the root
  int32_t rank = 0;         // among the children of the parent
  int32_t room = 0;         // for children, in the node's array
  Place *former = nullptr;  // the place that was made before this one
  NameLink<Place> in_index = {};
  std::string_view name() const noexcept { return node->id; }
};

/// Places builds a tree by adding last children, and knows of each id the first node in the order of a walk that puts
/// parents first. Adding takes logarithmic time: a tree is loaded in the time of its size, however it is shaped and
/// however often its ids repeat.
class Places {
 public:
  Places() = default;
  Places(const Places &) = delete;
  Places &operator=(const Places &) = delete;
  ~Places() {
    for (Place *place = last_, *former; place != nullptr; place = former) {
      former = place->former;
      trim(*place);
      host_free(place);
    }
    first_of_id_.release();
  }

  /// add_root makes the place of a node without children. False when memory fails.
  bool add_root(Classification *root) noexcept {
    host_ptr<Place> place = make({.node = root});
    if (!place || !first_of_id_.add(place.get())) return false;
    place->jump = place.get();
    keep(place.release());
    return true;
  }

  /// find returns the place of the first node of an id, null when there is none.
  Place *find(const char *id) const noexcept { return first_of_id_.find(id); }

  /// add makes a node, which has an id, the last child of a parent. False when memory fails; the tree is then as it
  /// was.
  bool add(Classification *node, Place *parent) noexcept {
    host_ptr<Place> place = make({.node = node,
                                  .parent = parent,
                                  .jump = jump_from(parent),
                                  .depth = parent->depth + 1,
                                  .rank = parent->node->child_count});
    if (!place || !make_room(*parent)) return false;
    parent->node->children[parent->node->child_count++] = node;
    note(place.get());
    keep(place.release());
    return true;
  }

 private:
  static host_ptr<Place> make(const Place &place) noexcept {
    host_ptr<Place> made = host_new<Place>();
    if (made) *made = place;
    return made;
  }

  void keep(Place *place) noexcept {
    place->former = last_;
    last_ = place;
  }

  /// note puts a place into the index unless it comes after another of its id. The root has made the index.
  void note(Place *place) noexcept {
    const Place *known = find(place->node->id);
    if (known != nullptr && !comes_before(place, known)) return;
    if (known != nullptr) first_of_id_.take(place->name());
    first_of_id_.add(place);
  }

  /// jump_from returns the jump of a new child: by the skew-binary numbers, so that any ancestor is reached in a
  /// logarithmic number of jumps and steps, and places of equal depth jump equally far.
  static Place *jump_from(Place *parent) noexcept {
    const Place &jump = *parent->jump;
    return parent->depth - jump.depth == jump.depth - jump.jump->depth ? jump.jump : parent;
  }

  static const Place *ancestor(const Place *place, int32_t depth) noexcept {
    while (place->depth > depth) place = place->jump->depth >= depth ? place->jump : place->parent;
    return place;
  }

  /// comes_before returns whether a walk that puts parents first meets `a` before `b`, another place.
  static bool comes_before(const Place *a, const Place *b) noexcept {
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

  static bool resize(Place &place, int32_t room) noexcept {
    void *children = host_realloc(place.node->children, static_cast<size_t>(room) * sizeof(Classification *));
    if (children == nullptr) return false;
    place.node->children = static_cast<Classification **>(children);
    place.room = room;
    return true;
  }

  static bool make_room(Place &place) noexcept {
    return place.node->child_count < place.room || resize(place, std::max(1, place.room * 2));
  }

  /// trim leaves the node's array as many entries as there are children.
  static void trim(Place &place) noexcept {
    if (place.node->child_count < place.room) resize(place, place.node->child_count);
  }

  Place *last_ = nullptr;
  NameIndex<Place> first_of_id_{};
};

#endif
