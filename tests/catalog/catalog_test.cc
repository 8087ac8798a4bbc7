// SPDX-License-Identifier: MIT
/// Reading and changing a catalog through the library.
#include "catalog/catalog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "catalog/os/error.h"
#include "catalog/transaction.h"

using namespace rdm;

namespace {

using catalog::Catalog;
using catalog::IfMissing;
using catalog::Lock;
using catalog::WriteBatch;
using testing::ElementsAre;

std::string record(int i, const std::string &title = "T") { return rd(url(i), {{"title", title}}); }

class CatalogChanges : public testing::Test {
 protected:
  /// make commits a catalog with the descriptions 1 to `count` under their numbers.
  void make(int count) {
    const Catalog empty(path(), IfMissing::empty);
    WriteBatch batch(empty);
    for (int i = 1; i <= count; ++i) batch.put(static_cast<uint32_t>(i), url(i), record(i));
    commit(lock_, empty, batch, static_cast<uint32_t>(count) + 1);
  }
  void erase(uint32_t number) {
    Catalog catalog(path());
    catalog.renew_url_map(lock_);
    WriteBatch batch(catalog);
    batch.erase(number, url(static_cast<int>(number)));
    commit(lock_, catalog, batch, catalog.next_number());
  }
  std::string path() const { return files_.path(); }

