// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "support/memory_host.h"

using namespace rdm;

namespace {

class Queue : public support::HostTest {
 protected:
  Queue() { EXPECT_EQ(csqueue_create(&queue), 0u); }
  void TearDown() override {
    EXPECT_EQ(csqueue_free(queue), 0u);
    HostTest::TearDown();
  }

  csqueue *queue = nullptr;
  int one = 1, two = 2, three = 3;
};

TEST_F(Queue, KeepsPointersAndComparesFourBytes) {
  EXPECT_EQ(queue->compare, cslist_cmp_nop);
  EXPECT_EQ(queue->free, cslist_free_nop);
  EXPECT_EQ(queue->copy, cslist_copy_nop);
}

TEST_F(Queue, FirstInFirstOut) {
  for (int *item : {&one, &two, &three}) EXPECT_EQ(csqueue_put(queue, item), 0u);
  EXPECT_EQ(csqueue_get(queue), &one);
  EXPECT_EQ(csqueue_get(queue), &two);
  EXPECT_EQ(csqueue_get(queue), &three);
  EXPECT_EQ(csqueue_get(queue), nullptr);
}

TEST_F(Queue, PeekLeavesTheItemInPlace) {
  EXPECT_EQ(csqueue_peek(queue), nullptr);
  csqueue_put(queue, &one);
  csqueue_put(queue, &two);
  EXPECT_EQ(csqueue_peek(queue), &one);
  EXPECT_EQ(csqueue_get(queue), &one);
  EXPECT_EQ(csqueue_peek(queue), &two);
  EXPECT_EQ(csqueue_peek(nullptr), nullptr);
}

TEST_F(Queue, DeleteComparesTheFirstFourBytes) {
  char first[] = "abcd first", second[] = "abcx second";
  csqueue_put(queue, first);
  csqueue_put(queue, second);
  EXPECT_EQ(csqueue_delete(queue, "abcy"), 1u);
  EXPECT_EQ(csqueue_delete(queue, "abcx other"), 0u);
  EXPECT_STREQ(second, "abcx second");
  EXPECT_EQ(csqueue_get(queue), first);
  EXPECT_EQ(csqueue_get(queue), nullptr);
  EXPECT_EQ(csqueue_delete(queue, "abcd"), 1u);
}

TEST_F(Queue, NullIsRefused) {
  EXPECT_EQ(csqueue_put(queue, nullptr), 1u);
  EXPECT_EQ(csqueue_put(nullptr, &one), 1u);
  EXPECT_EQ(csqueue_get(nullptr), nullptr);
  EXPECT_EQ(csqueue_delete(nullptr, &one), 1u);
  EXPECT_EQ(csqueue_delete(queue, nullptr), 1u);
  EXPECT_EQ(csqueue_free(nullptr), 1u);
}

}  // namespace
