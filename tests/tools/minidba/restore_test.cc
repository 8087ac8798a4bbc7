// SPDX-License-Identifier: MIT
/// Restoring catalogs from a backup as the manual says, with any damage.
#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

constexpr int backed_up = 200;

std::string described(int from, int to) {
  std::string stream;
  for (int i = from; i <= to; ++i)
    stream += rd("http://localhost/" + std::to_string(i), {{"body", std::string(2000, 'b')}});
  return stream;
}

std::string key_of(uint32_t number) {
  char key[9];
  std::snprintf(key, sizeof key, "%08x", number);
  return key;
}

class Restore : public testing::Test {
 protected:
  Restore() {
    catalog_.update(described(1, backed_up));
    backup_ = catalog_.run({"export"}).out;
    records_ = catalog_.records();
    // One more that has no backup, and a deleted one, whose number is only in the trailers.
    catalog_.update(described(backed_up + 1, backed_up + 2));
    catalog_.run({"delete", "http://localhost/" + std::to_string(backed_up + 2)});
    catalog_.index();
  }

  void damage(const std::string &suffix, size_t from, size_t count) {
    std::string bytes = support::read_file(catalog_.path(suffix));
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(from), std::min(count, bytes.size() - from), '\x7f');
    support::write_file(catalog_.path(suffix), bytes);
  }

  /// restore imports the backup and returns the messages.
  std::string restore() {
    const Finished finished = catalog_.run({"import", "--replace"}, backup_);
    EXPECT_EQ(finished.status, 0) << finished.errors;
    EXPECT_EQ(finished.out, std::to_string(backed_up) + "\n");
    EXPECT_EQ(catalog_.index().status, 0);
    EXPECT_TRUE(catalog_.records() == records_) << "numbers, times of change and all other bytes";
    EXPECT_EQ(catalog_.run({"verify"}).out, "sound: 200 descriptions, 200 index entries\n");
    return finished.errors;
  }

  /// next_number adds a description and returns its key.
  std::string next_number() {
    catalog_.update(rd("http://localhost/new", {{"title", "New"}}));
    return catalog_.records().rbegin()->first;
  }

  CatalogFiles catalog_;
  std::string backup_;
  std::map<std::string, std::string> records_;
};

TEST_F(Restore, ReplacingASoundCatalogReusesNoNumber) {
  EXPECT_EQ(restore(), "minidba: 200 imported, 0 numbered anew, 0 rejected\n");
  EXPECT_EQ(next_number(), key_of(backed_up + 3));
}

struct Spoilt {
  std::string suffix;
  size_t from, count;
};

struct DamageRow {
  const char *name;
  std::vector<Spoilt> spoilt;
  std::string fault;  // that is reported of the database
  uint32_t next;      // number of the next description
};

class RestoreDamaged : public Restore, public testing::WithParamInterface<DamageRow> {};

TEST_P(RestoreDamaged, GivesNoNumberAgainThatCanBeRead) {
  for (const Spoilt &spoilt : GetParam().spoilt) damage(spoilt.suffix, spoilt.from, spoilt.count);
  EXPECT_THAT(restore(), HasSubstr("minidba: " + GetParam().fault + catalog_.path() +
                                   ": some of its used numbers may be unknown\n"));
  EXPECT_EQ(next_number(), key_of(GetParam().next));
}

constexpr char bad_header[] = "not a sound hash database: ";
INSTANTIATE_TEST_SUITE_P(
    EachPart, RestoreDamaged,
    testing::Values(
        DamageRow{"TheTrailerOutlivesTheHeader", {{"", 0, 64}}, bad_header, backed_up + 3},
        DamageRow{"TheUrlMapOutlivesTheFirstPage", {{"", 0, 4096}}, bad_header, backed_up + 3},
        DamageRow{"OtherPages", {{"", 32768, 32768}}, "damaged page in ", backed_up + 3},
        DamageRow{"TheExportHeaderOutlivesAll", {{"", 0, SIZE_MAX}, {".url", 0, SIZE_MAX}}, bad_header, backed_up + 1}),
    [](const testing::TestParamInfo<DamageRow> &row) { return row.param.name; });

TEST_F(Restore, WithoutTrailersContinuesAfterTheReadableNumbers) {
  damage("", 264, 72);
  damage(".url", 0, 4096);
  restore();
  EXPECT_EQ(next_number(), key_of(backed_up + 2));
}

TEST_F(Restore, ADryRunReportsTheDamage) {
  damage("", 0, 64);
  const std::string before = support::read_file(catalog_.path());
  const Finished finished = catalog_.run({"import", "--replace", "--dry-run"}, backup_);
  EXPECT_EQ(finished.out, "200\n");
  EXPECT_THAT(finished.errors, HasSubstr("not a sound hash database"));
  EXPECT_TRUE(support::read_file(catalog_.path()) == before);
}

TEST_F(Restore, ADamagedDatabaseIsNotReplacedUnasked) {
  damage("", 0, 64);
  const std::string before = support::read_file(catalog_.path());
  EXPECT_EQ(catalog_.run({"import"}, backup_).errors,
            "minidba: database exists: " + catalog_.path() + " (--replace replaces it)\n");
  EXPECT_TRUE(support::read_file(catalog_.path()) == before);
}

TEST_F(Restore, ACopyCanBeRenamedIntoPlaceUnderTheLock) {
  const CatalogFiles copies;
  ASSERT_EQ(copies.run({"import"}, backup_).status, 0);
  damage("", 0, 64);
  const std::string restored = catalog_.path(".restored");
  const Finished finished =
      support::run({"/usr/bin/flock", catalog_.path(".lock"), "/bin/sh", "-c",
                    "cp -p " + copies.path() + " " + restored + " && mv " + restored + " " + catalog_.path()});
  ASSERT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(catalog_.index().out, "200\n");
  EXPECT_TRUE(catalog_.records() == records_);
  EXPECT_EQ(catalog_.update(described(1, 1)).errors, "minidba: 0 new, 0 changed, 1 unchanged, 0 rejected\n");
  EXPECT_EQ(catalog_.run({"verify"}).out, "sound: 200 descriptions, 200 index entries\n");
}

}  // namespace
