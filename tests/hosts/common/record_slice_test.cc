// SPDX-License-Identifier: MIT
#include "hosts/common/record_slice.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/slices.h"

using namespace rdm;

namespace {

using hosts::RecordCursor;
using hosts::RecordSlice;
using support::SliceFiles;

class RecordSliceTest : public ::testing::Test {
 protected:
  RecordSliceTest() {
    for (int i = 0; text_.size() < 100'000; ++i) text_ += std::to_string(i) + ' ';
  }
  SliceFiles files(const std::vector<host_place> &places) const {
    return SliceFiles(directory_.path("records"), text_, places);
  }

  /// cursor returns the start of a slice whose file is mapped.
  static RecordCursor cursor(const host_slice &slice) {
    std::optional<RecordSlice> made = RecordSlice::of(slice);
    EXPECT_TRUE(made);
    made->records->expect(made->records->size());
    return RecordCursor(std::move(*made));
  }

  /// gathered takes a slice by gather, at most `most` bytes at a time.
  static std::string gathered(RecordCursor cursor, std::size_t most) {
    std::string all;
    std::vector<iovec> parts(100);
    for (std::size_t count = 0; (count = cursor.gather(parts)) > 0;) {
      std::string some;
      for (std::size_t i = 0; i < count; ++i) some.append(static_cast<char *>(parts[i].iov_base), parts[i].iov_len);
      some.resize(std::min(some.size(), most));
      cursor.skip(static_cast<std::int64_t>(some.size()));
      all += some;
    }
    EXPECT_EQ(cursor.left(), 0);
    return all;
  }
  /// read takes it by read.
  static std::string read(RecordCursor cursor, std::size_t most) {
    std::string all, block(most, '\0');
    for (ssize_t got = 0; (got = cursor.read(block)) > 0;) {
      cursor.skip(got);
      all.append(block, 0, static_cast<std::size_t>(got));
    }
    EXPECT_EQ(cursor.left(), 0);
    return all;
  }
  /// fails returns true if nothing more can be taken at the position.
  static bool fails(RecordCursor &cursor) {
    iovec part{};
    char byte = 0;
    errno = 0;
    const bool gathers = cursor.gather({&part, 1}) > 0;
    return cursor.read({&byte, 1}) == -1 && errno == ESTALE && !gathers;
  }

  support::TemporaryDirectory directory_;
  std::string text_;
};

TEST_F(RecordSliceTest, HasTheBytesOfItsRecordsHoweverTheyAreTaken) {
  const SliceFiles files = RecordSliceTest::files(support::scattered(1000, text_.size()));
  for (const auto &[first, count] : {std::pair{0u, 1000u}, {0u, 1u}, {999u, 1u}, {17u, 700u}, {256u, 256u}}) {
    const host_slice slice = files.slice(first, count);
    const std::string right = support::bytes_of(slice);
    for (const std::size_t most : {1000000u, 16384u, 1000u, 77u}) {
      EXPECT_EQ(gathered(cursor(slice), most), right) << first << ' ' << count << ' ' << most;
      EXPECT_EQ(read(cursor(slice), most), right) << first << ' ' << count << ' ' << most;
    }
  }
}

TEST_F(RecordSliceTest, IsReadUntilItsFileIsWorthAMapping) {
  const SliceFiles files = RecordSliceTest::files({{0, 5000, 0}, {9, 5000, 0}, {0, 5000, 0}});
  iovec part{};
  const auto gathers = [&](const host_slice &slice) {
    RecordCursor cursor(*RecordSlice::of(slice));
    const std::size_t first = cursor.gather({&part, 1});
    EXPECT_EQ(cursor.gather({&part, 1}), first) << "a slice counts once";
    return first > 0;
  };
  EXPECT_FALSE(gathers(files.slice(0, 2)));
  EXPECT_TRUE(gathers(files.slice(2, 1)));
}

TEST_F(RecordSliceTest, LetsGoOfFormerFilesWhenItIsSent) {
  struct stat former;
  {
    const SliceFiles files = RecordSliceTest::files({{0, 9000, 0}});
    ASSERT_EQ(::stat(directory_.path("records").c_str(), &former), 0);
    EXPECT_EQ(read(cursor(files.all()), 9000).size(), 9000u);
  }
  std::filesystem::remove(directory_.path("records"));
  const auto is_open = [&] {
    const std::filesystem::directory_iterator all("/proc/self/fd"), end;
    return std::any_of(all, end, [&](const auto &entry) {
      struct stat file {};
      return ::stat(entry.path().c_str(), &file) == 0 && file.st_ino == former.st_ino && file.st_dev == former.st_dev;
    });
  };
  const SliceFiles next(directory_.path("next"), text_, {{0, 2, 0}});
  RecordCursor cursor = RecordSliceTest::cursor(next.all());
  cursor.skip(cursor.read(std::span<char>(text_.data(), 1)));
  EXPECT_TRUE(is_open());
  cursor.skip(cursor.read(std::span<char>(text_.data(), 1)));
  EXPECT_FALSE(is_open());
}

TEST_F(RecordSliceTest, RepeatsWhatIsNotSkipped) {
  const SliceFiles files = RecordSliceTest::files({{0, 5, 0}, {10, 5, 0}});
  RecordCursor cursor = RecordSliceTest::cursor(files.all());
  std::string once(7, '\0'), again(9, '\0');
  EXPECT_EQ(cursor.read(once), 7);
  EXPECT_EQ(cursor.read(again), 9);
  EXPECT_EQ(again.substr(0, 7), once);
  EXPECT_EQ(cursor.left(), 10);
}

TEST_F(RecordSliceTest, IsRefusedWithoutRecordsOrFiles) {
  const SliceFiles files = RecordSliceTest::files({{0, 5, 0}});
  host_slice slice = files.all();
  slice.count = 0;
  EXPECT_FALSE(RecordSlice::of(slice));
  slice.count = 6;
  EXPECT_FALSE(RecordSlice::of(slice)) << "a record has a byte";
  EXPECT_EQ(errno, EINVAL);
  slice.count = 1;
  slice.places = -1;
  EXPECT_FALSE(RecordSlice::of(slice));
  EXPECT_EQ(errno, EBADF);
}

TEST_F(RecordSliceTest, FailsAtAPlaceThatCannotBeRight) {
  const auto size = static_cast<int64_t>(text_.size());
  const std::pair<const char *, std::vector<host_place>> lists[] = {
      {"beyond the end", {{0, 10, 0}, {size - 5, 10, 0}}},
      {"before the start", {{0, 10, 0}, {-1, 10, 0}}},
      {"far away", {{0, 10, 0}, {INT64_MAX, 10, 0}}},
      {"empty", {{0, 10, 0}, {0, 0, 0}, {0, 10, 0}}},
      {"too long", {{0, 10, 0}, {0, 20, 0}}},
      {"longer than all", {{0, 10, 0}, {0, UINT32_MAX, 0}}},
      {"too short", {{0, 10, 0}, {0, 9, 0}}},
      {"followed by another", {{0, 10, 0}, {0, 10, 0}, {0, 10, 0}}},
  };
  for (const auto &[name, places] : lists) {
    const SliceFiles files = RecordSliceTest::files(places);
    host_slice slice = files.all();
    slice.length = 20;
    RecordCursor cursor = RecordSliceTest::cursor(slice);
    iovec parts[4];
    ASSERT_EQ(cursor.gather(parts), 1u) << name;
    cursor.skip(10);
    EXPECT_TRUE(fails(cursor)) << name;
  }
}

TEST_F(RecordSliceTest, FailsIfPlacesAreMissing) {
  const SliceFiles files = RecordSliceTest::files({{0, 10, 0}});
  host_slice slice = files.all();
  slice.count = 2;
  slice.length = 20;
  RecordCursor cursor = RecordSliceTest::cursor(slice);
  char block[20];
  EXPECT_EQ(cursor.read(block), 10);
  cursor.skip(10);
  EXPECT_TRUE(fails(cursor));
}

TEST_F(RecordSliceTest, FailsWhenItsFileHasChanged) {
  const SliceFiles files = RecordSliceTest::files({{0, 10, 0}, {90'000, 10, 0}});
  RecordCursor cursor = RecordSliceTest::cursor(files.all());
  EXPECT_TRUE(cursor.confirm());
  ASSERT_EQ(::truncate(files.path().c_str(), 50'000), 0);
  EXPECT_FALSE(cursor.confirm());
  EXPECT_EQ(errno, ESTALE);
  char block[20];
  EXPECT_EQ(cursor.read(block), -1);
  EXPECT_EQ(errno, ESTALE);
}

TEST_F(RecordSliceTest, GivesItsWholeLengthOnlyIfAllPlacesFit) {
  std::mt19937 random(5);
  for (int round = 0; round < 300; ++round) {
    std::vector<host_place> places = support::scattered(1 + random() % 600, text_.size());
    const SliceFiles right(directory_.path("right"), text_, places);
    const std::string whole = support::bytes_of(right.all());
    std::vector<host_place> spoilt = places;
    spoilt[random() % spoilt.size()].size += static_cast<uint32_t>(random() % 3) - 1;
    const SliceFiles wrong(directory_.path("wrong"), text_, spoilt);
    host_slice slice = wrong.all();
    slice.length = right.all().length;
    std::optional<RecordSlice> made = RecordSlice::of(slice);
    ASSERT_TRUE(made);
    RecordCursor cursor(std::move(*made));
    std::string all, block(5000, '\0');
    for (ssize_t got = 0; (got = cursor.read(block)) > 0; cursor.skip(got))
      all.append(block, 0, static_cast<std::size_t>(got));
    ASSERT_LE(all.size(), whole.size());
    EXPECT_EQ(all.size() == whole.size(), wrong.all().length == slice.length) << round;
  }
}

}  // namespace
