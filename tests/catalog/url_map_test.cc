// SPDX-License-Identifier: MIT
/// A URL map with a flipped bit: no writer uses or copies it.
#include <fcntl.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "catalog/hash/trailer.h"
#include "catalog/os/file.h"
#include "tools/minidba/verb.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

constexpr int count = 20;
constexpr size_t checksum_offset = 264 + 96, checksum_size = 24;

std::string description(int number) { return rd(url(number), {{"title", "No. " + std::to_string(number)}}); }

class DamagedUrlMap : public testing::Test {
 protected:
  DamagedUrlMap() {
    std::string stream;
    for (int i = 1; i <= count; ++i) stream += description(i);
    EXPECT_EQ(run({"update"}, stream).status, 0);
    sound_ = support::read_file(path_);
    before_ = catalog_.records();
  }
  Finished run(std::vector<std::string> words, const std::string &input = "") const {
    words.insert(words.begin(), {"-d", catalog_.path()});
    return run_verb(words, input);
  }
  /// flip changes a bit of the map and restores the times of the file.
  void flip(size_t byte, int bit) const {
    struct stat status;
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    std::string bytes = support::read_file(path_);
    bytes.at(byte) = static_cast<char>(bytes.at(byte) ^ 1 << bit);
    support::write_file(path_, bytes);
    const struct timespec times[] = {status.st_atim, status.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
  }
  /// offset_of returns the offset of a URL in the map. Its number is in front of it.
  size_t offset_of(int number) const { return support::read_file(path_).find(url(number)); }
  void write_as_an_earlier_version() const {
    std::string bytes = support::read_file(path_);
    support::write_file(path_, bytes.replace(checksum_offset, checksum_size, checksum_size, '\0'));
  }
  bool has_checksum() const { return catalog::Trailer::read(catalog::File::open(path_))->content.has_value(); }
  void expect_sound() const { EXPECT_EQ(run({"verify"}).out, "sound: 20 descriptions, no index\n"); }

  const CatalogFiles catalog_;
  const std::string path_ = catalog_.path(".url");
  const std::string warning_ = "minidba: damaged: " + path_ + ": the URLs are read from the records\n";
  std::string sound_;
  std::map<std::string, std::string> before_;
};

// Regression: after a bit of a URL in the map had flipped, an update added its description again under another number.
TEST_F(DamagedUrlMap, MakesNoDescriptionCountAsNew) {
  flip(offset_of(7) + url(7).size() - 1, 1);
  const Finished finished = run({"update"}, description(7));
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.errors, warning_ + "minidba: 0 new, 0 changed, 1 unchanged, 0 rejected\n");
  EXPECT_EQ(catalog_.records(), before_);
  expect_sound();
}

TEST_F(DamagedUrlMap, EveryWriterMendsAnyFlippedBit) {
  const std::string input = rd(url(7), {{"title", "Other"}});
  for (size_t at = 0; at < 8 * sound_.size(); at += at < size_t{8} * 512 ? 61 : 1511) {
    SCOPED_TRACE("bit " + std::to_string(at));
    const std::string database = support::read_file(catalog_.path());
    flip(at / 8, static_cast<int>(at % 8));
    EXPECT_EQ(run({"update"}, description(7)).status, 0);
    EXPECT_TRUE(support::read_file(catalog_.path()) == database) << "nothing has changed";
    expect_sound();
  }
  flip(offset_of(3), 0);
  EXPECT_THAT(run({"delete", url(5)}).errors, HasSubstr(warning_));
  flip(offset_of(3), 0);
  EXPECT_THAT(run({"update"}, input).errors, HasSubstr(warning_ + "minidba: 0 new, 1 changed"));
  EXPECT_EQ(run({"verify"}).out, "sound: 19 descriptions, no index\n");
}

TEST_F(DamagedUrlMap, AFlippedNumberMisleadsNoUpdate) {
  const size_t number = offset_of(7) - 1;
  flip(number, 0);
  const Finished finished = run({"update"}, rd(url(7), {{"title", "Other"}}));
  EXPECT_THAT(finished.errors, HasSubstr("minidba: 0 new, 1 changed"));
  for (const auto &[key, record] : catalog_.records()) EXPECT_EQ(record == before_.at(key), key != "00000007") << key;
  expect_sound();
}

TEST_F(DamagedUrlMap, IsNamedByVerifyAndMendedByRebuild) {
  flip(2000, 0);  // between header and records, where no reader looks
  const Finished finished = run({"verify"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors, "minidba: the URL map is not as it was written: " + path_ + "\n");
  EXPECT_EQ(run({"rebuild"}).status, 0);
  expect_sound();
}

TEST_F(DamagedUrlMap, IsOnlyReadByReadersAndADryRun) {
  flip(offset_of(7), 0);
  const std::string damaged = support::read_file(path_);
  EXPECT_THAT(run({"get", url(7)}).out, HasSubstr("No. 7"));
  EXPECT_EQ(run({"get", url(70)}).errors, "minidba: no description " + url(70) + "\n");
  EXPECT_EQ(run({"update", "--dry-run"}, description(7)).errors,
            warning_ + "minidba: dry run: 0 new, 0 changed, 1 unchanged, 0 rejected\n");
  EXPECT_TRUE(support::read_file(path_) == damaged);
}

TEST_F(DamagedUrlMap, AMapWithoutAChecksumIsReadableAndTheNextWriterAddsIt) {
  write_as_an_earlier_version();
  ASSERT_FALSE(has_checksum());
  EXPECT_THAT(run({"get", url(7)}).out, HasSubstr("No. 7"));
  expect_sound();
  const Finished finished = run({"update"}, description(7));
  EXPECT_EQ(finished.errors, "minidba: 0 new, 0 changed, 1 unchanged, 0 rejected\n");
  EXPECT_TRUE(has_checksum());
  expect_sound();
}

TEST_F(DamagedUrlMap, AWriterMendsADamagedMapWithoutAChecksum) {
  write_as_an_earlier_version();
  flip(offset_of(7) + 3, 2);
  EXPECT_EQ(run({"update"}, description(7)).errors, "minidba: 0 new, 0 changed, 1 unchanged, 0 rejected\n");
  EXPECT_EQ(catalog_.records(), before_);
  expect_sound();
}

// Earlier versions copy the checksum and change words that it covers.
TEST_F(DamagedUrlMap, ThatAnEarlierVersionHasWrittenHasNoChecksum) {
  std::string bytes = sound_;
  catalog::Trailer changed = *catalog::Trailer::read(catalog::File::open(path_));
  changed.database[1] += 1;
  changed.content.reset();
  changed.write(catalog::File(catalog::open_file(path_, O_RDWR), path_));
  const std::string words = support::read_file(path_).substr(264, 96);
  support::write_file(path_, bytes.replace(264, 96, words));
  EXPECT_FALSE(has_checksum());
  EXPECT_TRUE(catalog::Trailer::read(catalog::File::open(path_))->newest_change.has_value());
}

TEST_F(DamagedUrlMap, HasAChecksumAgainAfterEachEditOfACopy) {
  std::string stream;
  for (int i = 100; i < 700; ++i) stream += description(i);
  run({"update"}, stream);
  for (int i = 700; i < 705; ++i) {
    EXPECT_EQ(run({"update"}, description(i)).status, 0);
    EXPECT_TRUE(has_checksum());
    EXPECT_EQ(run({"verify"}).status, 0);
  }
}

}  // namespace
