// SPDX-License-Identifier: MIT
#include <random>

#include <gtest/gtest.h>

#include "service/rdm.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::Diagnostics;
using support::TemporaryDirectory;

constexpr uint32_t magic = 0x3EB1CA0E;

class Index : public support::HostTest {
 protected:
  /// load writes an index file with these bytes and loads it.
  int load(const std::string &bytes) {
    support::write_file(path_ + ".idx", bytes);
    return load();
  }
  int load() {
    host_free(index_.entries);
    return cs_dbsearch_start("c", &index_);
  }
  void TearDown() override {
    host_free(index_.entries);
    support::HostTest::TearDown();
  }

  TemporaryDirectory directory_;
  std::string path_ = directory_.path("catalog.db");
  support::Registry registry_{directory_, "csid=\"c\" catalog-database=\"" + path_ + "\"\ncsid=\"bare\"\n"};
  cs_dbindex index_{};
};

TEST_F(Index, IsReadInBigEndianOrder) {
  ASSERT_EQ(load(support::index_bytes(magic, 2, {{0x01020304, 0x0A0B0C0D}, {0xFFFFFFFF, 7}})), 0);
  ASSERT_EQ(index_.count, 2u);
  EXPECT_EQ(index_.entries[0].time, 0x01020304u);
  EXPECT_EQ(index_.entries[0].reserved1, 3u);
  EXPECT_EQ(index_.entries[0].key, 0x0A0B0C0Du);
  EXPECT_EQ(index_.entries[0].reserved2, 17u);
  EXPECT_EQ(index_.entries[0].reserved3, 0xDEADBEEFu);
  EXPECT_EQ(index_.entries[1].time, 0xFFFFFFFFu);
  EXPECT_EQ(index_.entries[1].key, 7u);
  // The file may have more entries than it counts.
  for (const uint32_t count : {0u, 1u}) {
    EXPECT_EQ(load(support::index_bytes(magic, count, {{1, 1}, {2, 2}})), 0);
    EXPECT_EQ(index_.count, count);
  }
}

TEST_F(Index, NeedsAConfiguredDatabase) {
  const Diagnostics diagnostics;
  for (const char *csid : {"bare", "unknown", ""}) EXPECT_EQ(cs_dbsearch_start(csid, &index_), 1);
  EXPECT_EQ(cs_dbsearch_start(nullptr, &index_), 1);
  EXPECT_EQ(cs_dbsearch_start("a\nb", &index_), 1);
  EXPECT_EQ(diagnostics.text(),
            "ERROR: Missing catalog-database for <CSID:bare>\nERROR: Missing catalog-database for <CSID:unknown>\n"
            "ERROR: Missing catalog-database for <CSID:>\nERROR: Missing catalog-database for <CSID:(null)>\n"
            "ERROR: Missing catalog-database for <CSID:a\\nb>\n");
}

TEST_F(Index, NeedsAReadableFile) {
  const Diagnostics diagnostics;
  EXPECT_EQ(load(), 1);
  EXPECT_EQ(index_.entries, nullptr);
  const std::string longer = directory_.path(std::string(3000, 'x'));
  const support::Registry registry(directory_, "csid=\"c\" catalog-database=\"" + longer + "\"\n");
  EXPECT_EQ(load(), 1);
  const std::string report = "ERROR: Cannot read index for catalog-database: ";
  EXPECT_EQ(diagnostics.text(),
            report + path_ + ".idx: No such file or directory\n" + report + longer + ".idx: File name too long\n");
}

TEST_F(Index, NeedsTheMagicNumber) {
  const std::string whole = support::index_bytes(magic, 1, {{1, 1}});
  for (const std::string &bytes : {support::index_bytes(magic + 1, 1, {{1, 1}}), std::string(), whole.substr(0, 7),
                                   support::index_bytes(0x0ECAB13E, 1, {{1, 1}})}) {
    const Diagnostics diagnostics;
    EXPECT_EQ(load(bytes), 1);
    EXPECT_EQ(diagnostics.text(), "ERROR: Indexfile is corrupt: bad magic: " + path_ + ".idx\n");
  }
}

/// Callers that ignore the result use the count, so there are as many entries: those of the file, then zeros.
TEST_F(Index, ShorterThanItsCountKeepsTheCountAndItsEntries) {
  const std::string whole = support::index_bytes(magic, 3, {{1, 7}, {2, 8}, {3, 9}});
  for (const size_t size : {size_t{8}, size_t{28}, size_t{48}, whole.size() - 1}) {
    const Diagnostics diagnostics;
    EXPECT_EQ(load(whole.substr(0, size)), 1);
    EXPECT_EQ(diagnostics.text(), "ERROR: Indexfile is corrupt: 3 entries do not fit: " + path_ + ".idx\n");
    ASSERT_EQ(index_.count, 3u) << size;
    ASSERT_NE(index_.entries, nullptr) << size;
    for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(index_.entries[i].key, 28 + 20 * i <= size ? 7 + i : 0) << size;
    EXPECT_EQ(index_.entries[2].reserved3, 0u);
    EXPECT_EQ(cs_dbsearch(&index_, 99), 3);
  }
}

