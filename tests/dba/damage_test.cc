// SPDX-License-Identifier: MIT
/// Damaged catalog files: a read never crashes, hangs or returns a wrong record.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <random>
#include <set>
#include <vector>

#include "dba/records.h"
#include "hashdb/format.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using records::get;
using records::key_of;
using records::Records;
using records::value_of;

constexpr unsigned page_size = 512;
constexpr unsigned child_seconds = 60;

/// in_child runs a step in a child process. Returns its exit status, or minus the signal that killed it, SIGALRM after
/// child_seconds.
int in_child(const std::function<int()> &step) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(child_seconds);
    _exit(step());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class Damage : public support::HostTest {
 protected:
  void SetUp() override {
    for (unsigned i = 1; i <= 60; ++i) all[key_of(i)] = value_of(i, i % 20 == 0 ? 1500 : i * 3);
    ASSERT_TRUE(records::make_with_library(path, all, page_size));
    bytes = support::read_file(path);
    header = hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data()));
  }

  /// read_all opens the file for reading and returns the records by key. Every result must be 0, 1 or -1, and the walk
  /// must end. `refused` is set to true if the open fails.
  Records read_all(bool &refused) {
    Records found;
    const DatabasePtr db(dba_open(path.c_str(), "r"));
    refused = db == nullptr;
    if (refused) return found;
    for (const auto &[name, content] : all) {
      const auto record = get(db.get(), name);
      if (record.result == 0) found[name] = record.value;
    }
    DBT key{}, value{};
    long steps = 0;
    for (int result = dba_first(db.get(), &key, &value); result != 1; result = dba_next(db.get(), &key, &value))
      if (++steps > 100000) _exit(99);
    return found;
  }

  /// survives writes changed bytes. Returns 0 if the file can be read to the end.
  int survives(const std::string &changed) {
    support::write_file(path, changed);
    return in_child([&] {
      bool refused = false;
      read_all(refused);
      return 0;
    });
  }

  unsigned bucket_of(const std::string &name) const {
    return hashdb::bucket_of(header, hashdb::default_hash(name.data(), name.size()));
  }

  /// damaged_buckets returns the number of buckets with a record that is missing or changed.
  size_t damaged_buckets() {
    bool refused = false;
    const Records found = read_all(refused);
    std::set<unsigned> buckets;
    for (const auto &[name, content] : all)
      if (const auto record = found.find(name); record == found.end() || record->second != content)
        buckets.insert(bucket_of(name));
    return buckets.size();
  }

  /// pages_within_values returns the addresses of overflow pages on which a value continues.
  std::vector<uint16_t> pages_within_values() const {
    std::vector<uint16_t> addresses;
    for (uint32_t split = 0; split <= header.overflow_point; ++split)
      for (uint32_t number = 1; number < 20; ++number) {
        const uint16_t address = hashdb::overflow_address(split, number);
        const size_t place = hashdb::overflow_page(header, address) * page_size;
        uint16_t slots[5];
        if (place + sizeof slots > bytes.size()) continue;
        std::memcpy(slots, &bytes[place], sizeof slots);
        constexpr uint16_t full_key = 2;
        if (slots[0] == 4 && slots[2] == full_key) addresses.push_back(address);
      }
    return addresses;
  }
  /// next_of returns the address of the page after such a page; redirected returns the file with another address there.
  uint16_t next_of(uint16_t address) const {
    uint16_t next = 0;
    std::memcpy(&next, &bytes[hashdb::overflow_page(header, address) * page_size + 6], sizeof next);
    return next;
  }
  std::string redirected(uint16_t from, uint16_t to) const {
    std::string changed = bytes;
    std::memcpy(&changed[hashdb::overflow_page(header, from) * page_size + 6], &to, sizeof to);
    return changed;
  }

  support::TemporaryDirectory directory;
  std::string path = directory.path("catalog");
  Records all;
  std::string bytes;
  hashdb::Header header;
};

std::string flipped(std::string text, size_t bit) {
  text[bit / 8] = static_cast<char>(text[bit / 8] ^ (1 << bit % 8));
  return text;
}

