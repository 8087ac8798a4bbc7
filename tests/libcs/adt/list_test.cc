// SPDX-License-Identifier: MIT
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/adt.h>
#include <libcs/log.h>

#include "libcs/adt/callbacks.h"
#include "libcs/guard.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::copy_nothing;
using support::match_everything;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

std::vector<std::string> visited;
void visit(void *data) { visited.emplace_back(static_cast<const char *>(data)); }

std::vector<void *> released;
void note_released(void *item) { released.push_back(item); }

std::vector<std::string> contents(cslist *list) {
  visited.clear();
  cslist_apply(list, visit);
  return visited;
}

ListPtr make_list() {
  cslist *list = nullptr;
  EXPECT_EQ(cslist_create(&list), 0u);
  return ListPtr(list);
}

/// make_pointer_list returns a list of borrowed pointers that records releases.
ListPtr make_pointer_list() {
  ListPtr list = make_list();
  cslist_set_copy(list.get(), cslist_copy_nop);
  cslist_set_free(list.get(), note_released);
  return list;
}

class List : public support::HostTest {
 protected:
  List() {
    visited.clear();
    released.clear();
  }

  support::Diagnostics log;
};

TEST_F(List, CreatedEmptyWithStringCallbacks) {
  const ListPtr list = make_list();
  EXPECT_EQ(list->head, nullptr);
  EXPECT_EQ(list->tail, nullptr);
  EXPECT_EQ(list->count, 0);
  EXPECT_EQ(list->free, free);
  EXPECT_EQ(list->compare("same", "same"), 0);
  EXPECT_LT(list->compare("a", "b"), 0);
  EXPECT_GT(list->compare("b", "a"), 0);
  void *copy = list->copy("text");
  EXPECT_STREQ(static_cast<char *>(copy), "text");
  list->free(copy);
}

TEST_F(List, SettersInstallCallbacks) {
  const ListPtr list = make_list();
  EXPECT_EQ(cslist_set_compare(list.get(), match_everything), 0u);
  EXPECT_EQ(cslist_set_free(list.get(), note_released), 0u);
  EXPECT_EQ(cslist_set_copy(list.get(), copy_nothing), 0u);
  EXPECT_EQ(list->compare, match_everything);
  EXPECT_EQ(list->free, note_released);
  EXPECT_EQ(list->copy, copy_nothing);
}

TEST_F(List, NullIsRefused) {
  const ListPtr list = make_list();
  EXPECT_EQ(cslist_set_compare(nullptr, match_everything), 1u);
  EXPECT_EQ(cslist_set_free(nullptr, note_released), 1u);
  EXPECT_EQ(cslist_set_copy(nullptr, copy_nothing), 1u);
  EXPECT_EQ(cslist_set_compare(list.get(), nullptr), 1u);
  EXPECT_EQ(cslist_set_free(list.get(), nullptr), 1u);
  EXPECT_EQ(cslist_set_copy(list.get(), nullptr), 1u);
  EXPECT_EQ(list->free, free);
  EXPECT_EQ(cslist_append(list.get(), nullptr), 1u);
  EXPECT_EQ(cslist_append(nullptr, "item"), 1u);
  EXPECT_EQ(cslist_prepend(list.get(), nullptr), 1u);
  EXPECT_EQ(cslist_prepend(nullptr, "item"), 1u);
  EXPECT_EQ(list->head, nullptr);
  cslist_append(list.get(), "item");
  cslist_apply(nullptr, visit);
  cslist_apply(list.get(), nullptr);
  EXPECT_THAT(visited, IsEmpty());
  EXPECT_EQ(cslist_behead(nullptr), nullptr);
  EXPECT_EQ(cslist_find(list.get(), nullptr), nullptr);
  EXPECT_EQ(cslist_find(nullptr, "item"), nullptr);
  EXPECT_EQ(cslist_delete(list.get(), nullptr), 1u);
  EXPECT_EQ(cslist_delete(nullptr, "item"), 1u);
  EXPECT_EQ(cslist_count(nullptr), 0);
  for (const int free_items : {0, 1}) EXPECT_EQ(cslist_do_free(nullptr, free_items), 1u);
}

TEST_F(List, AppendKeepsOrderAndCounts) {
  const ListPtr list = make_list();
  for (const char *item : {"one", "two", "three"}) EXPECT_EQ(cslist_append(list.get(), item), 0u);
  EXPECT_THAT(contents(list.get()), ElementsAre("one", "two", "three"));
  EXPECT_EQ(list->count, 3);
  EXPECT_EQ(cslist_count(list.get()), 3);
  EXPECT_STREQ(static_cast<char *>(list->tail->data), "three");
  EXPECT_EQ(list->tail->next, nullptr);
}

