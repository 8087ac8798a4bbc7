// SPDX-License-Identifier: MIT
#include "hashdb/cursor.h"

#include <fcntl.h>

#include <string>

#include <gtest/gtest.h>

#include "dba/records.h"
#include "support/files.h"

using namespace rdm;

namespace {

constexpr hashdb::ReadAt ways[] = {hashdb::read_by_host, hashdb::read_by_pread};

/// records_in returns all records that a cursor finds in a file of the hash library.
records::Records records_in(const std::string &path, hashdb::ReadAt read_at) {
  const std::string bytes = support::read_file(path);
  const HostFileGuard file(::open(path.c_str(), O_RDONLY));
  const hashdb::Source source{file.get(), static_cast<int64_t>(bytes.size()),
                              hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data())), read_at};
  records::Records found;
  hashdb::Cursor cursor(source);
  for (uint32_t bucket = 0; bucket <= source.header.max_bucket; ++bucket)
    for (cursor.start(bucket); cursor.next() == hashdb::Cursor::record;)
      EXPECT_TRUE(found.emplace(cursor.key(), cursor.value()).second) << cursor.key();
  return found;
}

TEST(HashCursor, FindsAllRecordsHoweverItReads) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.path("catalog");
  records::Records all;
  for (unsigned i = 1; i <= 300; ++i) all[records::key_of(i)] = records::value_of(i, i % 50 == 0 ? 40'000 : i);
  for (const unsigned page_size : {256u, 4096u, 32'768u}) {
    ASSERT_TRUE(records::make_with_library(path, all, page_size));
    for (const hashdb::ReadAt read_at : ways) EXPECT_EQ(records_in(path, read_at), all) << page_size;
  }
}

TEST(HashCursor, ReadsAllOfTheBytesOrFails) {
  const support::TemporaryDirectory directory;
  directory.write("file", "0123456789");
  const HostFileGuard file(::open(directory.path("file").c_str(), O_RDONLY));
  for (const hashdb::ReadAt read_at : ways) {
    char bytes[] = "....";
    EXPECT_TRUE(read_at(file.get(), 6, bytes, 4));
    EXPECT_STREQ(bytes, "6789");
    EXPECT_TRUE(read_at(file.get(), 0, bytes, 4));
    EXPECT_STREQ(bytes, "0123");
    EXPECT_FALSE(read_at(file.get(), 7, bytes, 4));
    EXPECT_FALSE(read_at(file.get(), 10, bytes, 4));
    EXPECT_FALSE(read_at(-1, 0, bytes, 4));
  }
}

}  // namespace
