// SPDX-License-Identifier: MIT
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "libcs/adt/callbacks.h"
#include "libcs/guard.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::copy_nothing;
using support::match_everything;
using ::testing::ElementsAre;

std::vector<std::string> released_texts;
void note_and_release(void *item) {
  released_texts.emplace_back(static_cast<char *>(item));
  free(item);
}

/// hash_letter returns the first letter of the key, so that tests choose buckets.
uint32_t hash_letter(const void *key) { return static_cast<uint32_t>(*static_cast<const char *>(key) - 'a'); }

HashTablePtr make_table(int32_t nbuckets) {
  cshashtable *table = nullptr;
  EXPECT_EQ(cshashtable_create(nbuckets, &table), 0u);
  return HashTablePtr(table);
}

HashTablePtr make_letter_table() {
  HashTablePtr table = make_table(3);
  cshashtable_set_hash(table.get(), hash_letter);
  return table;
}

void insert(const HashTablePtr &table, std::initializer_list<const char *> items) {
  for (const char *item : items) EXPECT_EQ(cshashtable_insert(table.get(), item, item), 0u);
}

const char *text(const void *item) { return static_cast<const char *>(item); }

class HashTable : public support::HostTest {
 protected:
  HashTable() { released_texts.clear(); }
};

TEST_F(HashTable, BucketCountBelowOneMeansSeven) {
  const std::pair<int32_t, int32_t> cases[] = {{0, 7}, {-5, 7}, {INT32_MIN, 7}, {1, 1}, {2, 2}, {1000, 1000}};
  for (const auto &[asked, given] : cases) {
    const HashTablePtr table = make_table(asked);
    EXPECT_EQ(table->nbuckets, given);
    EXPECT_EQ(table->count, 0);
    for (int32_t i = 0; i < given; ++i) ASSERT_NE(table->buckets[i], nullptr);
  }
}

TEST_F(HashTable, CreatedWithStringCallbacksInAllBuckets) {
  const HashTablePtr table = make_table(3);
  EXPECT_EQ(table->hash, cshashtable_hf_default);
  EXPECT_EQ(table->free, free);
  EXPECT_EQ(table->compare("a", "a"), 0);
  void *copy = table->copy("text");
  EXPECT_STREQ(text(copy), "text");
  free(copy);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(table->buckets[i]->copy, table->copy);
    EXPECT_EQ(table->buckets[i]->compare, table->compare);
    EXPECT_EQ(table->buckets[i]->free, table->free);
  }
}

TEST_F(HashTable, MissingBucketRefusesItemsAndFindsNone) {
  host.fail_allocation = host.allocations + 4;  // record, array, bucket 0, bucket 1
  const HashTablePtr table = make_letter_table();
  ASSERT_EQ(table->buckets[1], nullptr);
  EXPECT_EQ(cshashtable_insert(table.get(), "b", "b"), 1u);
  EXPECT_EQ(cshashtable_find(table.get(), "b"), nullptr);
  EXPECT_EQ(cshashtable_delete(table.get(), "b"), 1u);
  EXPECT_EQ(table->count, 0);
  insert(table, {"a", "c"});
  EXPECT_EQ(cshashtable_set_compare(table.get(), match_everything), 0u);
  EXPECT_STREQ(text(cshashtable_iterate(table.get(), "a", cshashtable_find(table.get(), "a"))), "c");
  cshashtable_statistics statistics;
  cshashtable_stats(table.get(), &statistics);
  EXPECT_EQ(statistics.chained, 2);
}

