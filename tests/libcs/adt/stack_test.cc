// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "libcs/guard.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

class Stack : public support::HostTest {
 protected:
  csstack *make_stack() {
    csstack *stack = nullptr;
    EXPECT_EQ(csstack_create(&stack), 0u);
    return stack;
  }

  support::Diagnostics log;
  char a[2] = "a", b[2] = "b";
};

TEST_F(Stack, KeepsPointersAndComparesStrings) {
  csstack *stack = make_stack();
  EXPECT_EQ(stack->copy, cslist_copy_nop);
  EXPECT_EQ(stack->free, cslist_free_nop);
  EXPECT_EQ(stack->compare("same", "same"), 0);
  EXPECT_EQ(csstack_free(stack), 0u);
}

TEST_F(Stack, PopReturnsThePushedPointer) {
  csstack *stack = make_stack();
  EXPECT_EQ(csstack_pop(stack), nullptr);
  EXPECT_EQ(csstack_push(stack, a), 0u);
  EXPECT_EQ(csstack_pop(stack), a);
  EXPECT_EQ(csstack_pop(stack), nullptr);
  EXPECT_EQ(csstack_free(stack), 0u);
  EXPECT_EQ(log.text(), "");
}

TEST_F(Stack, HoldsTheLatestItemOnly) {
  csstack *stack = make_stack();
  csstack_push(stack, a);
  const HostPtr<cslist_node> dropped(stack->head);
  csstack_push(stack, b);
  EXPECT_EQ(csstack_pop(stack), b);
  EXPECT_EQ(csstack_pop(stack), nullptr);
  EXPECT_EQ(csstack_free(stack), 0u);
  EXPECT_EQ(log.text(), "WARNING: Unknown 1 items on linked list?\n");
}

TEST_F(Stack, NullIsRefused) {
  csstack *stack = make_stack();
  EXPECT_EQ(csstack_push(stack, nullptr), 1u);
  EXPECT_EQ(csstack_push(nullptr, a), 1u);
  EXPECT_EQ(csstack_pop(nullptr), nullptr);
  EXPECT_EQ(csstack_free(nullptr), 1u);
  csstack_free(stack);
}

}  // namespace
