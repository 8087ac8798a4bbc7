// SPDX-License-Identifier: MIT
#include <climits>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

class PriorityQueue : public support::HostTest {
 protected:
  PriorityQueue() { EXPECT_EQ(cspriq_create(&queue), 0u); }
  void TearDown() override {
    EXPECT_EQ(cspriq_free(queue), 0u);
    EXPECT_EQ(log.text(), "");
    HostTest::TearDown();
  }

  std::vector<int32_t> levels() const {
    std::vector<int32_t> priorities;
    for (const cslist_node *node = queue->head; node != nullptr; node = node->next)
      priorities.push_back(static_cast<cspriq_level *>(node->data)->priority);
    return priorities;
  }

  support::Diagnostics log;
  cspriq *queue = nullptr;
  int a = 0, b = 0, c = 0, d = 0;
};

TEST_F(PriorityQueue, SmallestPriorityFirstAndThenFirstInFirstOut) {
  EXPECT_EQ(cspriq_put(queue, &a, 5), 0u);
  EXPECT_EQ(cspriq_put(queue, &b, 1), 0u);
  EXPECT_EQ(cspriq_put(queue, &c, 5), 0u);
  EXPECT_EQ(cspriq_put(queue, &d, 3), 0u);
  EXPECT_EQ(levels(), (std::vector<int32_t>{1, 3, 5}));
  EXPECT_EQ(queue->count, 3);
  EXPECT_EQ(cspriq_get(queue), &b);
  EXPECT_EQ(cspriq_get(queue), &d);
  EXPECT_EQ(cspriq_get(queue), &a);
  EXPECT_EQ(cspriq_get(queue), &c);
  EXPECT_EQ(cspriq_get(queue), nullptr);
}

TEST_F(PriorityQueue, PrioritiesAreSigned) {
  for (const int32_t priority : {0, INT_MAX, -1, INT_MIN}) cspriq_put(queue, &a, priority);
  EXPECT_EQ(levels(), (std::vector<int32_t>{INT_MIN, -1, 0, INT_MAX}));
}

TEST_F(PriorityQueue, LevelsStayWhenTheyRunEmpty) {
  cspriq_put(queue, &a, 2);
  EXPECT_EQ(cspriq_get(queue), &a);
  EXPECT_EQ(levels(), (std::vector<int32_t>{2}));
  cspriq_put(queue, &b, 2);
  EXPECT_EQ(levels(), (std::vector<int32_t>{2}));
  EXPECT_EQ(cspriq_get(queue), &b);
}

TEST_F(PriorityQueue, TheTailStaysWithTheFirstLevelEverMade) {
  cspriq_put(queue, &a, 5);
  const cslist_node *const first = queue->head;
  for (const int32_t priority : {7, 1, 6}) {
    EXPECT_EQ(queue->tail, first);
    cspriq_put(queue, &a, priority);
  }
  EXPECT_EQ(queue->tail, first);
}

TEST_F(PriorityQueue, GetpriTakesItemsOfOnePriority) {
  cspriq_put(queue, &a, 1);
  cspriq_put(queue, &b, 2);
  cspriq_put(queue, &c, 2);
  EXPECT_EQ(cspriq_getpri(queue, 2), &b);
  EXPECT_EQ(cspriq_getpri(queue, 2), &c);
  EXPECT_EQ(cspriq_getpri(queue, 2), nullptr);
  EXPECT_EQ(cspriq_getpri(queue, 3), nullptr);
  EXPECT_EQ(cspriq_get(queue), &a);
}

TEST_F(PriorityQueue, NullIsRefused) {
  EXPECT_EQ(cspriq_put(queue, nullptr, 1), 1u);
  EXPECT_EQ(levels(), (std::vector<int32_t>{1})) << "its level is there all the same";
  EXPECT_EQ(cspriq_put(nullptr, &a, 1), 1u);
  EXPECT_EQ(cspriq_get(nullptr), nullptr);
  EXPECT_EQ(cspriq_getpri(nullptr, 1), nullptr);
  EXPECT_EQ(cspriq_free(nullptr), 1u);
}

}  // namespace