/// A header that counts far more entries than the file holds must not make us allocate memory.
TEST_F(Index, FarShorterThanItsCountHasNoEntries) {
  for (const uint32_t count : {3279u, 0xFFFFFFFFu}) {
    host.largest_allocation = 0;
    EXPECT_EQ(load(support::index_bytes(magic, count, {{1, 1}, {2, 2}})), 1);
    EXPECT_EQ(index_.count, count);
    EXPECT_EQ(index_.entries, nullptr);
    EXPECT_LT(host.largest_allocation, 4096u);
    EXPECT_EQ(cs_dbsearch(&index_, 1), -1) << "without entries it is empty";
  }
  EXPECT_EQ(load(support::index_bytes(magic, 3278, {{1, 1}, {2, 2}})), 1) << "65,520 bytes are missing";
  EXPECT_NE(index_.entries, nullptr);
}

TEST_F(Index, ThatCannotBeReadToItsEndKeepsItsCount) {
  static int allowed;
  qxapi_host table = support::memory_host();
  table.read = [](host_fd fd, void *bytes, int32_t count) {
    return allowed-- > 0 ? support::memory_host().read(fd, bytes, count) : -1;
  };
  qxapi_bind(&table);
  allowed = 1;  // the header
  EXPECT_EQ(load(support::index_bytes(magic, 2, {{1, 1}, {2, 2}})), 1);
  EXPECT_EQ(index_.count, 2u);
  EXPECT_EQ(index_.entries[0].time, 0u);
  EXPECT_EQ(index_.entries[1].key, 0u);
}

TEST_F(Index, IsReadWithOneRead) {
  static std::vector<int32_t> reads;
  reads.clear();
  qxapi_host table = support::memory_host();
  table.read = [](host_fd fd, void *bytes, int32_t count) {
    reads.push_back(count);
    return support::memory_host().read(fd, bytes, count);
  };
  qxapi_bind(&table);
  const std::vector<std::pair<uint32_t, uint32_t>> entries(5000, {1, 1});
  ASSERT_EQ(load(support::index_bytes(magic, 5000, entries)), 0);
  EXPECT_EQ(reads, (std::vector<int32_t>{8, 5000 * 20})) << "its header, then all its entries";
}

cs_dbindex index_of(std::vector<cs_dbentry> &entries) {
  return {entries.data(), static_cast<uint32_t>(entries.size())};
}

std::vector<cs_dbentry> entries_at(const std::vector<uint32_t> &times) {
  std::vector<cs_dbentry> entries;
  for (uint32_t time : times) entries.push_back({time, 0, static_cast<uint32_t>(entries.size() + 1), 0, 0});
  return entries;
}

struct SearchRow {
  std::vector<uint32_t> times;
  time_t since;
  int32_t position;
};

TEST(Search, AnswersTheFirstPositionToSend) {
  const SearchRow rows[] = {
      {{}, 5, -1},
      {{10}, 5, 1},  // a single entry is never sent
      {{10}, 10, 1},
      {{10}, 15, 1},
      {{10, 20}, 5, 0},
      {{10, 20}, 10, 0},
      {{10, 20}, 15, 2},  // narrows to the last entry
      {{10, 20}, 20, 2},
      {{10, 20}, 25, 2},
      {{10, 20, 30}, 5, 0},
      {{10, 20, 30}, 15, 1},
      {{10, 20, 30}, 20, 1},
      {{10, 20, 30}, 25, 3},
      {{10, 20, 30}, 30, 3},
      {{10, 20, 30, 40}, 25, 2},
      {{10, 20, 30, 40}, 35, 4},
      {{10, 10, 10, 10, 10}, 10, 2},  // any of several equal times
      {{1, 0x80000000, 0xFFFFFFFF}, 0x80000000, 1},
      {{1, 0x80000000, 0xFFFFFFFF}, 0x100000000, 3},
  };
  for (const SearchRow &row : rows) {
    std::vector<cs_dbentry> entries = entries_at(row.times);
    const cs_dbindex index = index_of(entries);
    EXPECT_EQ(cs_dbsearch(&index, row.since), row.position) << row.times.size() << " entries, since " << row.since;
  }
}

/// literal_search implements the description of the search step by step.
int32_t literal_search(const std::vector<uint32_t> &time, uint32_t since) {
  const int count = static_cast<int>(time.size());
  if (count == 0) return -1;
  int lo = 0, hi = count - 1;
  while (lo <= hi) {
    const int mid = (lo + hi) / 2;
    if (mid >= count - 1) return count;
    if (since < time[static_cast<size_t>(mid)])
      hi = mid - 1;
    else if (time[static_cast<size_t>(mid)] < since)
      lo = mid + 1;
    else
      return mid;
  }
  int k = lo < hi ? lo : hi;
  if (k < 0) k = 0;
  if (k > count - 1) k = count - 1;
  if (time[static_cast<size_t>(k)] >= since) return k;
  const int m = lo > hi ? lo : hi;
  return time[static_cast<size_t>(m)] >= since ? m : -1;
}

TEST(Search, AgreesWithItsDescriptionOnRandomIndexes) {
  std::mt19937 random(1);
  for (int round = 0; round < 20000; ++round) {
    std::vector<uint32_t> times(random() % 12);
    for (uint32_t &time : times) time = 1 + random() % 16;
    std::sort(times.begin(), times.end());
    std::vector<cs_dbentry> entries = entries_at(times);
    const cs_dbindex index = index_of(entries);
    const uint32_t since = random() % 18;
    ASSERT_EQ(cs_dbsearch(&index, since), literal_search(times, since)) << "round " << round;
  }
}

}  // namespace
