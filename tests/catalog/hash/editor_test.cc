// SPDX-License-Identifier: MIT
/// Files after many edits, read by the hash library and by our reader.
#include "catalog/hash/editor.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "catalog/hash/page_map.h"
#include "support/database.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/random_bytes.h"

using namespace rdm;

namespace {

using catalog::HashTable;
using catalog::Record;
using catalog::RecordRef;
using hashdb::Header;

using Records = std::map<std::string, std::string>;

class HashEditor : public ::testing::Test {
 protected:
  std::string random_value(size_t longest) { return support::random_bytes(random_, random_() % (longest + 1)); }
  static std::string key_of(uint32_t number) {
    char text[16];
    std::snprintf(text, sizeof text, "key %u", number);
    return text;
  }

  /// refs_of returns references to records by their keys. A key without a value in `records` is to be erased.
  std::vector<RecordRef> refs_of(const std::vector<std::string> &keys, const Records &records) {
    keys_ = keys;
    std::vector<RecordRef> refs;
    for (size_t i = 0; i < keys.size(); ++i) {
      const auto found = records.find(keys[i]);
      refs.push_back({static_cast<int64_t>(i), catalog::hash_of(keys[i]), static_cast<uint32_t>(keys[i].size()),
                      found == records.end() ? catalog::erased_value : static_cast<uint32_t>(found->second.size())});
    }
    return refs;
  }
  catalog::RecordLoader load(const Records &records) const {
    return [this, &records](const RecordRef &ref) -> Record {
      const std::string &key = keys_.at(static_cast<size_t>(ref.offset));
      const auto found = records.find(key);
      return {key, found == records.end() ? std::string_view() : std::string_view(found->second)};
    };
  }

  void write_whole(const Records &records) {
    std::vector<std::string> keys;
    for (const auto &[key, value] : records) keys.push_back(key);
    std::vector<RecordRef> refs = refs_of(keys, records);
    ::unlink(path_.c_str());
    catalog::build_hash_file(catalog::File::create(path_), refs, load(records), {});
  }

  /// written writes a file with random records besides `more`, and returns them all.
  Records written(uint32_t count, size_t longest, Records more = {}) {
    for (uint32_t i = 0; i < count; ++i) more[key_of(i)] = random_value(longest);
    write_whole(more);
    return more;
  }

  /// change writes the next state of the records to the file. It returns true if the file was edited.
  bool change(const std::vector<std::string> &keys, const Records &next) {
    std::vector<RecordRef> refs = refs_of(keys, next);
    const std::string edited = path_ + ".new";
    ::unlink(edited.c_str());
    const catalog::File file = catalog::File::create(edited);
    if (!catalog::edit_hash_file(HashTable(path_), file, refs, load(next), {})) {
      EXPECT_EQ(file.size(), 0);
      write_whole(next);
      return false;
    }
    EXPECT_EQ(::rename(edited.c_str(), path_.c_str()), 0);
    return true;
  }

  /// expect_sound compares the file with the records, and its bitmaps with the pages in use.
  void expect_sound(const Records &records) {
    const HashTable table(path_);
    Records found;
    table.each([&](std::string_view key, std::string_view value) { found.emplace(key, value); });
    ASSERT_TRUE(found == records);
    support::expect_records(DatabasePtr(QX_dbopen(path_.c_str(), O_RDWR, 0, DB_HASH, nullptr)).get(), records);
    EXPECT_EQ(used_bits(table), linked_pages(table));
    const catalog::PageMap use(table);
    EXPECT_FALSE(use.is_shared());
    EXPECT_TRUE(use.bitmaps_match());
  }

  static size_t linked_pages(const HashTable &table) {
    const auto &bitmaps = table.header().bitmaps;
    auto count =
        static_cast<size_t>(std::count_if(std::begin(bitmaps), std::end(bitmaps), [](auto page) { return page != 0; }));
    catalog::BucketReader reader(table);
    for (uint32_t bucket = 0; bucket <= table.header().max_bucket; ++bucket) {
      for (reader.start(bucket); reader.next();) {
      }
      count += reader.overflow().size();
    }
    return count;
  }
  /// used_bits counts the pages that are marked as used. It expects the bits of pages that do not exist yet to be set.
  static size_t used_bits(const HashTable &table) {
    size_t used = 0, looking_free = 0, first = 0;
    const hashdb::Header &header = table.header();
    const size_t pages = header.spares[header.overflow_point];
    for (uint32_t map = 0; map < hashdb::doublings && header.bitmaps[map] != 0; ++map) {
      std::string page(header.page_size, '\0');
      const uint64_t number = overflow_page(header, header.bitmaps[map]);
      table.file().read_at(static_cast<int64_t>(number << header.page_shift), page.data(), page.size());
      for (size_t bit = 0; bit < 8 * page.size(); ++bit) {
        const bool is_set = (static_cast<unsigned char>(page[bit / 8]) >> bit % 8 & 1) != 0;
        used += is_set && first + bit < pages ? 1 : 0;
        looking_free += !is_set && first + bit >= pages ? 1 : 0;
      }
      first += 8 * page.size();
    }
    EXPECT_EQ(looking_free, 0u);
    return used;
  }

