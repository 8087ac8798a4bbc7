// SPDX-License-Identifier: MIT
/// Iterating over a taxonomy's tree.
#ifndef LIBCS_TREE_ITERATOR_H
#define LIBCS_TREE_ITERATOR_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include <libcs/tax.h>

namespace rdm {

/// TreeIterator visits the subtree of a node in pre-order or post-order, without recursion and without allocating, at
/// any depth. It stores the deepest 64 steps; older steps are restored from the parent pointers.
class TreeIterator {
 public:
  explicit TreeIterator(Classification *start) noexcept : start_(start) { push({start, 0}); }

  /// next_preorder returns the next node in pre-order, beginning after the start, or null at the end.
  Classification *next_preorder() noexcept {
    while (length_ > 0) {
      if (descend()) return top().node;
      pop();
    }
    return nullptr;
  }

  /// next_postorder returns the next node in post-order, ending with the start, then null. The caller may release the
  /// node.
  Classification *next_postorder() noexcept {
    while (descend()) continue;
    return length_ > 0 ? pop() : nullptr;
  }

 private:
  /// Step is a node and the index of its next child.
  struct Step {
    Classification *node;
    int32_t next;
  };

  Step &top() noexcept { return steps_[(length_ - 1) % steps_.size()]; }

  /// descend moves to the next child. Returns false if there is none left.
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

  /// pop moves to the parent and returns the node that it leaves.
  Classification *pop() noexcept {
    Classification *const left = top().node;
    --length_;
    if (length_ > 0 && length_ == forgotten_) {
      top() = step_down_to(left);
      --forgotten_;
    }
    return left;
  }

  /// step_down_to returns the step of the parent of `child`, with the next child after it.
  Step step_down_to(const Classification *child) const noexcept {
    // A class at the top level has no parent pointer: the walk then started at the root.
    Classification *const parent = child->parent != nullptr ? child->parent : start_;
    const std::span children(parent->children, static_cast<size_t>(parent->child_count));
    const auto found = std::find(children.begin(), children.end(), child);
    return {parent, static_cast<int32_t>(found - children.begin()) + (found != children.end() ? 1 : 0)};
  }

  Classification *const start_;
  // Restoring a step searches the siblings, but happens only once in 64 levels.
  std::array<Step, 64> steps_;
  size_t length_ = 0;
  size_t forgotten_ = 0;
};

}  // namespace rdm

#endif
