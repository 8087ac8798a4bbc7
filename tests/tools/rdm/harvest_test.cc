// SPDX-License-Identifier: MIT
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"
#include "tools/rdm/delivery.h"
#include "tools/rdm/listing.h"
#include "tools/rdm/scripted_server.h"
#include "tools/rdm/state.h"

using namespace rdm;
using namespace rdm::client;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr time_t start = 1'700'000'000;

/// HarvestTest has a server with five descriptions, a day apart, and a directory for the state.
class HarvestTest : public ::testing::Test {
 protected:
  HarvestTest() {
    options_.state = directory_.path("state");
    options_.quiet = true;
  }
  static std::vector<Description> some() {
    std::vector<Description> all;
    for (int i = 0; i < 5; ++i) all.push_back({"x:" + std::to_string(i), start + i * day});
    return all;
  }
  std::string texts(std::initializer_list<size_t> positions) const {
    std::string text;
    for (const size_t position : positions) text += text_of(catalog_.descriptions[position]);
    return text;
  }
  std::string harvested() {
    const Ran ran = run_verb(harvest, options_);
    EXPECT_EQ(ran.status, 0) << ran.errors;
    return ran.out;
  }
  /// change gives a description a new title and a later time than all.
  void change(size_t position, const std::string &title) {
    Description one = catalog_.descriptions[position];
    catalog_.descriptions.erase(catalog_.descriptions.begin() + static_cast<std::ptrdiff_t>(position));
    catalog_.descriptions.push_back({one.url, catalog_.descriptions.back().time + 1, title});
  }

  /// delivered returns the catalog without what the server lists but does not deliver.
  CatalogScript delivered() const {
    CatalogScript delivered = catalog_;
    std::erase_if(delivered.descriptions, [&](const Description &one) { return one.url == withheld_; });
    return delivered;
  }

  support::TemporaryDirectory directory_;
  std::string withheld_;  // URL of a description that is only listed
  CatalogScript catalog_{some()};
  std::string fields_;  // of the head of an answer
  ScriptedServer server_{[this](const std::string &message) {
    std::string answer =
        message.find("view-attributes") == std::string::npos ? delivered()(message) : catalog_(message);
    return answer.insert(answer.find("\r\n") + 2, fields_);
  }};
  Options options_ = options_for(server_);
};

/// only_state returns the path of the one state in a directory.
std::string only_state(const std::string &directory) {
  std::string found;
  for (const auto &entry : std::filesystem::directory_iterator(directory))
    if (entry.path().extension() != ".lock") found = entry.path();
  return found;
}

}  // namespace

TEST_F(HarvestTest, SinceATimeGivesWhatHasChangedThenOrLater) {
  options_.since = "@" + std::to_string(start + 3 * day);
  EXPECT_EQ(harvested(), texts({3, 4}));
}

TEST_F(HarvestTest, SinceATimeGivesTheLastDescriptionTooWhichAServerWouldNotSendAlone) {
  options_.since = "@" + std::to_string(start + 3 * day + 1);
  EXPECT_EQ(harvested(), texts({4}));
  options_.since = "@" + std::to_string(start + 4 * day + 1);
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, CatalogOfOneDescriptionIsHarvestedSinceATime) {
  catalog_.descriptions.resize(1);
  options_.since = "@" + std::to_string(start);
  EXPECT_EQ(harvested(), texts({0}));
}

TEST_F(HarvestTest, LimitGivesTheFirstOnes) {
  options_.limit = 2;
  EXPECT_EQ(harvested(), texts({0, 1}));
  options_.since = "@" + std::to_string(start + day);
  EXPECT_EQ(harvested(), texts({1, 2}));
}

TEST_F(HarvestTest, AttributesAreAskedForAndTheTimeIsDroppedUnlessItIsOne) {
  options_.attributes = {"title"};
  options_.limit = 1;
  EXPECT_EQ(harvested(), "@FILE { x:0\n" + attribute("title", "title of x:0") + "}\n");
  EXPECT_THAT(server_.messages().back(), HasSubstr("view-attributes{21}:\ttitle,rd-last-changed\n"));
  options_.attributes = {"title", "rd-last-changed"};
  EXPECT_EQ(harvested(), texts({0}));
}

