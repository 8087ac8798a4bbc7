// SPDX-License-Identifier: MIT
#include "dba/locator.h"

#include <unistd.h>

#include <algorithm>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "dba/records.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;
using namespace rdm::records;

namespace {

/// Keys of one bucket, in the order in which they are stored.
const std::string oldest = key_of(2), middle = key_of(4), newest = key_of(6);

/// Visited is what a walk visits, in its order.
using Visited = std::vector<std::pair<std::string, std::string>>;

class LocatorTest : public support::HostTest {
 protected:
  /// write makes a database of short records, and some that do not fit a page.
  void write(unsigned page_size, int byte_order = 0) {
    for (unsigned number = 1; number <= 300; ++number)
      all_[key_of(number)] = value_of(number, number % 50 == 0 ? size_t{3} * page_size : number % 120);
    ASSERT_TRUE(make_with_library(path_, all_, page_size, byte_order));
  }
  /// write_page makes a database of three records on one page.
  void write_page(unsigned page_size) {
    all_ = {{oldest, value_of(2, 100)}, {middle, value_of(4, 100)}, {newest, value_of(6, 100)}};
    ASSERT_TRUE(make_with_library(path_, all_, page_size));
  }
  DatabasePtr open() {
    DatabasePtr database(dba_open(path_.c_str(), "r"));
    if (database && !locator_.open(database->fd(database.get()))) ADD_FAILURE() << "dba_open accepts the file";
    return database;
  }

  /// find returns the record at the place that the locator finds, or "(none)".
  std::string find(const std::string &key) {
    std::string_view value;
    const Location place = locator_.find(key, value);
    if (place.size == 0) return "(none)";
    std::string bytes(place.size, '\0');
    EXPECT_TRUE(locator_.read(place, bytes.data())) << key;
    EXPECT_EQ(bytes, value) << key;
    return bytes;
  }
  Visited walk() {
    struct Walk {
      LocatorTest &test;
      Visited visited;
    } walk{*this, {}};
    locator_.walk(
        [](void *argument, std::string_view key, std::string_view value, Location place) {
          auto &[test, visited] = *static_cast<Walk *>(argument);
          std::string bytes(place.size, '\0');
          EXPECT_TRUE(test.locator_.read(place, bytes.data())) << key;
          EXPECT_EQ(bytes, value) << key;
          const auto after = Location{place.offset + place.size, static_cast<uint32_t>(key.size())};
          bytes.resize(key.size());
          EXPECT_TRUE(test.locator_.read(after, bytes.data())) << key;
          EXPECT_EQ(bytes, key) << "keys follow their values";
          visited.emplace_back(key, value);
        },
        &walk);
    return walk.visited;
  }

  /// expect_agreement asserts that the locator finds no record that dba_get does not, and returns how many it finds.
  size_t expect_agreement(DB *database) {
    Records walked;
    for (auto &[key, value] : walk()) walked.emplace(key, value);
    size_t found_here = 0;
    for (const auto &[key, value] : all_) {
      const std::string here = find(key);
      const Found there = get(database, key);
      const auto visited = walked.find(key);
      EXPECT_TRUE(here == "(none)" || (there.result == 0 && there.value == here)) << key;
      EXPECT_EQ(visited == walked.end() || visited->second.empty() ? "(none)" : visited->second, here) << key;
      found_here += here != "(none)" ? 1 : 0;
    }
    return found_here;
  }