TEST_F(Damage, TheUndamagedFileIsWhole) {
  EXPECT_EQ(damaged_buckets(), 0u);
  EXPECT_GT(header.spares[header.overflow_point], 8u);
}

TEST_F(Damage, NoBitOfTheHeaderCanCrashOrHangAReader) {
  for (size_t byte = 0; byte < hashdb::header_size; ++byte) {
    const int outcome = in_child([&] {
      for (size_t bit = 0; bit < 8; ++bit) {
        bool refused = false;
        support::write_file(path, flipped(bytes, 8 * byte + bit));
        read_all(refused);
      }
      return 0;
    });
    ASSERT_EQ(outcome, 0) << byte;
  }
}

TEST_F(Damage, ChangedBitsOfTheHeaderThatMatterAreRefused) {
  const size_t last_freed = 9, max_bucket = 10, fill_factor = 13, record_count = 14, words = 17;
  for (size_t bit = 0; bit < 32 * words; ++bit) {
    const size_t word = bit / 32;
    if (word == last_freed || word == max_bucket || word == fill_factor || word == record_count) continue;
    support::write_file(path, flipped(bytes, bit));
    errno = 0;
    EXPECT_EQ(dba_open(path.c_str(), "r"), nullptr) << word;
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(dba_open(path.c_str(), "w"), nullptr) << word;
    EXPECT_EQ(errno, EINVAL);
  }
}

/// The first bytes of a page are its slots; every bit of them is flipped, but only some of the records.
TEST_F(Damage, AChangedBitOfAPageCostsOneBucketAtMost) {
  for (size_t page = header.header_pages; page * page_size < bytes.size(); ++page) {
    const int outcome = in_child([&] {
      for (size_t bit = 0; bit < size_t{8} * page_size; bit += bit < 256 ? 1 : 61) {
        support::write_file(path, flipped(bytes, 8 * page * page_size + bit));
        if (damaged_buckets() > 1) return 1;
      }
      return 0;
    });
    ASSERT_EQ(outcome, 0) << "page " << page;
  }
}

TEST_F(Damage, AFileCutAnywhereIsReadToItsEnd) {
  for (size_t size = 0; size < bytes.size(); size += 61) ASSERT_EQ(survives(bytes.substr(0, size)), 0) << size;
}

TEST_F(Damage, RandomBytesBehindASoundHeaderAreReadToTheirEnd) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    std::string changed = bytes;
    const size_t count = seed % 3 == 0 ? changed.size() : random() % 200 + 1;
    for (size_t i = 0; i < count; ++i) {
      const size_t place = size_t{header.header_pages} * page_size + random() % (changed.size() - page_size);
      changed[place] = static_cast<char>(random());
    }
    ASSERT_EQ(survives(changed), 0) << seed;
  }
}

/// Random slots with meaningful values reach deeper than random bytes.
TEST_F(Damage, RandomSlotsAreReadToTheirEnd) {
  for (unsigned seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    std::string changed = bytes;
    for (size_t page = header.header_pages; (page + 1) * page_size <= changed.size(); ++page) {
      uint16_t slots[7] = {static_cast<uint16_t>(2 * (random() % 4))};
      for (size_t i = 1; i < 7; ++i) {
        const auto address = hashdb::overflow_address(random() % (header.overflow_point + 1), random() % 6);
        slots[i] = static_cast<uint16_t>(random() % 3 == 0   ? random() % 4
                                         : random() % 2 == 0 ? address
                                                             : random() % (page_size + 9));
      }
      std::memcpy(&changed[page * page_size], slots, sizeof slots);
    }
    ASSERT_EQ(survives(changed), 0) << seed;
  }
}

TEST_F(Damage, PagesThatFormALoopAreNoticed) {
  const std::vector<uint16_t> pages = pages_within_values();
  ASSERT_GE(pages.size(), 4u);
  size_t loops_of_two = 0;
  for (const uint16_t from : pages)
    for (const uint16_t to : pages) {
      support::write_file(path, redirected(from, to));
      const int damaged = in_child([&] { return static_cast<int>(damaged_buckets()); });
      const bool is_loop = from == to || next_of(to) == from;
      EXPECT_TRUE(damaged == 1 || (damaged == 0 && !is_loop)) << from << " to " << to << ": " << damaged;
      if (from != to && is_loop) ++loops_of_two;
    }
  EXPECT_GE(loops_of_two, 2u);
}

