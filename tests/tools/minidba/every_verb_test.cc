// SPDX-License-Identifier: MIT
/// Requirements that many verbs share.
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;
using Words = std::vector<std::string>;

const std::string expired = rd("http://localhost/1", {{"title", "One"}, {"rd-expires", "2 Jan 1999"}});
const std::string classified = rd("http://localhost/2", {{"title", "Two"}, {"classification", "a"}});

class EveryVerb : public testing::Test {
 protected:
  void make() const {
    ASSERT_EQ(catalog_.update(expired + classified).out, "2\n");
    ASSERT_EQ(catalog_.index().out, "2\n");
  }
  /// contents returns the bytes of the database and all files beside it, by name.
  std::map<std::string, std::string> contents() const {
    std::map<std::string, std::string> contents;
    for (const std::string &name : catalog_.files())
      contents[name] = support::read_file(catalog_.directory() + "/" + name);
    return contents;
  }

  CatalogFiles catalog_;
  const std::string exported_ = catalog_.path(".soif");
};

TEST_F(EveryVerb, RefusesARecordThatIsNotAnObjectAndChangesNothing) {
  make();
  catalog_.put("00000001", "no object");
  support::write_file(exported_, "before");
  const auto before = contents();
  for (const Words &words : {Words{"list"},
                             {"stats"},
                             {"unclassified"},
                             {"get", "1", "--json"},
                             {"export"},
                             {"export", exported_},
                             {"index"},
                             {"expire"},
                             {"rebuild"},
                             {"delete", "2"},
                             {"update"}}) {
    const Finished finished = catalog_.run(words, expired);
    EXPECT_EQ(finished.status, 2) << words[0];
    EXPECT_EQ(finished.out, "") << words[0];
    EXPECT_EQ(finished.errors, "minidba: damaged record 1 in " + catalog_.path() +
                                   ": it is not a SOIF object (--skip-damaged of minidba leaves it out)\n")
        << words[0];
    EXPECT_TRUE(contents() == before) << words[0];
  }
}

TEST_F(EveryVerb, NeedsPermissionToWriteOnlyIfItWrites) {
  make();
  const auto before = contents();
  const auto records = catalog_.records();
  const std::string first = records.at("00000001"), second = records.at("00000002");
  const struct {
    Words words;
    std::string out;
  } rows[] = {
      {{"list"}, first + second},
      {{"get", "http://localhost/2"}, second},
      {{"export"}, catalog_.run({"export"}).out},
      {{"stats"}, catalog_.run({"stats"}).out},
      {{"unclassified"}, "http://localhost/1\n"},
      {{"verify"}, "sound: 2 descriptions, 2 index entries\n"},
      {{"index", "--dry-run"}, "2\n"},
      {{"delete", "--dry-run", "1"}, "1\n"},
      {{"expire", "--dry-run", "--json"}, "{\"verb\":\"expire\",\"dry-run\":true,\"expired\":1}\n"},
      {{"rebuild", "--dry-run"}, "2\n"},
  };
  for (const auto &row : rows) {
    const Finished finished = catalog_.run_read_only(row.words);
    EXPECT_EQ(finished.status, 0) << row.words[0] << finished.errors;
    EXPECT_EQ(finished.out, row.out) << row.words[0];
    EXPECT_TRUE(contents() == before) << row.words[0];
  }
}

TEST_F(EveryVerb, FailsWithoutADatabaseAndLeavesNoFile) {
  for (const Words &words : {Words{"list"},
                             {"get", "1"},
                             {"stats"},
                             {"unclassified"},
                             {"verify"},
                             {"export"},
                             {"index"},
                             {"expire"},
                             {"rebuild"},
                             {"delete", "1"}}) {
    const Finished finished = catalog_.run(words);
    EXPECT_EQ(finished.status, 2) << words[0];
    EXPECT_EQ(finished.out, "") << words[0];
    EXPECT_EQ(finished.errors, "minidba: no such database: " + catalog_.path() + "\n");
    EXPECT_TRUE(catalog_.files().empty()) << words[0];
  }
}

TEST_F(EveryVerb, TakesAnEmptyCatalog) {
  catalog_.make_empty();
  const std::pair<Words, std::string> rows[] = {{{"index"}, "0\n"},
                                                {{"rebuild"}, "0\n"},
                                                {{"expire"}, "0\n"},
                                                {{"list"}, ""},
                                                {{"unclassified"}, ""},
                                                {{"unclassified", "--json"}, "[]\n"},
                                                {{"export"}, export_header("1", "0")},
                                                {{"verify"}, "sound: 0 descriptions, 0 index entries\n"}};
  for (const auto &[words, out] : rows) {
    const Finished finished = catalog_.run(words);
    EXPECT_EQ(finished.status, 0) << words[0] << finished.errors;
    EXPECT_EQ(finished.out, out) << words[0];
  }
  EXPECT_EQ(catalog_.words(), (std::vector<uint32_t>{0x3EB1CA0E, 0})) << "the index";
  const auto figures = nlohmann::json::parse(catalog_.run({"stats", "--json"}).out);
  EXPECT_EQ(figures["descriptions"], 0);
  EXPECT_EQ(figures["fill-percent"], 0);
  EXPECT_EQ(figures["attributes"].dump(), "{}");
}

}  // namespace