TEST_F(List, PrependReplacesTheHead) {
  const ListPtr list = make_list();
  for (const char *item : {"one", "two", "three"}) cslist_append(list.get(), item);
  const HostPtr<cslist_node> dropped(list->head);
  EXPECT_EQ(cslist_prepend(list.get(), "new"), 0u);
  EXPECT_THAT(contents(list.get()), ElementsAre("new", "two", "three"));
  EXPECT_EQ(list->count, 4);
  EXPECT_EQ(cslist_count(list.get()), 3);
  EXPECT_STREQ(static_cast<char *>(list->tail->data), "three");
  EXPECT_STREQ(static_cast<char *>(dropped->data), "one");
  free(dropped->data);
}

TEST_F(List, AppendAfterPrependIntoEmptyListGoesBehindIt) {
  const ListPtr list = make_list();
  cslist_prepend(list.get(), "first");
  EXPECT_EQ(list->tail, nullptr) << "prepending does not set it";
  EXPECT_EQ(cslist_append(list.get(), "second"), 0u);
  EXPECT_EQ(cslist_append(list.get(), "third"), 0u);
  EXPECT_THAT(contents(list.get()), ElementsAre("first", "second", "third"));
  EXPECT_STREQ(static_cast<char *>(list->tail->data), "third");
  EXPECT_EQ(list->count, 3);
}

TEST_F(List, AppendContinuesAtTheTailEvenIfPrependDroppedIt) {
  const ListPtr list = make_list();
  cslist_append(list.get(), "one");
  const HostPtr<cslist_node> dropped(list->head);
  cslist_prepend(list.get(), "new");
  EXPECT_EQ(list->tail, dropped.get());
  EXPECT_EQ(cslist_append(list.get(), "out of reach"), 0u);
  const HostPtr<cslist_node> appended(dropped->next);
  EXPECT_EQ(list->tail, appended.get());
  EXPECT_THAT(contents(list.get()), ElementsAre("new"));
  EXPECT_EQ(list->count, 3);
  free(dropped->data);
  free(appended->data);
}

TEST_F(List, BeheadGivesTheItemsAway) {
  const ListPtr list = make_pointer_list();
  char one[] = "one", two[] = "two";
  cslist_append(list.get(), one);
  cslist_append(list.get(), two);
  EXPECT_EQ(cslist_behead(list.get()), one);
  EXPECT_EQ(list->count, 1);
  EXPECT_EQ(cslist_behead(list.get()), two);
  EXPECT_EQ(list->count, 0);
  EXPECT_EQ(list->head, nullptr);
  EXPECT_EQ(list->tail, nullptr);
  EXPECT_EQ(cslist_behead(list.get()), nullptr);
  EXPECT_THAT(released, IsEmpty());
}

TEST_F(List, AppendContinuesAfterTheLastItemLeft) {
  const ListPtr list = make_list();
  for (const char *item : {"a", "b", "c"}) cslist_append(list.get(), item);
  free(cslist_behead(list.get()));
  EXPECT_STREQ(static_cast<char *>(list->tail->data), "c");
  cslist_append(list.get(), "d");
  EXPECT_THAT(contents(list.get()), ElementsAre("b", "c", "d"));
  for (const char *item : {"d", "b", "c"}) EXPECT_EQ(cslist_delete(list.get(), item), 0u);
  cslist_append(list.get(), "one");
  free(cslist_behead(list.get()));
  cslist_append(list.get(), "two");
  EXPECT_THAT(contents(list.get()), ElementsAre("two"));
  cslist_delete(list.get(), "two");
  cslist_append(list.get(), "three");
  EXPECT_THAT(contents(list.get()), ElementsAre("three"));
}

TEST_F(List, FindReturnsTheFirstMatch) {
  const ListPtr list = make_list();
  for (const char *item : {"a", "b", "b", "c"}) cslist_append(list.get(), item);
  EXPECT_EQ(cslist_find(list.get(), "b"), list->head->next->data);
  EXPECT_EQ(cslist_find(list.get(), "d"), nullptr);
}

TEST_F(List, FindAndDeleteCompareTheItemWithTheKey) {
  static const void *left, *right;
  const ListPtr list = make_pointer_list();
  char item[] = "item", key[] = "key";
  cslist_append(list.get(), item);
  cslist_set_compare(list.get(), [](const void *a, const void *b) {
    left = a;
    right = b;
    return 0;
  });
  EXPECT_EQ(cslist_find(list.get(), key), item);
  EXPECT_EQ(left, item);
  EXPECT_EQ(right, key);
  left = right = nullptr;
  EXPECT_EQ(cslist_delete(list.get(), key), 0u);
  EXPECT_EQ(left, item);
  EXPECT_EQ(right, key);
}

struct DeleteCase {
  const char *key;
  std::vector<std::string> left;
  const char *tail;
};

