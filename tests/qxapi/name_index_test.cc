// SPDX-License-Identifier: MIT
#include "qxapi/name_index.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/memory_host.h"

using namespace rdm;

namespace {

/// An entry that counts how often the index reads names.
struct Entry {
  std::string text;
  NameLink<Entry> in_index{};
  static inline long looks = 0;
  std::string_view name() const {
    ++looks;
    return text;
  }
};

class NameIndexes : public support::HostTest {
 protected:
  void TearDown() override {
    index.release();
    HostTest::TearDown();
  }

  std::vector<Entry> numbered(int count) {
    std::vector<Entry> entries(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) entries[static_cast<size_t>(i)].text = std::to_string(i);
    return entries;
  }

  NameIndex<Entry> index{};
};

TEST_F(NameIndexes, AnEmptyIndexFindsNothing) {
  EXPECT_EQ(index.find("a"), nullptr);
  EXPECT_EQ(index.take("a"), nullptr);
}

TEST_F(NameIndexes, EqualNamesStayInTheirOrderAsTheIndexGrows) {
  std::vector<Entry> many = numbered(1000);
  Entry first{"x"}, second{"x"}, third{"x"};
  index.add(&first);
  for (size_t i = 0; i < 500; ++i) index.add(&many[i]);
  index.add(&second);
  for (size_t i = 500; i < 1000; ++i) index.add(&many[i]);
  index.add(&third);
  for (Entry *entry : {&first, &second, &third}) {
    EXPECT_EQ(index.find("x"), entry);
    EXPECT_EQ(index.take("x"), entry);
  }
  EXPECT_EQ(index.find("x"), nullptr);
  for (Entry &entry : many) EXPECT_EQ(index.find(entry.text), &entry);
}

TEST_F(NameIndexes, ATakenEntryCanBeAddedAgainBehindItsEquals) {
  Entry first{"x"}, second{"x"};
  for (Entry *entry : {&first, &second}) index.add(entry);
  index.add(index.take("x"));
  EXPECT_EQ(index.take("x"), &second);
  EXPECT_EQ(index.take("x"), &first);
}

TEST_F(NameIndexes, AReplacementTakesThePlaceAmongItsEquals) {
  for (const size_t replaced : {0u, 1u, 2u}) {
    std::vector<Entry> entries(3, Entry{"x"});
    Entry replacement{"x"}, later{"x"};
    for (Entry &entry : entries) index.add(&entry);
    index.replace(&entries[replaced], &replacement);
    index.add(&later);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(index.take("x"), i == replaced ? &replacement : &entries[i]);
    EXPECT_EQ(index.take("x"), &later);
    EXPECT_EQ(index.take("x"), nullptr);
  }
}

TEST_F(NameIndexes, KnowsAnEntryThatWasRenamed) {
  Entry entry{"x"};
  index.add(&entry);
  EXPECT_FALSE(index.is_stale(entry));
  entry.text = "y";
  EXPECT_TRUE(index.is_stale(entry));
  EXPECT_EQ(index.find("x"), nullptr);
  index.clear();
  index.add(&entry);
  EXPECT_EQ(index.find("y"), &entry);
}

// add, find and take read only a few names, for any number of entries.
TEST_F(NameIndexes, LooksAtAFewNamesAtATime) {
  constexpr int count = 20000;
  std::vector<Entry> entries = numbered(count);
  const auto looks = [](auto &&work) {
    Entry::looks = 0;
    work();
    return Entry::looks;
  };
  EXPECT_LE(looks([&] {
              for (Entry &entry : entries) index.add(&entry);
            }),
            2 * count);
  EXPECT_LE(looks([&] {
              for (Entry &entry : entries) EXPECT_EQ(index.find(entry.text), &entry);
            }),
            2 * count);
  EXPECT_LE(looks([&] {
              for (int i = 0; i < count; ++i) EXPECT_EQ(index.find("no " + std::to_string(i)), nullptr);
            }),
            count);
  EXPECT_LE(looks([&] {
              for (Entry &entry : entries) EXPECT_EQ(index.take(entry.text), &entry);
            }),
            2 * count);
  for (const auto *bucket = index.buckets; bucket != index.buckets + index.size; ++bucket) {
    EXPECT_EQ(bucket->first, nullptr);
    EXPECT_EQ(bucket->last, nullptr);
  }
}

TEST_F(NameIndexes, WithoutMemoryTheFirstEntryIsRefused) {
  Entry entry{"x"};
  host.fail_allocation = host.allocations + 1;
  EXPECT_FALSE(index.add(&entry));
  EXPECT_EQ(index.find("x"), nullptr);
}

TEST_F(NameIndexes, WithoutMemoryForMoreBucketsTheyFillUp) {
  std::vector<Entry> entries = numbered(100);
  for (size_t i = 0; i < 16; ++i) index.add(&entries[i]);
  host.fail_allocation = host.allocations + 1;
  EXPECT_TRUE(index.add(&entries[16]));
  EXPECT_EQ(index.size, 16u);
  for (size_t i = 17; i < 100; ++i) EXPECT_TRUE(index.add(&entries[i]));
  EXPECT_EQ(index.size, 128u);
  for (Entry &entry : entries) EXPECT_EQ(index.find(entry.text), &entry);
}

}  // namespace
