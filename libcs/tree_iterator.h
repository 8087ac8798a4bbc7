// SPDX-License-Identifier: MIT
/// The way through a taxonomy's tree.
#ifndef LIBCS_TREE_ITERATOR_H
#define LIBCS_TREE_ITERATOR_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include <libcs/tax.h>

namespace rdm {

/// TreeIterator goes through the subtree of a node without recursion and without memory, however deep it is. It
/// remembers the last steps down; one that is forgotten is found again by the parent pointers.
class TreeIterator {
 public:
  explicit TreeIterator(Classification *start) noexcept : start_(start) { push({start, 0}); }

  /// next_preorder returns the node after the one it returned last, at first after the start, or null at the end.
  Classification *next_preorder() noexcept {
    while (length_ > 0) {
      if (descend()) return top().node;
      pop();
    }
    return nullptr;
  }

  /// next_postorder returns the next node, which may be released, or null after the start.
  Classification *next_postorder() noexcept {
    while (descend()) continue;
    return length_ > 0 ? pop() : nullptr;
  }

 private:
  /// Step is a node and the index of the child that is next.
  struct Step {
    Classification *node;
    int32_t next;
  };

  Step &top() noexcept { return steps_[(length_ - 1) % steps_.size()]; }

  /// descend goes down to the next child; false when there is none.
  bool descend() noexcept {
    if (length_ == 0 || top().next >= top().node->child_count) return false;
    Step &step = top();
    push({step.node->children[step.next++], 0});
    return true;
  }

  void push(Step step) noexcept {
    if (length_ - forgotten_ == steps_.size()) ++forgotten_;
    ++length_;
    top() = step;
  }

  /// pop goes up and returns the node that is left.
  Classification *pop() noexcept {
    Classification *const left = top().node;
    --length_;
    if (length_ > 0 && length_ == forgotten_) {
      top() = step_down_to(left);
      --forgotten_;
    }
    return left;
  }

  /// step_down_to returns the step whose last child was `child`.
  Step step_down_to(const Classification *child) const noexcept {
    // A class at the top level does not point back at the root, where the walk then began.
    Classification *const parent = child->parent != nullptr ? child->parent : start_;
    const std::span children(parent->children, static_cast<size_t>(parent->child_count));
    const auto found = std::find(children.begin(), children.end(), child);
    return {parent, static_cast<int32_t>(found - children.begin()) + (found != children.end() ? 1 : 0)};
  }

  Classification *const start_;
  // A step that is found again costs a look at the siblings, but comes only after as many levels as are kept.
  std::array<Step, 64> steps_;
  size_t length_ = 0;
  size_t forgotten_ = 0;
};

}  // namespace rdm

#endif
