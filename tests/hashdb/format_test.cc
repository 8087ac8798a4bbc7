// SPDX-License-Identifier: MIT
#include "hashdb/format.h"

#include <functional>
#include <random>

#include <gtest/gtest.h>

#include "dba/records.h"
#include "support/files.h"

using namespace rdm;

namespace {

using hashdb::Header;

class HashFile : public ::testing::Test {
 protected:
  /// header_of reads the header of a file.
  static Header header_of(const std::string &bytes) {
    return hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data()));
  }
  std::string made(unsigned page_size, unsigned count, size_t length) {
    records::Records all;
    for (unsigned i = 1; i <= count; ++i) all[records::key_of(i)] = records::value_of(i, length);
    EXPECT_TRUE(records::make_with_library(directory.path("catalog"), all, page_size));
    return support::read_file(directory.path("catalog"));
  }
  static bool is_sound(const Header &header, size_t size) {
    return hashdb::is_sound(header, hashdb::default_hash, static_cast<int64_t>(size));
  }
  support::TemporaryDirectory directory;
};

TEST_F(HashFile, DecodesTheHeaderOfTheLibrary) {
  const std::string bytes = made(4096, 200, 300);
  const Header header = header_of(bytes);
  EXPECT_EQ(header.magic, 0x061561u);
  EXPECT_EQ(header.version, 2u);
  EXPECT_EQ(header.byte_order, 1234u);
  EXPECT_EQ(header.page_size, 4096u);
  EXPECT_EQ(header.page_shift, 12u);
  EXPECT_EQ(header.records, 200u);
  EXPECT_EQ(header.hash_check, 0x956E7DE3u);
  EXPECT_EQ(header.bitmaps[0], hashdb::overflow_address(1, 1));
  EXPECT_TRUE(is_sound(header, bytes.size()));
}

TEST_F(HashFile, EncodesADecodedHeader) {
  const std::string bytes = made(1024, 300, 100);
  unsigned char again[hashdb::header_size];
  hashdb::encode(header_of(bytes), again);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(again), sizeof again), bytes.substr(0, sizeof again));
}

TEST_F(HashFile, EveryHeaderOfTheLibraryIsSound) {
  for (unsigned shift = hashdb::min_page_shift; shift <= hashdb::max_page_shift; ++shift)
    for (const unsigned count : {0u, 1u, 2u, 3u, 100u, 1000u}) {
      const std::string bytes = made(1u << shift, count, 20);
      EXPECT_TRUE(is_sound(header_of(bytes), bytes.size())) << shift << " " << count;
    }
}

TEST_F(HashFile, AHeaderThatContradictsItselfIsNotSound) {
  struct Row {
    const char *what;
    std::function<void(Header &)> change;
  };
  const Row rows[] = {
      {"magic", [](Header &h) { h.magic ^= 1; }},
      {"old version", [](Header &h) { h.version = 1; }},
      {"byte order", [](Header &h) { h.byte_order = 3412; }},
      {"page size is not that of the shift", [](Header &h) { h.page_size = 2048; }},
      {"page shift is not that of the size", [](Header &h) { h.page_shift = 11; }},
      {"pages too large", [](Header &h) { h.page_shift = 16, h.page_size = 65536; }},
      {"pages too small", [](Header &h) { h.page_shift = 5, h.page_size = 32, h.header_pages = 16; }},
      {"page shift beyond the word", [](Header &h) { h.page_shift = 42; }},
      {"no directory", [](Header &h) { h.directory_size = 0; }},
      {"directory not a power of two", [](Header &h) { h.directory_size = 257; }},
      {"directory too large", [](Header &h) { h.directory_size = 1u << 30; }},
      {"segment size", [](Header &h) { h.segment_size = 512; }},
      {"segment shift", [](Header &h) { h.segment_shift = 9; }},
      {"overflow point too low", [](Header &h) { --h.overflow_point; }},
      {"overflow point beyond the header", [](Header &h) { h.overflow_point = 32; }},
      {"last freed behind all overflow pages", [](Header &h) { h.last_freed = 65537; }},
      {"more buckets than the mask", [](Header &h) { h.max_bucket = h.high_mask + 1; }},
      {"fewer buckets than the low mask", [](Header &h) { h.max_bucket = h.low_mask - 1; }},
      {"too many buckets", [](Header &h) { h.max_bucket = h.low_mask = (1u << 25) - 1, h.high_mask = (1u << 26) - 1; }},
      {"mask with a hole", [](Header &h) { h.low_mask ^= 1; }},
      {"masks of different doublings", [](Header &h) { h.high_mask = h.high_mask * 2 + 1; }},
      {"no fill factor", [](Header &h) { h.fill_factor = 0; }},
      {"no header page", [](Header &h) { h.header_pages = 0; }},
      {"too many header pages", [](Header &h) { h.header_pages = 2; }},
      {"another hash function", [](Header &h) { ++h.hash_check; }},
      {"spares fall", [](Header &h) { h.spares[h.overflow_point] = 0; }},
      {"too many spares", [](Header &h) { h.spares[h.overflow_point] = 70000; }},
      {"bitmap without address", [](Header &h) { h.bitmaps[0] = 0; }},
      {"bitmap at page 0 of a doubling", [](Header &h) { h.bitmaps[0] = hashdb::overflow_address(1, 0); }},
      {"bitmap behind the end", [](Header &h) { h.bitmaps[0] = hashdb::overflow_address(1, 2000); }},
      {"bitmap of a later doubling", [](Header &h) { h.bitmaps[0] = hashdb::overflow_address(30, 1); }},
  };
  const std::string bytes = made(4096, 500, 300);
  for (const Row &row : rows) {
    Header header = header_of(bytes);
    row.change(header);
    EXPECT_FALSE(is_sound(header, bytes.size())) << row.what;
  }
}

