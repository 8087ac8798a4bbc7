// SPDX-License-Identifier: MIT
#include "dba/reader.h"

#include <malloc.h>

#include <cerrno>
#include <cstring>
#include <random>

#include "dba/records.h"
#include "hashdb/format.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using records::get;
using records::item;
using records::key_of;
using records::number_one;
using records::Records;
using records::value_of;

class Reading : public support::HostTest {
 protected:
  DatabasePtr open() { return DatabasePtr(dba_open(path.c_str(), "r")); }

  /// expect_all asserts that reads by key and a walk both return exactly these records.
  void expect_all(const Records &all) {
    const DatabasePtr db = open();
    ASSERT_NE(db, nullptr);
    for (const auto &[name, content] : all) {
      const auto found = get(db.get(), name);
      EXPECT_EQ(found.result, 0) << name;
      EXPECT_TRUE(found.value == content) << name;
    }
    int result = 0;
    EXPECT_TRUE(records::walk(db.get(), result) == all);
    EXPECT_EQ(result, 1);
  }

  support::TemporaryDirectory directory;
  std::string path = directory.path("catalog");
};

/// Records of every length around the size of a page, where their layout changes.
TEST_F(Reading, ReadsRecordsOfEveryLengthAroundAPage) {
  for (unsigned length = 0; length < 600; ++length) {
    const Records all{{"00000001", value_of(1, length)}};
    ASSERT_TRUE(records::make_with_library(path, all, 128)) << length;
    expect_all(all);
  }
}

/// Except records that end with a page and whose key took more than one: the library corrupts such files.
TEST_F(Reading, ReadsKeysOfEveryLengthAroundAPage) {
  constexpr unsigned room = 128 - 14;
  for (unsigned length = 1; length < 400; ++length)
    for (const unsigned content : {0u, 1u, 50u, 110u, 300u}) {
      if (length > room && (length + content) % room == 0) continue;
      const Records all{{value_of(3, length), value_of(1, content)}};
      ASSERT_TRUE(records::make_with_library(path, all, 128)) << length;
      expect_all(all);
    }
}

TEST_F(Reading, ReadsValuesMuchLongerThanAPage) {
  Records all;
  for (unsigned i = 1; i <= 40; ++i) all[key_of(i)] = value_of(i, i % 4 == 0 ? 100000 + i * 7919 : i * 10);
  ASSERT_TRUE(records::make_with_library(path, all, 4096));
  expect_all(all);
}

TEST_F(Reading, ReadsLongAndShortRecordsOfOneBucket) {
  HASHINFO info{};
  info.bsize = 512;
  info.hash = [](const void *, size_t) { return uint32_t{0}; };  // all in one bucket
  for (size_t length = 500; length < 1600; length += 37) {
    Records all;
    for (unsigned i = 1; i <= 40; ++i) all[key_of(i)] = value_of(i, i % 9 == 1 ? length + i : 20 + i);
    {
      const DatabasePtr db(QX_dbopen(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600, DB_HASH, &info));
      for (const auto &[name, content] : all) {
        DBT key = item(name);
        const DBT value = item(content);
        ASSERT_EQ(dba_put(db.get(), &key, &value), 0) << length;
      }
    }
    const DatabasePtr db(QX_dbopen(path.c_str(), O_RDONLY, 0, DB_HASH, &info));
    ASSERT_NE(db, nullptr);
    for (const auto &[name, content] : all) EXPECT_TRUE(get(db.get(), name).value == content) << length << " " << name;
    int result = 0;
    EXPECT_TRUE(records::walk(db.get(), result) == all) << length;
    EXPECT_EQ(result, 1);
  }
}

/// The last page of a long record may hold other records, whose bytes end where those of the long one begin.
TEST_F(Reading, ReadsAShortRecordBehindALongOneOnItsLastPage) {
  Records all{{number_one, value_of(1, 700)}};
  ASSERT_TRUE(records::make_with_library(path, all, 512));
  std::string bytes = support::read_file(path);
  const auto header = hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data()));
  const auto bucket_of = [&](const std::string &name) {
    return hashdb::bucket_of(header, hashdb::default_hash(name.data(), name.size()));
  };
  unsigned number = 2;
  while (bucket_of(key_of(number)) != bucket_of(number_one)) ++number;
  const std::string name = key_of(number), content = "short";
  for (size_t place = 512; place < bytes.size(); place += 512) {
    uint16_t slots[7];
    std::memcpy(slots, &bytes[place], sizeof slots);
    constexpr uint16_t full_key_data = 3;
    if (slots[0] != 2 || slots[2] != full_key_data) continue;
    slots[0] = 4;
    slots[3] = static_cast<uint16_t>(slots[1] - name.size());
    slots[4] = slots[6] = static_cast<uint16_t>(slots[3] - content.size());
    slots[5] = static_cast<uint16_t>(slots[4] - sizeof slots);
    std::memcpy(&bytes[place], slots, sizeof slots);
    bytes.replace(place + slots[4], content.size() + name.size(), content + name);
    all[name] = content;
  }
  ASSERT_EQ(all.size(), 2u);
  support::write_file(path, bytes);
  expect_all(all);
}

TEST_F(Reading, ReadsPagesOfEverySizeAndByteOrder) {
  for (unsigned size = 64; size <= 32768; size *= 2)
    for (const int order : {1234, 4321}) {
      Records all;
      for (unsigned i = 1; i <= 300; ++i) all[key_of(i)] = value_of(i, (i * 13) % (size / 3));
      ASSERT_TRUE(records::make_with_library(path, all, size, order)) << size;
      expect_all(all);
    }
}