TEST_F(HashTable, NullIsRefused) {
  EXPECT_EQ(cshashtable_set_hash(nullptr, hash_letter), 1u);
  EXPECT_EQ(cshashtable_set_copy(nullptr, copy_nothing), 1u);
  EXPECT_EQ(cshashtable_set_compare(nullptr, match_everything), 1u);
  EXPECT_EQ(cshashtable_set_free(nullptr, note_and_release), 1u);
  EXPECT_EQ(cshashtable_insert(nullptr, "a", "a"), 1u);
  EXPECT_EQ(cshashtable_delete(nullptr, "a"), 1u);
  EXPECT_EQ(cshashtable_find(nullptr, "a"), nullptr);
  EXPECT_EQ(cshashtable_findhv(nullptr, "a", 0), nullptr);
  EXPECT_EQ(cshashtable_iterate(nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(cshashtable_free(nullptr), 1u);

  const HashTablePtr table = make_table(1);
  EXPECT_EQ(cshashtable_set_hash(table.get(), nullptr), 1u);
  EXPECT_EQ(cshashtable_set_copy(table.get(), nullptr), 1u);
  EXPECT_EQ(cshashtable_set_compare(table.get(), nullptr), 1u);
  EXPECT_EQ(cshashtable_set_free(table.get(), nullptr), 1u);
  EXPECT_EQ(table->hash, cshashtable_hf_default);
  EXPECT_EQ(table->free, free);
  EXPECT_EQ(cshashtable_insert(table.get(), "key", nullptr), 1u);
  EXPECT_EQ(table->count, 0);
  EXPECT_EQ(cshashtable_iterate(table.get(), nullptr, nullptr), nullptr) << "an empty table";
  insert(table, {"a"});
  EXPECT_EQ(cshashtable_find(table.get(), nullptr), nullptr);
  EXPECT_EQ(cshashtable_delete(table.get(), nullptr), 1u);
}

TEST_F(HashTable, SettersReachEveryBucket) {
  const HashTablePtr table = make_table(3);
  EXPECT_EQ(cshashtable_set_hash(table.get(), hash_letter), 0u);
  EXPECT_EQ(cshashtable_set_copy(table.get(), copy_nothing), 0u);
  EXPECT_EQ(cshashtable_set_compare(table.get(), match_everything), 0u);
  EXPECT_EQ(cshashtable_set_free(table.get(), note_and_release), 0u);
  EXPECT_EQ(table->hash, hash_letter);
  EXPECT_EQ(table->copy, copy_nothing);
  EXPECT_EQ(table->compare, match_everything);
  EXPECT_EQ(table->free, note_and_release);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(table->buckets[i]->copy, copy_nothing);
    EXPECT_EQ(table->buckets[i]->compare, match_everything);
    EXPECT_EQ(table->buckets[i]->free, note_and_release);
  }
}

TEST_F(HashTable, ItemsAreStoredInTheBucketOfTheirKey) {
  const HashTablePtr table = make_letter_table();
  insert(table, {"a", "b", "c", "d"});
  EXPECT_EQ(table->count, 4);
  EXPECT_STREQ(text(table->buckets[0]->head->data), "a");
  EXPECT_STREQ(text(table->buckets[0]->head->next->data), "d");
  EXPECT_STREQ(text(table->buckets[1]->head->data), "b");
  EXPECT_STREQ(text(table->buckets[2]->head->data), "c");
}

TEST_F(HashTable, BucketIndexIsUnsigned) {
  const HashTablePtr table = make_table(3);
  cshashtable_set_hash(table.get(), [](const void *) -> uint32_t { return 0xFFFFFFFFu; });
  insert(table, {"a"});
  EXPECT_EQ(table->buckets[0xFFFFFFFFu % 3]->count, 1);
  EXPECT_STREQ(text(cshashtable_find(table.get(), "a")), "a");
}

TEST_F(HashTable, EqualKeysAreKeptAndTheFirstInsertedIsFound) {
  const HashTablePtr table = make_table(7);
  cshashtable_set_compare(table.get(), [](const void *item, const void *key) { return *text(item) - *text(key); });
  EXPECT_EQ(cshashtable_insert(table.get(), "k", "k first"), 0u);
  EXPECT_EQ(cshashtable_insert(table.get(), "k", "k second"), 0u);
  EXPECT_EQ(table->count, 2);
  EXPECT_STREQ(text(cshashtable_find(table.get(), "k")), "k first");
  EXPECT_EQ(cshashtable_delete(table.get(), "k"), 0u);
  EXPECT_EQ(table->count, 1);
  EXPECT_STREQ(text(cshashtable_find(table.get(), "k")), "k second");
  EXPECT_EQ(cshashtable_delete(table.get(), "k"), 0u);
  EXPECT_EQ(cshashtable_delete(table.get(), "k"), 1u);
  EXPECT_EQ(table->count, 0);
}

TEST_F(HashTable, FindByHashValueSearchesItsBucketOnly) {
  const HashTablePtr table = make_letter_table();
  insert(table, {"b"});
  EXPECT_STREQ(text(cshashtable_findhv(table.get(), "b", 1)), "b");
  EXPECT_STREQ(text(cshashtable_findhv(table.get(), "b", 4)), "b");
  EXPECT_EQ(cshashtable_findhv(table.get(), "b", 0), nullptr);
  EXPECT_EQ(cshashtable_findhv(table.get(), nullptr, 1), nullptr);
}

TEST_F(HashTable, DeleteAndFreeReleaseTheItems) {
  HashTablePtr table = make_letter_table();
  cshashtable_set_free(table.get(), note_and_release);
  insert(table, {"b", "a", "d", "c"});
  EXPECT_EQ(cshashtable_delete(table.get(), "c"), 0u);
  EXPECT_THAT(released_texts, ElementsAre("c"));
  EXPECT_EQ(cshashtable_free(table.release()), 0u);
  EXPECT_THAT(released_texts, ElementsAre("c", "a", "d", "b"));
}

TEST_F(HashTable, IterateVisitsBucketsInOrder) {
  const HashTablePtr table = make_letter_table();
  insert(table, {"c", "b", "e", "a", "d"});
  std::vector<std::string> seen;
  for (const void *item = cshashtable_iterate(table.get(), nullptr, nullptr); item != nullptr;
       item = cshashtable_iterate(table.get(), item, item))
    seen.emplace_back(text(item));
  EXPECT_THAT(seen, ElementsAre("a", "d", "b", "e", "c"));
}

TEST_F(HashTable, IterateWithoutPreviousStartsAtTheBucketOfTheKey) {
  const HashTablePtr table = make_letter_table();
  insert(table, {"a", "c", "d"});
  EXPECT_STREQ(text(cshashtable_iterate(table.get(), "a", nullptr)), "a");
  EXPECT_STREQ(text(cshashtable_iterate(table.get(), "b", nullptr)), "c");
}

TEST_F(HashTable, IterateWithoutKeyStartsOver) {
  const HashTablePtr table = make_letter_table();
  insert(table, {"a", "b"});
  const void *first = cshashtable_find(table.get(), "a");
  EXPECT_EQ(cshashtable_iterate(table.get(), nullptr, first), first);
}

TEST_F(HashTable, IterateComparesByIdentity) {
  const HashTablePtr table = make_letter_table();
  insert(table, {"a", "a", "b"});
  const void *first = cshashtable_iterate(table.get(), nullptr, nullptr);
  const void *second = cshashtable_iterate(table.get(), "a", first);
  EXPECT_NE(first, second);
  EXPECT_STREQ(text(second), "a");
  EXPECT_STREQ(text(cshashtable_iterate(table.get(), "a", second)), "b");
}

TEST_F(HashTable, IterateAfterAnUnknownItemEnds) {
  const HashTablePtr table = make_letter_table();
  insert(table, {"a", "b", "c"});
  EXPECT_EQ(cshashtable_iterate(table.get(), "a", "not stored"), nullptr);
  const void *first = cshashtable_find(table.get(), "a");
  EXPECT_EQ(cshashtable_iterate(table.get(), "b", first), nullptr);  // searched for after its bucket
}

TEST_F(HashTable, IterateSkipsItemsWithoutData) {
  const HashTablePtr table = make_letter_table();
  cshashtable_set_copy(table.get(), copy_nothing);
  insert(table, {"a"});
  EXPECT_EQ(cshashtable_iterate(table.get(), nullptr, nullptr), nullptr);
  EXPECT_EQ(table->count, 1);
}

TEST_F(HashTable, DefaultHash) {
  const auto fold = [](std::initializer_list<uint32_t> bytes) {
    uint32_t h = 0;
    for (const uint32_t b : bytes) h = h ^ ((h << 8) ^ (h >> 8) ^ b);
    return h;
  };
  EXPECT_EQ(cshashtable_hf_default(nullptr), 0u);
  EXPECT_EQ(cshashtable_hf_default(""), 0u);
  EXPECT_EQ(cshashtable_hf_default("a"), 0x9E3779D8u);
  // Worked by hand: h("a") = 0x61; h("ab") = 0x61 ^ 0x6100 ^ 0 ^ 0x62 = 0x6103; 2 * 0x9E3779B9 = 0x3C6EF372.
  EXPECT_EQ(cshashtable_hf_default("ab"), 0x3C6EF372u ^ 0x6103u);
  EXPECT_EQ(cshashtable_hf_default("\xFF\x80\x01xyz"),
            6 * 0x9E3779B9u ^ fold({0xFF, 0x80, 0x01, 'x', 'y', 'z'}));  // bytes are unsigned
}

TEST_F(HashTable, Statistics) {
  const HashTablePtr table = make_table(4);
  cshashtable_set_hash(table.get(), hash_letter);
  insert(table, {"a", "a", "a", "b", "d"});
  table->count = 42;  // copied as it stands
  cshashtable_statistics statistics;
  cshashtable_stats(table.get(), &statistics);
  EXPECT_EQ(statistics.items, 42);
  EXPECT_EQ(statistics.buckets, 4);
  EXPECT_EQ(statistics.longest, 3u);
  EXPECT_EQ(statistics.chained, 5);
  EXPECT_EQ(statistics.mean, 1.25);
  EXPECT_EQ(statistics.spread, 0.0);
}

}  // namespace