/// A page of 64 bytes maps 512 overflow pages; a header has room for 32 such maps.
TEST_F(HashFile, EveryMapOfOverflowPagesMustBeThere) {
  const std::string bytes = made(64, 100, 20);
  Header header = header_of(bytes);
  const uint16_t somewhere = header.bitmaps[0];
  const auto sound_with = [&](uint32_t overflow_pages, uint32_t maps) {
    header.spares[header.overflow_point] = overflow_pages;
    for (uint32_t i = 0; i < hashdb::doublings; ++i) header.bitmaps[i] = i < maps ? somewhere : uint16_t{0};
    return is_sound(header, bytes.size());
  };
  ASSERT_LT(header.spares[header.overflow_point], 512u);
  EXPECT_TRUE(sound_with(512, 1));
  EXPECT_FALSE(sound_with(513, 1));
  EXPECT_TRUE(sound_with(513, 2));
  EXPECT_FALSE(sound_with(32 * 512, 31));
  EXPECT_TRUE(sound_with(32 * 512, 32));
  EXPECT_FALSE(sound_with(32 * 512 + 1, 32));
}

TEST_F(HashFile, BucketsAndOverflowPagesShareTheFile) {
  Header header{};
  header.page_shift = 12;
  header.header_pages = 1;
  header.overflow_point = 3;
  const uint32_t spares[] = {0, 2, 2, 5};
  std::copy(std::begin(spares), std::end(spares), header.spares);
  // Two overflow pages follow bucket 1 (the end of doubling 1), three follow bucket 7.
  const uint64_t pages[] = {1, 2, 5, 6, 7, 8, 9, 10};
  for (uint32_t bucket = 0; bucket < 8; ++bucket) EXPECT_EQ(bucket_page(header, bucket), pages[bucket]) << bucket;
  EXPECT_EQ(overflow_page(header, hashdb::overflow_address(1, 1)), 3u);
  EXPECT_EQ(overflow_page(header, hashdb::overflow_address(1, 2)), 4u);
  EXPECT_EQ(overflow_page(header, hashdb::overflow_address(3, 1)), 11u);
  EXPECT_EQ(overflow_page(header, hashdb::overflow_address(3, 3)), 13u);
  EXPECT_EQ(overflow_page(header, hashdb::overflow_address(2, 0)), 0u);
  EXPECT_EQ(overflow_page(header, hashdb::overflow_address(4, 1)), 0u);
}

TEST_F(HashFile, AHashPicksABucketOfTheDoublingInProgressOrOfTheLast) {
  Header header{};
  header.max_bucket = 5;
  header.low_mask = 3;
  header.high_mask = 7;
  const uint32_t buckets[] = {0, 1, 2, 3, 4, 5, 2, 3};
  for (uint32_t hash = 0; hash < 16; ++hash) EXPECT_EQ(bucket_of(header, hash), buckets[hash % 8]) << hash;
}

TEST_F(HashFile, LogarithmsAreRoundedUp) {
  const std::pair<uint32_t, uint32_t> rows[] = {{1, 0}, {2, 1}, {3, 2}, {4, 2}, {5, 3}, {1u << 31, 31}, {~0u, 31}};
  for (const auto &[number, logarithm] : rows) EXPECT_EQ(hashdb::log2_up(number), logarithm) << number;
}

}  // namespace