TEST_F(HarvestTest, SinceLastGivesEachVersionOnce) {
  options_.since = "last";
  EXPECT_EQ(harvested(), texts({0, 1, 2, 3, 4}));
  EXPECT_EQ(harvested(), "");
  change(1, "changed");
  EXPECT_EQ(harvested(), texts({4}));
  EXPECT_EQ(harvested(), "");
  change(0, "changed too");
  change(0, "changed as well");
  EXPECT_EQ(harvested(), texts({3, 4}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, ChangeWithinTheSameSecondIsNoticedByItsBytes) {
  // The server's clock shows the second of the last change: it may not be over.
  options_.since = "last";
  fields_ = "Date: Sat, 18 Nov 2023 22:13:20 GMT\r\n";
  EXPECT_EQ(harvested(), texts({0, 1, 2, 3, 4}));
  EXPECT_EQ(harvested(), "");
  catalog_.descriptions.back().title = "changed without a new time";
  EXPECT_EQ(harvested(), texts({4}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, ChangeThatTheIndexShowedLateIsNotLost) {
  // Both changes were committed, but at first the index had only the second one.
  options_.since = "last";
  EXPECT_EQ(harvested(), texts({0, 1, 2, 3, 4}));
  const time_t late = start + 4 * day + 100;
  catalog_.descriptions.push_back({"x:6", late + 60});
  EXPECT_EQ(harvested(), texts({5}));
  catalog_.descriptions.insert(catalog_.descriptions.end() - 1, {"x:5", late});
  EXPECT_EQ(harvested(), texts({5}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, DescriptionDatedAheadDoesNotHideLaterChangesOfAServerThatTellsNoDate) {
  options_.since = "last";
  constexpr time_t ahead = 3'786'912'000;  // in 2090
  catalog_.descriptions.push_back({"x:5", ahead});
  EXPECT_EQ(harvested(), texts({0, 1, 2, 3, 4, 5}));
  catalog_.descriptions.insert(catalog_.descriptions.end() - 1, {"x:6", std::time(nullptr)});
  EXPECT_EQ(harvested(), texts({5}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, LimitedHarvestsSinceLastGiveEverythingInTheEnd) {
  options_.since = "last";
  options_.limit = 2;
  EXPECT_EQ(harvested(), texts({0, 1}));
  EXPECT_EQ(harvested(), texts({2, 3}));
  EXPECT_EQ(harvested(), texts({4}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, LimitedHarvestsGiveEachOfManyDescriptionsOfOneTimeOnce) {
  catalog_.descriptions.clear();
  for (int i = 0; i < 7; ++i) catalog_.descriptions.push_back({"x:" + std::to_string(i), start});
  options_.since = "last";
  options_.limit = 3;
  EXPECT_EQ(harvested(), texts({0, 1, 2}));
  EXPECT_EQ(harvested(), texts({3, 4, 5}));
  EXPECT_EQ(harvested(), texts({6}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, LimitedHarvestsGiveEverythingThoughTheIndexIsOlderThanATextInTheMiddle) {
  catalog_.descriptions[1].indexed = catalog_.descriptions[1].time;
  catalog_.descriptions[1].time = start + 10 * day;
  options_.since = "last";
  options_.limit = 1;
  for (const size_t position : {0, 1, 2, 3, 4}) EXPECT_EQ(harvested(), texts({position}));
  options_.limit = 0;
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, LimitedHarvestsGiveEverythingThoughNewTextsAreIndexedBeforeOthersOfTheirTime) {
  // No time of a text tells where the server has the second one.
  catalog_.descriptions[1].indexed = catalog_.descriptions[1].time;
  for (const size_t position : {1, 2, 3, 4}) catalog_.descriptions[position].time = start + 10 * day;
  options_.since = "last";
  options_.limit = 1;
  for (const size_t position : {0, 1, 2, 3, 4}) EXPECT_EQ(harvested(), texts({position}));
  options_.limit = 0;
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, WhatWasListedButNotDeliveredComesLater) {
  options_.since = "last";
  withheld_ = "x:1";
  EXPECT_EQ(harvested(), texts({0, 2, 3, 4}));
  EXPECT_EQ(harvested(), "");
  withheld_.clear();
  EXPECT_EQ(harvested(), texts({1}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, WhatWasNotDeliveredToALimitedHarvestComesLaterAndDoesNotHoldUpTheOthers) {
  options_.since = "last";
  options_.limit = 1;
  withheld_ = "x:1";
  for (const size_t position : {0, 2, 3}) EXPECT_EQ(harvested(), texts({position}));
  withheld_.clear();
  EXPECT_EQ(harvested(), texts({1}));
  EXPECT_EQ(harvested(), texts({4}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, EmptyCatalogDoesNotMakeKnownDescriptionsNew) {
  options_.since = "last";
  harvested();
  const std::vector<Description> before = catalog_.descriptions;
  catalog_.descriptions.clear();
  EXPECT_EQ(harvested(), "");
  catalog_.descriptions = before;
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, StateIsKeptForEachCatalogAndSelection) {
  options_.since = "last";
  harvested();
  options_.csid = "x-catalog://h:1/other";
  EXPECT_EQ(harvested(), texts({0, 1, 2, 3, 4}));
  options_.attributes = {"title", "rd-last-changed"};
  EXPECT_EQ(harvested(), texts({0, 1, 2, 3, 4}));
  EXPECT_EQ(harvested(), "");
}

TEST_F(HarvestTest, OutputThatFailsLeavesTheStateAndTheOldFile) {
  options_.since = "last";
  options_.output = directory_.path("no/such/directory/file");
  EXPECT_EQ(run_verb(harvest, options_).status, 2);
  options_.output = directory_.path("file");
  support::write_file(options_.output, "old");
  harvested();
  EXPECT_EQ(support::read_file(options_.output), texts({0, 1, 2, 3, 4}));
}

TEST_F(HarvestTest, SuddenEmptinessDoesNotReplaceTheLastHarvestUnlessItIsBelieved) {
  const std::pair<std::string, std::string> rows[] = {
      {"soif", ""}, {"json", "[]\n"}, {"ndjson", ""}, {"csv", "template,url\r\n"}};
  for (const auto &[format, nothing] : rows) {
    options_.format = format;
    options_.output = directory_.path("harvest." + format);
    options_.believe = false;
    catalog_.descriptions = some();
    EXPECT_EQ(harvested(), "");
    const std::string before = support::read_file(options_.output);
    EXPECT_THAT(before, HasSubstr("title of x:4"));
    catalog_.descriptions.clear();
    const Ran ran = run_verb(harvest, options_);
    EXPECT_EQ(ran.status, exit_distrust);
    EXPECT_EQ(ran.errors, "rdm: " + server_.url() + ": the server has no descriptions: " + options_.output +
                              " is left as it was; if they are gone indeed, say --believe\n");
    EXPECT_EQ(support::read_file(options_.output), before);
    options_.believe = true;
    EXPECT_EQ(harvested(), "");
    EXPECT_EQ(support::read_file(options_.output), nothing);
    options_.believe = false;
    EXPECT_EQ(harvested(), "") << "a file without descriptions has none to lose";
  }
}

TEST_F(HarvestTest, NothingSinceATimeReplacesTheFile) {
  options_.output = directory_.write("changes", "old");
  options_.since = "@" + std::to_string(start + 5 * day);
  EXPECT_EQ(harvested(), "");
  EXPECT_EQ(support::read_file(options_.output), "");
}

TEST_F(HarvestTest, OneStateHasOneUserAtATime) {
  options_.since = "last";
  const State held(options_, "harvest");
  const Ran ran = run_verb(harvest, options_);
  EXPECT_EQ(ran.status, 2);
  EXPECT_THAT(ran.errors, HasSubstr("another rdm is at this work"));
}

TEST_F(HarvestTest, DamagedStateIsNamedAndNotUsed) {
  options_.since = "last";
  harvested();
  const std::string name = only_state(options_.state);
  std::string text = support::read_file(name);
  text[text.find("held ") + 5] ^= 1;
  support::write_file(name, text);
  const Ran ran = run_verb(harvest, options_);
  EXPECT_EQ(ran.status, 2);
  EXPECT_EQ(ran.errors, "rdm: the state is damaged: " + name + ": remove it to begin again\n");
}

TEST_F(HarvestTest, ResultAsJsonNeedsAFileForTheDescriptions) {
  options_.json = true;
  options_.output = directory_.path("file");
  EXPECT_EQ(harvested(), R"({"verb":"harvest","descriptions":5,"bytes":)" +
                             std::to_string(texts({0, 1, 2, 3, 4}).size()) + R"(,"rejected":0})" + "\n");
}

TEST_F(HarvestTest, OutputMayHaveOtherFormats) {
  catalog_.descriptions.resize(2);
  const std::string first = R"({"template":"FILE","url":"x:0","attributes":)"
                            R"({"rd-last-changed":"Tue, 14 Nov 2023 22:13:20 GMT","title":"title of x:0"}})";
  const std::string second = R"({"template":"FILE","url":"x:1","attributes":)"
                             R"({"rd-last-changed":"Wed, 15 Nov 2023 22:13:20 GMT","title":"title of x:1"}})";
  options_.format = "json";
  EXPECT_EQ(harvested(), "[\n" + first + ",\n" + second + "\n]\n");
  options_.format = "ndjson";
  EXPECT_EQ(harvested(), first + "\n" + second + "\n");
  options_.format = "csv";
  EXPECT_EQ(harvested(),
            "template,url,rd-last-changed,title\r\n"
            "FILE,x:0,\"Tue, 14 Nov 2023 22:13:20 GMT\",title of x:0\r\n"
            "FILE,x:1,\"Wed, 15 Nov 2023 22:13:20 GMT\",title of x:1\r\n");
}

TEST_F(HarvestTest, GetFindsDescriptionsWithoutFetchingTheCatalog) {
  options_.urls = {"x:3", "x:4"};
  const Ran ran = run_verb(get, options_);
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, texts({3, 4}));
  EXPECT_THAT(server_.messages(), ElementsAre(HasSubstr("view-attributes{15}:\trd-last-changed\n"),
                                              AllOf(HasSubstr("\tsince "), HasSubstr("view-hits{1}:\t2\n"))));
}

TEST_F(HarvestTest, GetNamesWhatIsMissing) {
  options_.urls = {"x:0", "x:9"};
  const Ran ran = run_verb(get, options_);
  EXPECT_EQ(ran.status, 1);
  EXPECT_EQ(ran.out, texts({0}));
  EXPECT_EQ(ran.errors, "rdm: no such description: x:9\n");
}

TEST_F(HarvestTest, GetFindsADescriptionWhoseTextIsNewerThanTheIndex) {
  catalog_.descriptions[0].time = start + 3 * day;
  options_.urls = {"x:0"};
  EXPECT_EQ(run_verb(get, options_).out, texts({0}));
}

TEST_F(HarvestTest, GetAsJsonListsWhatIsFoundAndMissing) {
  options_.urls = {"x:0", "x:9"};
  options_.json = true;
  EXPECT_EQ(run_verb(get, options_).out,
            R"({"verb":"get","found":[{"url":"x:0","soif":"@FILE { x:0\n)"
            R"(rd-last-changed{29}:\tTue, 14 Nov 2023 22:13:20 GMT\ntitle{12}:\ttitle of x:0\n}"}],"missing":["x:9"]})"
            "\n");
}

TEST(Listing, QueriesCoverTheEntriesThatTheyAreFor) {
  Listing listing;
  for (const time_t time : {10, 20, 20, 20, 30}) listing.entries.push_back({{}, time});
  EXPECT_EQ(narrow_query(listing, 0).since, 9);
  EXPECT_EQ(narrow_query(listing, 3).since, 19);
  EXPECT_EQ(narrow_query(listing, 4).since, 20);
  EXPECT_EQ(wide_query(listing, 4).since, 0);
  Query query = narrow_query(listing, 1);
  limit_query(query, listing, 2);
  EXPECT_EQ(query.hits, 2);
  listing.entries.resize(1);
  EXPECT_EQ(narrow_query(listing, 0).since, 0);
}
