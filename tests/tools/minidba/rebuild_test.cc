// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "catalog/catalog_files.h"
#include "support/database.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::ElementsAre;
using testing::Key;

class Rebuild : public testing::Test {
 protected:
  ino_t inode() const {
    struct stat status {};
    stat(catalog_.path().c_str(), &status);
    return status.st_ino;
  }
  std::string verdict() const { return support::run(catalog_.command({"verify"})).out; }
  CatalogFiles catalog_;
};

TEST_F(Rebuild, WritesTheSameCatalogAnew) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}) + rd("http://localhost/2", {{"title", "Two"}}));
  catalog_.index();
  const auto records = catalog_.records();
  const ino_t before = inode();
  Finished finished = catalog_.run({"rebuild", "--dry-run"});
  EXPECT_EQ(finished.out, "2\n");
  EXPECT_EQ(inode(), before);
  finished = catalog_.run({"rebuild"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "2\n");
  EXPECT_EQ(finished.errors, "");
  EXPECT_NE(inode(), before);
  EXPECT_EQ(catalog_.records(), records);
  EXPECT_EQ(verdict(), "sound: 2 descriptions, 2 index entries\n");
}

TEST_F(Rebuild, ChoosesTheLayoutFromTheData) {
  // The hash library chooses another page size.
  for (int i = 1; i <= 300; ++i) {
    char key[9];
    snprintf(key, sizeof key, "%08x", static_cast<unsigned>(i));
    catalog_.put(key, rd("http://localhost/" + std::to_string(i), {{"body", std::string(1500, 'b')}}));
  }
  const auto page_size = [this] {
    return nlohmann::json::parse(catalog_.run({"stats", "--json"}).out)["page-size"].get<int>();
  };
  const int before = page_size();
  EXPECT_EQ(catalog_.run({"rebuild", "--json"}).out, "{\"verb\":\"rebuild\",\"dry-run\":false,\"rebuilt\":300}\n");
  EXPECT_GT(page_size(), before);
  EXPECT_EQ(verdict(), "sound: 300 descriptions, no index\n");
}

TEST_F(Rebuild, MendsTheUrlMap) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}) + rd("http://localhost/2", {{"title", "Two"}}));
  support::put_record(DatabasePtr(dba_open(catalog_.path(".url").c_str(), "w")).get(), "http://localhost/2",
                      "00000001");
  EXPECT_EQ(verdict(), "damaged: 2 faults\n") << "a URL that leads elsewhere, and a checksum that does not fit";
  EXPECT_EQ(catalog_.run({"rebuild"}).status, 0);
  EXPECT_EQ(verdict(), "sound: 2 descriptions, no index\n");
}

TEST_F(Rebuild, KeepsInMindWhichNumbersWereUsed) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}) + rd("http://localhost/2", {{"title", "Two"}}));
  catalog_.run({"delete", "http://localhost/2"});
  EXPECT_EQ(catalog_.run({"rebuild"}).out, "1\n");
  catalog_.update(rd("http://localhost/3", {{"title", "Three"}}));
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000001"), Key("00000003")));
}

/// Regression: a catalog with two descriptions of one URL could not be repaired: rebuild kept both, and verify reported
/// the fault again.
TEST_F(Rebuild, KeepsTheNewerOfTwoDescriptionsOfOneUrl) {
  const std::string url = "http://localhost/1";
  const std::string older = "Thu, 01 Jan 2015 00:00:00 GMT", newer = "Fri, 01 Jan 2016 00:00:00 GMT";
  catalog_.put("00000003", rd(url, {{"rd-last-changed", newer}, {"title", "Three"}}));
  catalog_.put("00000005", rd("http://localhost/5", {{"title", "Five"}}));
  catalog_.put("00000007", rd(url, {{"rd-last-changed", older}, {"title", "Seven"}}));
  const std::string named =
      "minidba: description 7 is dropped: description 3 is newer and has the same URL: http://localhost/1\n";
  EXPECT_EQ(support::run(catalog_.command({"verify"})).errors,
            "minidba: the URL of description 7 leads to 3: http://localhost/1\n");
  Finished finished = catalog_.run({"rebuild", "--dry-run"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "2\n");
  EXPECT_EQ(finished.errors, named + "minidba: dry run: 2 rebuilt, 1 dropped\n");
  EXPECT_EQ(catalog_.records().size(), 3u);
  finished = catalog_.run({"rebuild"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "2\n");
  EXPECT_EQ(finished.errors, named + "minidba: 2 rebuilt, 1 dropped\n");
  EXPECT_EQ(verdict(), "sound: 2 descriptions, no index\n");
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000003"), Key("00000005")));
  EXPECT_EQ(catalog_.run({"get", url}).out, rd(url, {{"rd-last-changed", newer}, {"title", "Three"}}));
}

TEST_F(Rebuild, KeepsTheHighestNumberOfDuplicatesWithEqualTimes) {
  for (const char *number : {"00000003", "00000009", "00000007"})
    catalog_.put(number, rd("http://localhost/1", {{"title", number}}));
  EXPECT_EQ(catalog_.run({"rebuild", "--json"}).out,
            "{\"verb\":\"rebuild\",\"dry-run\":false,\"rebuilt\":1,\"dropped\":2}\n");
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000009")));
}

/// rebuild replaced a readable record with a damaged key by an empty one, with exit status 0.
TEST_F(Rebuild, ARecordUnderAnotherKeyIsNotLost) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}) + rd("http://localhost/2", {{"title", "Two"}}));
  std::string bytes = support::read_file(catalog_.path());
  bytes.replace(bytes.find("00000002"), 8, "00000005");
  support::write_file(catalog_.path(), bytes);
  const std::string fault =
      "damaged record 5 (http://localhost/2) in " + catalog_.path() + ": it is not found by its key";
  Finished finished = catalog_.run({"rebuild"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: " + fault + " (--skip-damaged of minidba leaves it out)\n");
  EXPECT_TRUE(support::read_file(catalog_.path()) == bytes);
  finished = catalog_.run({"rebuild", "--skip-damaged"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_EQ(finished.errors, "minidba: left out: " + fault + "\nminidba: 1 damaged\n");
  EXPECT_EQ(verdict(), "sound: 1 description, no index\n");
}

}  // namespace
