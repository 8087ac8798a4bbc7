// SPDX-License-Identifier: MIT
#include <algorithm>
#include <random>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "dba/records.h"
#include "hashdb/cursor.h"
#include "qxapi/guard.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;
using hashdb::Cursor;

namespace {

/// Seen is a record or, with an empty key, what ended the look-up.
struct Seen {
  Cursor::Result result;
  std::string key, value;
  int64_t offset;
  bool operator==(const Seen &) const = default;
};

class DamagedPages : public support::HostTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  /// open opens the file. Returns false if its header is not sound.
  bool open() {
    const std::string bytes = support::read_file(path_);
    file_ = HostFileGuard(host_open_read(path_.c_str()));
    if (bytes.size() < hashdb::header_size) return false;
    source_ = {file_.get(), static_cast<int64_t>(bytes.size()),
               hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data()))};
    return hashdb::is_sound(source_.header, hashdb::default_hash, source_.size);
  }
  uint32_t bucket_of(const std::string &key) const {
    return hashdb::bucket_of(source_.header, hashdb::default_hash(key.data(), key.size()));
  }
  static Seen seen(Cursor &cursor, Cursor::Result result) {
    if (result != Cursor::record) return {result, {}, {}, 0};
    return {result, std::string(cursor.key()), std::string(cursor.value()), cursor.value_offset()};
  }
  /// count returns how many records of its bucket have a key.
  int64_t count(const std::string &key) const {
    Cursor cursor(source_);
    cursor.start(bucket_of(key));
    int64_t found = 0;
    while (cursor.next() == Cursor::record) found += cursor.key() == key ? 1 : 0;
    return found;
  }
  /// walk returns the records of a bucket, sorted, and what ended it.
  std::vector<Seen> walk(uint32_t bucket, Cursor::Order order) const {
    Cursor cursor(source_);
    cursor.start(bucket, order);
    std::vector<Seen> all;
    do all.push_back(seen(cursor, cursor.next()));
    while (all.back().result == Cursor::record);
    std::sort(all.begin(), all.end(), [](const Seen &a, const Seen &b) {
      return std::tie(a.key, a.offset, a.value) < std::tie(b.key, b.offset, b.value);
    });
    return all;
  }

  support::TemporaryDirectory directory_;
  std::string path_ = directory_.path("records.db");
  HostFileGuard file_;
  hashdb::Source source_{-1, 0, {}};
};

INSTANTIATE_TEST_SUITE_P(PageSizes, DamagedPages, ::testing::Values(512, 8192, 32768));

/// Whether a cursor reads all of a page, its beginning or its end first must not change what it finds.
TEST_P(DamagedPages, HaveTheSameRecordsInBothOrders) {
  const unsigned page_size = GetParam();
  records::Records all;
  for (unsigned number = 1; number <= 300; ++number)
    all[records::key_of(number)] =
        records::value_of(number, number % 50 == 0 ? size_t{3} * page_size : number * 7 % (page_size / 8));
  ASSERT_TRUE(records::make_with_library(path_, all, page_size));
  const std::string whole = support::read_file(path_);
  std::mt19937 random(17);
  for (int round = 0; round < 100; ++round) {
    std::string bytes = whole;
    for (int left = round == 0 ? 0 : 20; left > 0; --left) {
      // Most damage is among the slots at the beginnings of pages.
      const size_t page = random() % (bytes.size() / page_size) * page_size;
      bytes[page + random() % (random() % 4 == 0 ? page_size : 40)] = static_cast<char>(random());
    }
    support::write_file(path_, bytes);
    if (!open()) continue;
    Cursor by_key(source_), newest(source_);
    for (const auto &[key, value] : all) {
      const Seen there = seen(by_key, by_key.find(bucket_of(key), key));
      const Seen here = seen(newest, newest.find_newest(bucket_of(key), key));
      ASSERT_TRUE(here == there || (here.result == there.result && count(key) > 1)) << "round " << round << ' ' << key;
    }
    for (uint32_t bucket = 0; bucket <= source_.header.max_bucket; ++bucket)
      ASSERT_EQ(walk(bucket, Cursor::newest_first), walk(bucket, Cursor::oldest_first)) << "round " << round;
  }
}

}  // namespace