  support::TemporaryDirectory directory_;
  std::string path_ = directory_.path("file");
  std::mt19937 random_;
  std::vector<std::string> keys_;
};

/// random_sets returns the number of record sets: RDM_RANDOM_SETS, or 50.
unsigned random_sets() { return support::number_from("RDM_RANDOM_SETS", 50U); }

TEST_F(HashEditor, RandomChangesToRandomSetsLoseNothing) {
  size_t edits = 0;
  for (unsigned seed = 0; seed < random_sets(); ++seed) {
    random_.seed(seed);
    Records records;
    const size_t longest = size_t{1} << (4 + seed % 15), count = 20 + random_() % 200;
    for (uint32_t i = 0; i < count; ++i) records[key_of(i)] = random_value(longest);
    write_whole(records);
    for (int round = 0; round < 5; ++round) {
      std::vector<std::string> keys;
      for (size_t i = 1 + random_() % 3; i > 0; --i) {
        const std::string key = key_of(static_cast<uint32_t>(random_() % (count + 50)));
        if (std::find(keys.begin(), keys.end(), key) != keys.end()) continue;
        keys.push_back(key);
        if (random_() % 3 == 0)
          records.erase(key);
        else
          records[key] = random_value(longest);
      }
      edits += change(keys, records) ? 1 : 0;
      ASSERT_NO_FATAL_FAILURE(expect_sound(records)) << "seed " << seed << " round " << round;
    }
  }
  EXPECT_GT(edits, random_sets() / 2);
}

TEST_F(HashEditor, LongRecordsComeAndGo) {
  Records records = written(3000, 4000);
  for (const size_t size : {20000u, 40000u, 300000u, 1u << 20}) {
    records["long"] = std::string(size, 'x');
    EXPECT_TRUE(change({"long"}, records)) << size;
    ASSERT_NO_FATAL_FAILURE(expect_sound(records)) << size;
  }
  const int64_t size = HashTable(path_).file().size();
  records.erase("long");
  EXPECT_TRUE(change({"long"}, records));
  ASSERT_NO_FATAL_FAILURE(expect_sound(records));
  records["other"] = std::string(300000, 'y');
  EXPECT_TRUE(change({"other"}, records));
  ASSERT_NO_FATAL_FAILURE(expect_sound(records));
  EXPECT_EQ(HashTable(path_).file().size(), size) << "pages that were free are used again";
}

/// Regression: a damaged bitmap marked the pages of a long record as free. A change was written there and read back,
/// the number of records was right, and the long record was lost without a message.
TEST_F(HashEditor, PagesThatDamagedBitmapsOfferAreNotTaken) {
  Records records = written(3000, 4000, {{"long", std::string(300000, 'x')}});
  const Header header = HashTable(path_).header();
  std::string bytes = support::read_file(path_);
  const uint64_t bitmap = overflow_page(header, header.bitmaps[0]);
  bytes.replace(bitmap << header.page_shift, header.page_size, header.page_size, '\0');
  support::write_file(path_, bytes);
  EXPECT_FALSE(catalog::PageMap(HashTable(path_)).bitmaps_match());
  records["other"] = std::string(300000, 'y');
  EXPECT_FALSE(change({"other"}, records)) << "the whole file is written";
  ASSERT_NO_FATAL_FAILURE(expect_sound(records));
}

/// Regression: with a damaged bitmap address, bits were set in a record.
TEST_F(HashEditor, APageOfARecordIsNoBitmap) {
  Records records = written(3000, 4000, {{"long", std::string(300000, 'x')}});
  std::string bytes = support::read_file(path_);
  Header header = HashTable(path_).header();
  header.bitmaps[0] = static_cast<uint16_t>(header.bitmaps[0] + 2);
  hashdb::encode(header, reinterpret_cast<unsigned char *>(bytes.data()));
  support::write_file(path_, bytes);
  EXPECT_TRUE(catalog::PageMap(HashTable(path_)).is_shared());
  records["other"] = std::string(300000, 'y');
  EXPECT_FALSE(change({"other"}, records)) << "the whole file is written";
  ASSERT_NO_FATAL_FAILURE(expect_sound(records));
}

TEST_F(HashEditor, AFileThatHasOutgrownItsPagesIsWrittenAsAWhole) {
  Records records = written(500, 1000);
  bool edited = true;
  for (uint32_t i = 500; edited && i < 20000; i += 5) {
    std::vector<std::string> keys;
    for (uint32_t k = i; k < i + 5; ++k) records[keys.emplace_back(key_of(k))] = random_value(1000);
    edited = change(keys, records);
  }
  EXPECT_FALSE(edited);
  ASSERT_NO_FATAL_FAILURE(expect_sound(records));
}

TEST_F(HashEditor, AFileOfTheLibraryIsWrittenAsAWhole) {
  Records records;
  {
    const DatabasePtr database(dba_open(path_.c_str(), "w+"));
    for (uint32_t i = 0; i < 100; ++i) {
      records[key_of(i)] = random_value(100);
      support::put_record(database.get(), key_of(i), records[key_of(i)]);
    }
  }
  records[key_of(3)] = "new";
  EXPECT_FALSE(change({key_of(3)}, records));
  ASSERT_NO_FATAL_FAILURE(expect_sound(records));
}

TEST_F(HashEditor, OnlyTheBucketsThatChangeAreWritten) {
  Records records = written(2000, 500);
  const std::string before = support::read_file(path_);
  records[key_of(5)] = "new";
  ASSERT_TRUE(change({key_of(5)}, records));
  const std::string after = support::read_file(path_);
  ASSERT_EQ(after.size(), before.size());
  const size_t page = HashTable(path_).header().page_size;
  size_t changed = 0;
  for (size_t at = 0; at < after.size(); at += page) changed += after.compare(at, page, before, at, page) != 0 ? 1 : 0;
  EXPECT_LE(changed, 4u) << "header, bitmap, the bucket and its overflow page";
}

}  // namespace