TEST_F(List, DeleteRemovesTheFirstMatch) {
  const DeleteCase cases[] = {{"a", {"b", "b", "c"}, "c"}, {"b", {"a", "b", "c"}, "c"}, {"c", {"a", "b", "b"}, "b"}};
  for (const DeleteCase &test : cases) {
    const ListPtr list = make_list();
    for (const char *item : {"a", "b", "b", "c"}) cslist_append(list.get(), item);
    EXPECT_EQ(cslist_delete(list.get(), test.key), 0u);
    EXPECT_EQ(contents(list.get()), test.left);
    EXPECT_STREQ(static_cast<char *>(list->tail->data), test.tail);
    EXPECT_EQ(list->count, 3);
  }
}

TEST_F(List, DeleteReleasesTheItem) {
  const ListPtr list = make_pointer_list();
  char item[] = "item";
  cslist_append(list.get(), item);
  EXPECT_EQ(cslist_delete(list.get(), "item"), 0u);
  EXPECT_THAT(released, ElementsAre(item));
  EXPECT_EQ(list->head, nullptr);
  EXPECT_EQ(list->tail, nullptr);
}

TEST_F(List, DeleteAnswersOneIfNothingMatches) {
  const ListPtr list = make_list();
  EXPECT_EQ(cslist_delete(list.get(), "a"), 1u);
  cslist_append(list.get(), "a");
  EXPECT_EQ(cslist_delete(list.get(), "b"), 1u);
  EXPECT_EQ(list->count, 1);
}

TEST_F(List, NodesWithoutDataAreSkipped) {
  const ListPtr list = make_list();
  cslist_set_copy(list.get(), copy_nothing);
  EXPECT_EQ(cslist_append(list.get(), "nothing"), 0u);
  cslist_set_copy(list.get(), cslist_copy_nop);
  cslist_set_free(list.get(), note_released);
  char item[] = "item";
  cslist_append(list.get(), item);
  EXPECT_EQ(cslist_count(list.get()), 2);
  EXPECT_THAT(contents(list.get()), ElementsAre("item"));
  EXPECT_EQ(cslist_find(list.get(), "item"), item);
  EXPECT_EQ(cslist_delete(list.get(), "item"), 0u);
  EXPECT_EQ(cslist_delete(list.get(), "item"), 1u);
  EXPECT_EQ(cslist_count(list.get()), 1);
  EXPECT_EQ(cslist_behead(list.get()), nullptr);
  EXPECT_EQ(list->count, 0);
}

TEST_F(List, FreeReleasesItemsOnlyWhenAsked) {
  char one[] = "one", two[] = "two";
  for (const bool with_items : {false, true}) {
    cslist *list = make_pointer_list().release();
    cslist_append(list, one);
    cslist_append(list, two);
    EXPECT_EQ(cslist_do_free(list, with_items), 0u);
    if (with_items)
      EXPECT_THAT(released, ElementsAre(one, two));
    else
      EXPECT_THAT(released, IsEmpty());
  }
  EXPECT_EQ(log.text(), "");
}

TEST_F(List, FreeReportsItemsOutOfReach) {
  cslist *list = make_list().release();
  cslist_append(list, "one");
  list->count += 2;
  EXPECT_EQ(cslist_do_free(list, 1), 0u);
  EXPECT_EQ(log.text(), "WARNING: Unknown 2 items on linked list?\n");
}

TEST_F(List, FreeStopsAtTheCount) {
  char one[] = "one", two[] = "two";
  cslist *list = make_pointer_list().release();
  cslist_append(list, one);
  cslist_append(list, two);
  const HostPtr<cslist_node> unreleased(list->tail);
  list->count = 1;
  EXPECT_EQ(cslist_do_free(list, 1), 0u);
  EXPECT_THAT(released, ElementsAre(one));
  EXPECT_EQ(unreleased->data, two);
  EXPECT_EQ(log.text(), "");
}

TEST_F(List, CountWalksTheNodes) {
  const ListPtr list = make_list();
  cslist_append(list.get(), "one");
  list->count = 7;
  EXPECT_EQ(cslist_count(list.get()), 1);
  list->count = 1;
}

TEST_F(List, NopCallbacks) {
  char item[] = "item";
  EXPECT_EQ(cslist_copy_nop(item), item);
  cslist_free_nop(item);
  EXPECT_STREQ(item, "item");
  EXPECT_EQ(cslist_cmp_nop("abcdX", "abcdY"), 0);
  EXPECT_LT(cslist_cmp_nop("abca", "abcb"), 0);
  EXPECT_GT(cslist_cmp_nop("abcb", "abca"), 0);
  EXPECT_NE(cslist_cmp_nop("ab\0d", "ab\0e"), 0);
}

}  // namespace
