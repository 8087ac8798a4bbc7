// SPDX-License-Identifier: MIT
/// Files that build_hash_file has written, read by the hash library, its dump program and our reader.
#include "catalog/hash/builder.h"

#include <fcntl.h>
#include <unistd.h>

#include <random>

#include <gtest/gtest.h>

#include "catalog/hash/statistics.h"
#include "catalog/os/error.h"
#include "support/database.h"
#include "support/files.h"
#include "support/process.h"
#include "support/random_bytes.h"

using namespace rdm;

namespace {

using catalog::RecordRef;

std::string key_of(uint32_t number) {
  char text[9];
  std::snprintf(text, sizeof text, "%08x", number);
  return text;
}

class HashWriter : public ::testing::Test {
 protected:
  void add(size_t size) {
    const std::string value = support::random_bytes(random_, size);
    const auto number = static_cast<uint32_t>(values_.size() + 1);
    const std::string key = key_of(number);
    items_.push_back({number, hashdb::default_hash(key.data(), key.size()), 8, static_cast<uint32_t>(size)});
    values_.push_back(value);
  }

  void write() {
    const catalog::RecordLoader load = [this](const RecordRef &ref) -> catalog::Record {
      key_ = key_of(static_cast<uint32_t>(ref.offset));
      return {key_, values_.at(static_cast<size_t>(ref.offset) - 1)};
    };
    ::unlink(path.c_str());
    catalog::build_hash_file(catalog::File::create(path), items_, load, {});
  }

  /// write_random writes a random set of fewer than `limit` records.
  void write_random(unsigned seed, size_t limit) {
    random_.seed(seed);
    items_.clear();
    values_.clear();
    const size_t longest = size_t{1} << (6 + seed % 13);
    for (size_t i = 0, count = random_() % limit; i < count; ++i) add(random_() % longest);
    write();
  }

  void expect_found(DB *db) {
    ASSERT_NE(db, nullptr);
    for (uint32_t i = 0; i < values_.size(); ++i)
      ASSERT_TRUE(support::get_record(db, key_of(i + 1)) == values_[i]) << i;
    const std::string absent = key_of(static_cast<uint32_t>(values_.size() + 1));
    const DBT key = support::dbt_of(absent);
    DBT value{};
    EXPECT_EQ(dba_get(db, &key, &value), 1);
  }

  /// put_by_library adds records as another program would.
  void put_by_library(size_t count, size_t size) {
    const DatabasePtr db(QX_dbopen(path.c_str(), O_RDWR, 0, DB_HASH, nullptr));
    for (size_t i = 0; i < count; ++i) {
      add(size);
      support::put_record(db.get(), key_of(static_cast<uint32_t>(values_.size())), values_.back());
    }
  }

  void expect_readable() {
    expect_found(DatabasePtr(dba_open(path.c_str(), "r")).get());
    expect_found(DatabasePtr(QX_dbopen(path.c_str(), O_RDWR, 0, DB_HASH, nullptr)).get());
  }