  CatalogFiles files_;
  Lock lock_{files_.path()};
};

TEST_F(CatalogChanges, ACatalogThatIsNotThereIsAnErrorOrEmpty) {
  EXPECT_THROW(Catalog{path()}, catalog::Failure);
  const Catalog empty(path(), IfMissing::empty);
  EXPECT_FALSE(empty.exists());
  EXPECT_EQ(empty.get(1), std::nullopt);
  EXPECT_EQ(empty.number_of(url(1)), std::nullopt);
  EXPECT_EQ(empty.next_number(), 1u);
  empty.each([](uint32_t, std::string_view) { FAIL(); });
}

TEST_F(CatalogChanges, AnswerForTheCatalogAsTheyLeaveIt) {
  make(3);
  const Catalog catalog(path());
  WriteBatch batch(catalog);
  EXPECT_TRUE(batch.empty());
  batch.put(4, url(4), record(4));
  batch.put(1, url(1), record(1, "new"));
  batch.erase(2, url(2));
  EXPECT_EQ(batch.number_of(url(1)), 1u);
  EXPECT_EQ(batch.number_of(url(2)), std::nullopt);
  EXPECT_EQ(batch.number_of(url(3)), 3u);
  EXPECT_EQ(batch.number_of(url(4)), 4u);
  EXPECT_EQ(batch.get(1), record(1, "new"));
  EXPECT_EQ(batch.get(2), std::nullopt);
  EXPECT_EQ(batch.get(3), record(3));
  batch.put(5, url(2), record(2, "again"));
  batch.erase(4, url(4));
  EXPECT_EQ(batch.number_of(url(2)), 5u);
  EXPECT_EQ(batch.number_of(url(4)), std::nullopt);
  EXPECT_EQ(catalog.get(1), record(1)) << "the snapshot itself stays";
  commit(lock_, catalog, batch, 6);

  const Catalog next(path());
  EXPECT_EQ(next.get(1), record(1, "new"));
  EXPECT_EQ(next.get(2), std::nullopt);
  EXPECT_EQ(next.get(5), record(2, "again"));
  EXPECT_EQ(next.number_of(url(2)), 5u);
  EXPECT_EQ(next.number_of(url(4)), std::nullopt);
  EXPECT_EQ(next.next_number(), 6u);
  std::vector<uint32_t> numbers;
  next.each([&](uint32_t number, std::string_view) { numbers.push_back(number); });
  EXPECT_THAT(numbers, testing::UnorderedElementsAre(1u, 3u, 5u));
}

TEST_F(CatalogChanges, TheOpenSnapshotStaysReadable) {
  make(3);
  const Catalog before(path());
  erase(1);
  EXPECT_EQ(before.get(1), record(1));
  EXPECT_EQ(before.number_of(url(1)), 1u);
  EXPECT_EQ(Catalog(path()).get(1), std::nullopt);
}

TEST_F(CatalogChanges, ManyChangesAreFoundAgain) {
  make(0);
  const Catalog catalog(path());
  WriteBatch batch(catalog);
  for (uint32_t i = 1; i <= 5000; ++i) batch.put(i, url(static_cast<int>(i)), "r" + std::to_string(i));
  for (uint32_t i = 1; i <= 5000; i += 7) batch.erase(i, url(static_cast<int>(i)));
  for (uint32_t i = 1; i <= 5000; ++i) {
    const bool is_there = i % 7 != 1;
    ASSERT_EQ(batch.number_of(url(static_cast<int>(i))), is_there ? std::optional(i) : std::nullopt);
    ASSERT_EQ(batch.get(i), is_there ? std::optional("r" + std::to_string(i)) : std::nullopt);
  }
  size_t numbers = 0, urls = 0;
  batch.each_number([&](const WriteBatch::Change &, size_t) { ++numbers; });
  batch.each_url([&](const WriteBatch::Change &, size_t) { ++urls; });
  EXPECT_EQ(numbers, 5000u);
  EXPECT_EQ(urls, 5000u);
}

TEST_F(CatalogChanges, EachUndatedRecordGetsTheDateThatIsSetNext) {
  make(0);
  const Catalog catalog(path());
  WriteBatch batch(catalog);
  const std::string none = catalog::date_of(0), first = catalog::date_of(86400), second = catalog::date_of(172800);
  batch.put_undated(1, url(1), {"a" + none + "b", 1});
  batch.set_dates(86400);
  batch.put_undated(2, url(2), {"c" + none, 1});
  batch.put(3, url(3), none);
  EXPECT_EQ(batch.get(2), "c" + none);
  EXPECT_TRUE(batch.is_undated());
  batch.set_dates(172800);
  EXPECT_FALSE(batch.is_undated());
  EXPECT_EQ(batch.get(1), "a" + first + "b");
  EXPECT_EQ(batch.get(2), "c" + second);
  EXPECT_EQ(batch.get(3), none);
}

TEST_F(CatalogChanges, AReaderWithoutAMapFindsUrlsAndWritesNothing) {
  make(500);
  const std::string map = support::read_file(files_.path(".url"));
  erase(7);
  for (const std::string &text : {std::string(), std::string("damaged"), map}) {
    support::write_file(files_.path(".url"), text);
    const Catalog catalog(path());
    EXPECT_EQ(catalog.url_map(), nullptr);
    EXPECT_EQ(catalog.number_of(url(499)), 499u);
    EXPECT_EQ(catalog.number_of(url(7)), std::nullopt);
    EXPECT_EQ(support::read_file(files_.path(".url")), text);
  }
  unlink(files_.path(".url").c_str());
  EXPECT_EQ(Catalog(path()).number_of(url(1)), 1u);
  EXPECT_THAT(files_.files(), ElementsAre("catalog.db", "catalog.db.lock"));
}

// Regression: if a writer replaced database and map while a reader opened them, the reader used the new map with the
// old database.
TEST_F(CatalogChanges, AUrlMapOpensOnlyWithItsOwnSnapshot) {
  make(3);
  const catalog::HashTable before(path());
  std::string error;
  EXPECT_TRUE(catalog::UrlMap::open(before, error));
  erase(3);
  EXPECT_FALSE(catalog::UrlMap::open(before, error));
  EXPECT_TRUE(catalog::UrlMap::open(catalog::HashTable(path()), error));
}

TEST_F(CatalogChanges, AWriterRenewsTheMap) {
  make(500);
  unlink(files_.path(".url").c_str());
  Catalog catalog(path());
  catalog.renew_url_map(lock_);
  ASSERT_NE(catalog.url_map(), nullptr);
  EXPECT_EQ(catalog.number_of(url(499)), 499u);
  const Catalog again(path());
  ASSERT_NE(again.url_map(), nullptr);
  EXPECT_EQ(again.next_number(), 501u);
  size_t urls = 0;
  again.url_map()->each([&](std::string_view text, uint32_t number) {
    EXPECT_EQ(text, url(static_cast<int>(number)));
    ++urls;
  });
  EXPECT_EQ(urls, 500u);
}

TEST_F(CatalogChanges, ACommitCreatesAMissingMap) {
  make(5);
  unlink(files_.path(".url").c_str());
  const Catalog catalog(path());
  WriteBatch batch(catalog);
  batch.put(6, url(6), record(6));
  commit(lock_, catalog, batch, 7);
  const Catalog next(path());
  ASSERT_NE(next.url_map(), nullptr);
  for (int i = 1; i <= 6; ++i) EXPECT_EQ(next.number_of(url(i)), static_cast<uint32_t>(i));
}

TEST_F(CatalogChanges, EqualUrlsLeadToTheLowestNumber) {
  const Catalog empty(path(), IfMissing::empty);
  WriteBatch batch(empty);
  for (uint32_t number : {9u, 3u, 5u}) batch.put(number, url(1), record(1));
  commit(lock_, empty, batch, 10);
  unlink(files_.path(".url").c_str());
  Catalog catalog(path());
  EXPECT_EQ(catalog.number_of(url(1)), 3u);
  catalog.renew_url_map(lock_);
  EXPECT_EQ(catalog.url_map()->number_of(url(1)), 3u);
}

TEST_F(CatalogChanges, NumbersAreNotUsedAgainEvenWithoutTheMap) {
  make(3);
  erase(3);
  ::unlink((path() + ".url").c_str());
  const Catalog catalog(path());
  EXPECT_EQ(catalog.url_map(), nullptr);
  EXPECT_EQ(catalog.next_number(), 4u);
  erase(2);
  erase(1);
  ::unlink((path() + ".url").c_str());
  EXPECT_EQ(Catalog(path()).next_number(), 4u);
}

TEST_F(CatalogChanges, FewChangesToALargeCatalogLeaveTheRestAsItIs) {
  constexpr int count = 3000;
  make(count);
  for (int round = 0; round < 4; ++round) {
    const Catalog catalog(path());
    WriteBatch batch(catalog);
    const int number = 1000 + round;
    batch.put(static_cast<uint32_t>(number), url(number), record(number, "changed"));
    batch.erase(static_cast<uint32_t>(2000 + round), url(2000 + round));
    batch.put(static_cast<uint32_t>(count + 1 + round), url(count + 1 + round), record(count + 1 + round));
    commit(lock_, catalog, batch, static_cast<uint32_t>(count + 2 + round));
  }
  const Catalog catalog(path());
  ASSERT_NE(catalog.url_map(), nullptr);
  EXPECT_EQ(catalog.next_number(), static_cast<uint32_t>(count + 5));
  for (int i = 1; i <= count + 4; ++i) {
    const auto number = static_cast<uint32_t>(i);
    const bool erased = i >= 2000 && i < 2004, changed = i >= 1000 && i < 1004;
    EXPECT_EQ(catalog.get(number), erased ? std::nullopt : std::optional(record(i, changed ? "changed" : "T"))) << i;
    EXPECT_EQ(catalog.number_of(url(i)), erased ? std::nullopt : std::optional(number)) << i;
  }
}

}  // namespace