/// If the last page of a value is not marked as such, the record is damaged.
TEST_F(Damage, AValueWithoutItsLastPageIsDamaged) {
  size_t last_pages = 0;
  for (const uint16_t address : pages_within_values()) {
    const size_t place = hashdb::overflow_page(header, next_of(address)) * page_size;
    for (const uint16_t mark : {0, 1, 4}) {  // neither full_key nor full_key_data
      std::string changed = bytes;
      std::memcpy(&changed[place + 4], &mark, sizeof mark);
      support::write_file(path, changed);
      const DatabasePtr db(dba_open(path.c_str(), "r"));
      ASSERT_NE(db, nullptr);
      size_t failures = 0;
      for (const auto &[name, content] : all) {
        const auto found = get(db.get(), name);
        EXPECT_TRUE(found.result != 0 || found.value == content) << name << " is another";
        if (found.result == -1) ++failures;
      }
      EXPECT_GE(failures, 1u);
    }
    ++last_pages;
  }
  EXPECT_GE(last_pages, 4u);
}

TEST_F(Damage, APagePastTheEndIsEmptyAndATruncatedPageIsDamaged) {
  const auto first = [&](const auto &a, const auto &b) { return bucket_of(a.first) < bucket_of(b.first); };
  const std::string &witness = std::min_element(all.begin(), all.end(), first)->first;
  size_t empty = 0, cut = 0;
  for (size_t page = header.header_pages + 1; page * page_size < bytes.size(); ++page)
    for (const size_t rest : {size_t{0}, size_t{100}, page_size - size_t{1}}) {
      const size_t size = page * page_size + rest;
      support::write_file(path, bytes.substr(0, size));
      const DatabasePtr db(dba_open(path.c_str(), "r"));
      if (db == nullptr) continue;  // the header counts more
      const auto before = get(db.get(), witness);
      for (const auto &[name, content] : all) {
        const size_t place = bucket_page(header, bucket_of(name)) * page_size;
        if (place + page_size <= size) continue;
        errno = 0;
        EXPECT_EQ(get(db.get(), name).result, place >= size ? 1 : -1) << name << " of " << size;
        EXPECT_EQ(errno, place >= size ? 0 : EINVAL);
        ++(place >= size ? empty : cut);
        EXPECT_EQ(get(db.get(), witness).result, before.result) << "a cut page is taken for another one";
        EXPECT_EQ(get(db.get(), witness).value, before.value);
      }
    }
  EXPECT_GT(empty, 0u);
  EXPECT_GT(cut, 0u);
}

TEST_F(Damage, ADamagedRecordAnswersMinusOneWithAnErrorNumber) {
  std::string changed = bytes;
  for (size_t place = page_size; place + 1 < changed.size(); place += page_size) changed[place] = 3;
  support::write_file(path, changed);
  const DatabasePtr db(dba_open(path.c_str(), "r"));
  ASSERT_NE(db, nullptr);
  for (const auto &[name, content] : all) {
    errno = 0;
    EXPECT_EQ(get(db.get(), name).result, -1);
    EXPECT_EQ(errno, EINVAL);
  }
}

TEST_F(Damage, AWalkContinuesAfterADamagedBucket) {
  const std::string victim = key_of(1);
  std::string changed = bytes;
  changed[hashdb::bucket_page(header, bucket_of(victim)) * page_size] = 3;
  support::write_file(path, changed);
  const DatabasePtr db(dba_open(path.c_str(), "r"));
  DBT key{}, value{};
  size_t failures = 0, found = 0;
  for (int result = dba_first(db.get(), &key, &value); result != 1; result = dba_next(db.get(), &key, &value))
    ++(result == 0 ? found : failures);
  size_t others = 0;
  for (const auto &[name, content] : all)
    if (bucket_of(name) != bucket_of(victim)) ++others;
  EXPECT_EQ(failures, 1u);
  EXPECT_EQ(found, others);
}

}  // namespace