  support::TemporaryDirectory directory;
  std::string path = directory.path("file");
  std::mt19937 random_;
  std::vector<RecordRef> items_;
  std::vector<std::string> values_;
  std::string key_;
};

TEST_F(HashWriter, TheLibraryReadsRandomSetsOfRecords) {
  for (unsigned seed = 0; seed < 100; ++seed) {
    write_random(seed, 300);
    expect_readable();
  }
}

TEST_F(HashWriter, TheLibraryReadsRecordsOfEveryLengthAroundAPage) {
  for (size_t length = 32700; length <= 32800; ++length) add(length);
  for (size_t length = 65400; length <= 65600; length += 3) add(length);
  write();
  expect_readable();
}

// The hash library uses a page whose bit is clear, even behind the end of the file, and does not count it. Regression:
// it then wrote a new bucket, which it placed behind the last counted page, over that page, and its record was lost.
TEST_F(HashWriter, TheLibraryPutsNoBucketUponAnOverflowPageOfItsOwn) {
  add(70000);
  write();
  put_by_library(2, 30);
  expect_readable();
}

// With seed 17, the library crashed when the first overflow pages had addresses that are numbers of buckets.
TEST_F(HashWriter, TheLibraryAddsToRandomSetsOfRecords) {
  for (unsigned seed = 0; seed < 30; ++seed) {
    write_random(seed, 100);
    put_by_library(200, random_() % 3000);
    expect_readable();
  }
}

TEST_F(HashWriter, TheDumpProgramListsEveryRecord) {
  for (size_t i = 0; i < 500; ++i) add(i * 3);
  write();
  const support::Finished dump = support::run({"/usr/bin/db_dump185", "-p", path});
  ASSERT_EQ(dump.status, 0) << dump.errors;
  size_t keys = 0;
  for (uint32_t i = 1; i <= 500; ++i) keys += dump.out.find("\n" + key_of(i) + "\n") != std::string::npos ? 1 : 0;
  EXPECT_EQ(keys, 500u);
}

/// failure returns the text of the Failure that `write` throws; empty if it throws none.
template <typename Write>
std::string failure(Write write) {
  try {
    write();
  } catch (const catalog::Failure &failure) {
    return failure.what();
  }
  return "";
}

/// first_written_page returns the offset of the first page after the header that has records and is no bitmap.
int64_t first_written_page(const catalog::File &file, int64_t page_size) {
  int64_t page = page_size;
  for (uint16_t slots = 0;; page += page_size) {
    file.read_at(page, &slots, sizeof slots);
    if (slots != 0 && slots != 0xFFFF) return page;
  }
}

TEST_F(HashWriter, ARecordThatIsNotReadBackAsItWasWrittenIsAFailure) {
  for (int i = 0; i < 2000; ++i) add(3000);  // more than are collected before they are written
  constexpr int64_t page_size = 1 << 15;
  for (const int64_t changed : {int64_t{4}, page_size - 1, page_size - 3000}) {
    ::unlink(path.c_str());
    const catalog::File file = catalog::File::create(path);
    size_t loaded = 0;
    const catalog::RecordLoader load = [&](const RecordRef &ref) -> catalog::Record {
      // Before the last record, change a byte of the slots, of a key or of a value on the first page with records.
      if (++loaded == items_.size()) file.write_at(first_written_page(file, page_size) + changed, "!");
      key_ = key_of(static_cast<uint32_t>(ref.offset));
      return {key_, values_.at(static_cast<size_t>(ref.offset) - 1)};
    };
    EXPECT_EQ(failure([&] { build_hash_file(file, items_, load, {}); }),
              "cannot verify " + path + ": it does not contain what was written");
  }
}

TEST_F(HashWriter, MoreThanAFileHasPagesForIsAFailure) {
  constexpr uint32_t number = 10, size = 256u << 20;
  for (uint32_t i = 0; i < number; ++i) items_.push_back({i, i * 0x1234567, 8, size});
  const catalog::RecordLoader load = [](const RecordRef &) -> catalog::Record {
    throw std::logic_error("nothing is written");
  };
  EXPECT_EQ(failure([&] { build_hash_file(catalog::File::create(path), items_, load, {}); }),
            "the records are too many or too long for a catalog file");
}

TEST_F(HashWriter, AFileThatHasBecomeShorterIsAFailure) {
  support::write_file(path, "short");
  char bytes[6];
  EXPECT_EQ(failure([&] { catalog::File::open(path).read_at(0, bytes, sizeof bytes); }),
            "cannot read " + path + ": it ends too early");
}

TEST_F(HashWriter, TheNumberOfBucketsIsTheSmallestWithRoomForAllRecords) {
  const struct {
    int64_t records, buckets;
  } cases[] = {{65, 8}, {66, 16}, {130, 16}, {131, 32}};  // a page of 16 KiB has room for 8.14
  for (const auto &[records, buckets] : cases) {
    while (values_.size() < static_cast<size_t>(records)) add(2000);
    write();
    EXPECT_EQ(catalog::statistics_of(path).buckets, buckets) << records;
    expect_readable();
  }
}

TEST_F(HashWriter, AFileWithoutRecordsIsReadable) {
  write();
  expect_readable();
}

}  // namespace
