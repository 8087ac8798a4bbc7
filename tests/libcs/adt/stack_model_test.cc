// SPDX-License-Identifier: MIT
/// Stacks under random operations, compared with one variable: a stack holds the latest item only.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "support/diagnostics.h"
#include "support/memory_host.h"
#include "support/model.h"

using namespace rdm;

namespace {

using support::same;

/// A push of one of the items, of null, of an item without memory; or a pop.
struct Operation {
  enum class Kind { push, push_null, push_without_memory, pop } kind = Kind::pop;
  size_t item = 0;
};

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const names[] = {"push ", "push null", "push without memory ", "pop"};
  out << names[static_cast<size_t>(operation.kind)];
  if (operation.kind == Operation::Kind::push || operation.kind == Operation::Kind::push_without_memory)
    out << operation.item;
}

rc::Gen<Operation> operations() {
  using Kind = Operation::Kind;
  return rc::gen::build<Operation>(
      rc::gen::set(&Operation::kind,
                   rc::gen::weightedElement<Kind>(
                       {{8, Kind::push}, {1, Kind::push_null}, {1, Kind::push_without_memory}, {6, Kind::pop}})),
      rc::gen::set(&Operation::item, rc::gen::element<size_t>(0, 1, 2)));
}

class Case {
 public:
  Case() { csstack_create(&stack_); }
  Case(const Case &) = delete;
  Case &operator=(const Case &) = delete;
  ~Case() {
    if (stack_ != nullptr) csstack_free(stack_);
    for (cslist_node *node : dropped_) host_free(node);
  }

  void apply(const Operation &operation) {
    if (operation.kind == Operation::Kind::pop)
      pop();
    else
      push(operation);
    same("count", stack_->count, count_);
    same("items within reach", cslist_count(stack_), latest_ != nullptr ? 1 : 0);
    same("latest item", csqueue_peek(stack_), static_cast<void *>(latest_));
  }

  void end() {
    const int32_t missing = count_ - (latest_ != nullptr ? 1 : 0);
    same("free", csstack_free(stack_), 0u);
    stack_ = nullptr;
    same("log", log_.text(),
         missing == 0 ? "" : "WARNING: Unknown " + std::to_string(missing) + " items on linked list?\n");
    same("blocks", support::host_record().live_blocks, static_cast<long>(dropped_.size()));
    same("items", std::string(items_, sizeof items_), "abc");
  }

 private:
  void push(const Operation &operation) {
    support::HostRecord &host = support::host_record();
    const bool is_stored = operation.kind == Operation::Kind::push;
    if (operation.kind == Operation::Kind::push_without_memory) host.fail_allocation = host.allocations + 1;
    char *const item = operation.kind == Operation::Kind::push_null ? nullptr : &items_[operation.item];
    cslist_node *const before = stack_->head;
    same("push", csstack_push(stack_, item), is_stored ? 0u : 1u);
    host.fail_allocation = 0;
    if (!is_stored) return;
    if (before != nullptr) dropped_.push_back(before);
    latest_ = item;
    ++count_;
  }
  void pop() {
    same("pop", csstack_pop(stack_), static_cast<void *>(latest_));
    if (latest_ != nullptr) --count_;
    latest_ = nullptr;
  }

  support::Diagnostics log_;
  csstack *stack_ = nullptr;
  char items_[3] = {'a', 'b', 'c'};
  char *latest_ = nullptr;
  int32_t count_ = 0;
  std::vector<cslist_node *> dropped_;
};

class StackModel : public support::HostTest {};

TEST_F(StackModel, AnyOrderOfOperations) { support::check_operations<Case>(500, operations()); }

}  // namespace