  support::TemporaryDirectory directory_;
  std::string path_ = directory_.path("records.db");
  Records all_;
  Locator locator_;
};

TEST_F(LocatorTest, FindsTheRecordsOfPagesInBothByteOrders) {
  for (const int byte_order : {1234, 4321})
    for (const unsigned page_size : {512u, 4096u, 32768u}) {
      write(page_size, byte_order);
      const DatabasePtr database = open();
      ASSERT_NE(database, nullptr);
      EXPECT_EQ(expect_agreement(database.get()), all_.size() - 6 - 2) << page_size << ": some are long or empty";
      EXPECT_EQ(find("absent"), "(none)");
      EXPECT_EQ(find(key_of(50)), "(none)") << "its pages are its own";
    }
}

class DamagedFile : public LocatorTest, public ::testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(PageSizes, DamagedFile, ::testing::Values(512, 8192, 32768));

/// The bytes that a cursor returns must be those of the file, also where it does not read all of a page.
TEST_P(DamagedFile, HasNothingForALocatorThatALookUpDoesNotFind) {
  const unsigned page_size = GetParam();
  write(page_size);
  const std::string whole = support::read_file(path_);
  std::mt19937 random(11);
  for (int round = 0; round < 150; ++round) {
    std::string bytes = whole;
    for (int left = 20; left > 0; --left) {
      // Most damage is among the slots at the beginnings of pages.
      const size_t page = random() % (bytes.size() / page_size) * page_size;
      bytes[page + random() % (random() % 4 == 0 ? page_size : 40)] = static_cast<char>(random());
    }
    if (round % 5 == 0) bytes.resize(random() % bytes.size());
    support::write_file(path_, bytes);
    const DatabasePtr database = open();
    if (database) expect_agreement(database.get());
    if (HasFailure()) FAIL() << "round " << round;
  }
}

TEST_F(LocatorTest, ReadsNothingPastTheEnd) {
  write(512);
  const DatabasePtr database = open();
  std::string_view value;
  const auto &[key, content] =
      *std::find_if(all_.begin(), all_.end(), [&](const auto &record) { return find(record.first) == record.second; });
  const Location place = locator_.find(key, value);
  ASSERT_EQ(value, content);
  std::string bytes(place.size, '\0');
  ASSERT_EQ(::truncate(path_.c_str(), place.offset + place.size - 1), 0);
  EXPECT_FALSE(locator_.read(place, bytes.data()));
  ASSERT_EQ(::truncate(path_.c_str(), 100), 0);
  EXPECT_EQ(walk(), Visited());
  EXPECT_FALSE(Locator().open(database->fd(database.get())));
}

/// Since queries look up the newest records, each the last of its page or the one before.
TEST_F(LocatorTest, FindsTheNewestRecordsOfALargePageWithoutReadingTheOthers) {
  write_page(32768);
  const std::string bytes = support::read_file(path_);
  const auto cut_behind = [&](const std::string &key) {
    return ::truncate(path_.c_str(), static_cast<off_t>(bytes.find(all_[key] + key) + all_[key].size() + key.size()));
  };
  const DatabasePtr database = open();
  ASSERT_EQ(cut_behind(middle), 0);
  EXPECT_EQ(find(middle), all_[middle]);
  EXPECT_EQ(find(oldest), "(none)");
  EXPECT_EQ(find(middle), all_[middle]) << "it is still in memory";
  support::write_file(path_, bytes);
  const DatabasePtr again = open();
  ASSERT_EQ(cut_behind(newest), 0);
  EXPECT_EQ(find(newest), all_[newest]);
  EXPECT_EQ(find(middle), "(none)");
}

TEST_F(LocatorTest, FindsTheLastRecordOfAKeyThatADamagedPageHasTwice) {
  for (const unsigned page_size : {512u, 32768u})
    for (const std::string &last : {middle, newest}) {
      write_page(page_size);
      std::string bytes = support::read_file(path_);
      bytes.replace(bytes.find(all_[last] + last) + all_[last].size(), oldest.size(), oldest);
      support::write_file(path_, bytes);
      const DatabasePtr database = open();
      ASSERT_NE(database, nullptr);
      EXPECT_EQ(find(oldest), all_[last]) << page_size;
      EXPECT_EQ(get(database.get(), oldest).value, all_[last]) << page_size;
      const Visited all = walk();
      const auto is_oldest = [](const auto &record) { return record.first == oldest; };
      EXPECT_EQ(std::find_if(all.begin(), all.end(), is_oldest)->second, all_[last]) << page_size;
      EXPECT_EQ(std::count_if(all.begin(), all.end(), is_oldest), 2) << page_size;
    }
}

TEST_F(LocatorTest, NeedsMemoryForAPage) {
  write(512);
  const DatabasePtr database = open();
  host.allocations = 0;
  host.fail_allocation = 1;
  EXPECT_EQ(find(key_of(1)), "(none)");
  EXPECT_EQ(find(key_of(1)), all_[key_of(1)]);
}

/// The pages of a long record are followed by those of short ones, in the same bucket.
TEST_F(LocatorTest, FindsTheRecordsBehindALongOne) {
  for (unsigned number = 1; number <= 12; ++number) all_[key_of(number)] = value_of(number, number == 3 ? 5000 : 150);
  ASSERT_TRUE(make_with_library(path_, all_, 512, 0));
  const DatabasePtr database = open();
  ASSERT_NE(database, nullptr);
  EXPECT_EQ(expect_agreement(database.get()), all_.size() - 1);
}

}  // namespace