/// make_random_changes puts and deletes records through the library, which sometimes loses one.
void make_random_changes(const std::string &path, unsigned seed) {
  std::mt19937 random(seed);
  HASHINFO info{};
  info.bsize = 256u << random() % 6;
  info.ffactor = random() % 20;
  const DatabasePtr db(QX_dbopen(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600, DB_HASH, &info));
  ASSERT_NE(db, nullptr);
  for (unsigned i = 0; i < 500; ++i) {
    const std::string name = key_of(random() % 200);
    const std::string content = value_of(i, random() % (info.bsize / 3));
    DBT key = item(name);
    const DBT value = item(content);
    if (random() % 4 == 0)
      dba_del(db.get(), &key);
    else
      dba_put(db.get(), &key, &value);
  }
}

TEST_F(Reading, ReadsTheSameRecordsAsTheLibrary) {
  size_t compared = 0;
  for (unsigned seed = 0; seed < 60; ++seed) {
    make_random_changes(path, seed);
    const DatabasePtr library(dbopen(path.c_str(), O_RDONLY, 0, DB_HASH, nullptr));
    const DatabasePtr db = open();
    ASSERT_NE(db, nullptr);
    for (unsigned i = 0; i < 200; ++i) {
      const auto expected = get(library.get(), key_of(i));
      if (expected.result != 0) continue;
      EXPECT_TRUE(get(db.get(), key_of(i)).value == expected.value) << seed << " " << i;
      ++compared;
    }
    int result = 0;
    records::walk(db.get(), result);
    EXPECT_EQ(result, 1) << seed;
  }
  EXPECT_GT(compared, 6000u);
}

TEST_F(Reading, UsesTheHashFunctionItIsGiven) {
  HASHINFO info{};
  info.hash = [](const void *bytes, size_t size) {
    return static_cast<uint32_t>(size) * 77 + *static_cast<const unsigned char *>(bytes);
  };
  {
    const DatabasePtr db(QX_dbopen(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600, DB_HASH, &info));
    DBT key = item(number_one);
    const std::string one = "one";
    const DBT value = item(one);
    ASSERT_EQ(dba_put(db.get(), &key, &value), 0);
  }
  const DatabasePtr db(QX_dbopen(path.c_str(), O_RDONLY, 0, DB_HASH, &info));
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(get(db.get(), "00000001").value, "one");
  EXPECT_EQ(open(), nullptr);
  EXPECT_EQ(errno, EINVAL);
}

TEST_F(Reading, UsesTheDefaultHashFunctionIfNoneIsGiven) {
  ASSERT_TRUE(records::make_with_library(path, {{"00000001", "one"}}));
  const HASHINFO info{};
  const DatabasePtr db(QX_dbopen(path.c_str(), O_RDONLY, 0, DB_HASH, &info));
  ASSERT_NE(db, nullptr);
  EXPECT_EQ(get(db.get(), "00000001").value, "one");
}

TEST_F(Reading, CloseReleasesTheMemoryOfLongValues) {
  const Records all{{"00000001", value_of(1, 1000000)}, {"00000002", value_of(2, 500000)}};
  ASSERT_TRUE(records::make_with_library(path, all, 4096));
  expect_all(all);
  const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
  for (int i = 0; i < 50; ++i) expect_all(all);
  const size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
  EXPECT_LT(after, before + 100000);
  EXPECT_EQ(host.live_blocks, 0);
}

/// Reading a long value allocates a page buffer, the key and the value, which grows.
TEST_F(Reading, FailsWhenMemoryDoes) {
  ASSERT_TRUE(records::make_with_library(path, {{"00000001", value_of(1, 5000)}}, 512));
  int failures = 0;
  for (bool failed = true; failed; failures += failed ? 1 : 0) {
    const DatabasePtr db = open();
    host.fail_allocation = host.allocations + 1 + failures;
    errno = 0;
    failed = get(db.get(), "00000001").result != 0;
    if (failed) {
      EXPECT_EQ(errno, ENOMEM) << failures;
    }
    host.fail_allocation = 0;
    EXPECT_EQ(get(db.get(), "00000001").value, value_of(1, 5000));
  }
  EXPECT_GE(failures, 4);
}

TEST_F(Reading, RefusesFlagsThatReadsDoNotHave) {
  ASSERT_TRUE(records::make_with_library(path, {{"00000001", "one"}}));
  const DatabasePtr db = open();
  DBT key = item(number_one);
  DBT value{};
  EXPECT_EQ(db->get(db.get(), &key, &value, R_NOOVERWRITE), -1);
  EXPECT_EQ(errno, EINVAL);
  for (const u_int flag : {0, R_CURSOR, R_LAST, R_PREV}) {
    errno = 0;
    EXPECT_EQ(db->seq(db.get(), &key, &value, flag), -1) << flag;
    EXPECT_EQ(errno, EINVAL) << flag;
  }
  EXPECT_EQ(db->sync(db.get(), 0), 0);
}

TEST_F(Reading, LeavesErrnoAloneWhenItSucceeds) {
  ASSERT_TRUE(records::make_with_library(path, {{"00000001", "one"}}));
  const DatabasePtr db = open();
  errno = ERANGE;
  EXPECT_EQ(get(db.get(), "00000001").result, 0);
  EXPECT_EQ(get(db.get(), "00000002").result, 1);
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(Reading, KeepsTheFileItOpened) {
  ASSERT_TRUE(records::make_with_library(path, {{"00000001", "old"}}));
  const DatabasePtr db = open();
  ASSERT_TRUE(records::make_with_library(directory.path("new"), {{"00000001", "new"}}));
  ASSERT_EQ(std::rename(directory.path("new").c_str(), path.c_str()), 0);
  EXPECT_EQ(get(db.get(), "00000001").value, "old");
  EXPECT_EQ(get(open().get(), "00000001").value, "new");
}

}  // namespace
