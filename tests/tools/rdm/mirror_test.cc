// SPDX-License-Identifier: MIT
#include <algorithm>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog.h"
#include "catalog/transaction.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"
#include "tools/rdm/digest.h"
#include "tools/rdm/scripted_server.h"

using namespace rdm;
using namespace rdm::client;
using testing::HasSubstr;
using testing::UnorderedElementsAreArray;

namespace {

constexpr time_t earliest = 1'700'000'000;

/// held_in returns the descriptions of a mirror of either kind.
std::vector<std::string> held_in(const std::string &target) {
  std::vector<std::string> held;
  if (std::filesystem::is_directory(target)) {
    for (const auto &entry : std::filesystem::directory_iterator(target))
      held.push_back(support::read_file(entry.path()));
  } else {
    catalog::Catalog(target).each([&](uint32_t, std::string_view record) { held.emplace_back(record); });
  }
  return held;
}

/// MirrorTest runs with a database and with a directory as target.
class MirrorTest : public ::testing::TestWithParam<const char *> {
 protected:
  MirrorTest() {
    options_.state = directory_.path("state");
    options_.target = directory_.path(GetParam());
    options_.full_every = 0;
    for (int i = 0; i < 6; ++i) catalog_.descriptions.push_back({"x:" + std::to_string(i), earliest + i * day});
  }
  Ran run() { return run_verb(mirror, options_); }
  void expect_equal() {
    std::vector<std::string> texts;
    for (const Description &one : catalog_.descriptions) texts.push_back(text_of(one));
    EXPECT_THAT(held_in(options_.target), UnorderedElementsAreArray(texts));
  }
  void expect_mirrored() {
    const Ran ran = run();
    EXPECT_EQ(ran.status, 0) << ran.errors;
    expect_equal();
  }
  void erase(size_t position) {
    catalog_.descriptions.erase(catalog_.descriptions.begin() + static_cast<std::ptrdiff_t>(position));
  }
  void add(const std::string &url) { catalog_.descriptions.push_back({url, catalog_.descriptions.back().time + 1}); }
  time_t newest() const { return catalog_.descriptions.back().time; }

  support::TemporaryDirectory directory_;
  CatalogScript catalog_{{}};
  /// dated returns an answer as if the server's clock showed this time.
  static std::string dated(std::string answer, time_t clock) {
    return answer.insert(answer.find("\r\n") + 2, "Date: " + catalog::date_of(clock) + "\r\n");
  }
  ScriptedServer::Script script_ = [this](const std::string &message) {
    return dated(catalog_(message), earliest + 100 * day);
  };
  ScriptedServer server_{[this](const std::string &message) { return script_(message); }};
  Options options_ = options_for(server_);
};

}  // namespace

TEST_P(MirrorTest, FollowsAdditionsChangesAndDeletions) {
  Ran ran = run();
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, "");
  EXPECT_EQ(ran.errors, "rdm: 6 new, 0 changed, 0 gone, 6 held\n");
  expect_equal();
  erase(1);
  catalog_.descriptions[0].title = "changed";
  std::rotate(catalog_.descriptions.begin(), catalog_.descriptions.begin() + 1, catalog_.descriptions.end());
  catalog_.descriptions.back().time = earliest + 10 * day;
  add("x:new");
  ran = run();
  EXPECT_EQ(ran.out, "x:1\n");
  EXPECT_EQ(ran.errors, "rdm: 1 new, 1 changed, 1 gone, 6 held\n");
  expect_equal();
}

TEST_P(MirrorTest, NothingNewCostsOneListing) {
  expect_mirrored();
  const size_t before = server_.messages().size();
  expect_mirrored();
  ASSERT_EQ(server_.messages().size(), before + 1);
  EXPECT_THAT(server_.messages().back(), HasSubstr("view-attributes{15}:\trd-last-changed\n"));
}

TEST_P(MirrorTest, ComparesTheWholeListOnlySoOften) {
  options_.full_every = 3600;
  expect_mirrored();
  erase(0);
  add("x:new");
  const Ran ran = run();
  EXPECT_EQ(ran.status, 0);
  EXPECT_EQ(ran.out, "");
  EXPECT_THAT(ran.errors, HasSubstr("rdm: 1 new, 0 changed, what is gone was compared at "));
  EXPECT_EQ(held_in(options_.target).size(), 7u);
  options_.full_every = 0;
  EXPECT_EQ(run().out, "x:0\n");
  expect_equal();
}

TEST_P(MirrorTest, SuddenEmptinessIsNotBelieved) {
  expect_mirrored();
  const std::vector<Description> before = catalog_.descriptions;
  for (const size_t left : {0u, 2u}) {
    catalog_.descriptions.assign(before.begin(), before.begin() + static_cast<std::ptrdiff_t>(left));
    const Ran ran = run();
    EXPECT_EQ(ran.status, exit_distrust);
    EXPECT_THAT(ran.errors, HasSubstr("the server lists only " + std::to_string(left) + " of the 6 descriptions held"));
    EXPECT_EQ(held_in(options_.target).size(), 6u);
  }
  options_.believe = true;
  expect_mirrored();
  catalog_.descriptions.clear();
  expect_mirrored();
  catalog_.descriptions = before;
  options_.believe = false;
  expect_mirrored();
}

TEST_P(MirrorTest, HalfOfTheDescriptionsMayGoAtOnce) {
  expect_mirrored();
  catalog_.descriptions.resize(3);
  expect_mirrored();
}

TEST_P(MirrorTest, ForeignDescriptionsAreNotReplacedByAnotherCatalog) {
  expect_mirrored();
  options_.csid = "x-catalog://h:1/other";
  for (Description &one : catalog_.descriptions) one.url += "/other";
  EXPECT_EQ(run().status, exit_distrust);
  EXPECT_EQ(held_in(options_.target).size(), 6u);
}

TEST_P(MirrorTest, LostStateIsMadeAgain) {
  expect_mirrored();
  std::filesystem::remove_all(options_.state);
  erase(2);
  add("x:new");
  expect_mirrored();
}

TEST_P(MirrorTest, RestoredSourceIsFollowedBack) {
  expect_mirrored();
  const std::vector<Description> before = catalog_.descriptions;
  for (Description &one : catalog_.descriptions) one.title = "later", one.time += 864000;
  expect_mirrored();
  catalog_.descriptions = before;
  expect_mirrored();
}

TEST_P(MirrorTest, TargetThatWasChangedByOthersIsMendedAtOnce) {
  options_.full_every = 86400;
  expect_mirrored();
  if (std::filesystem::is_directory(options_.target)) {
    const std::string file = options_.target + "/" + hex_of(digest_of("x:1")) + ".soif";
    support::write_file(file, "@FILE { x:1\ntitle{9}:\tti");
    std::filesystem::remove(options_.target + "/" + hex_of(digest_of("x:2")) + ".soif");
  } else {
    const support::Finished done =
        support::run({support::in_build("bin/minidba"), "-d", options_.target, "delete", "x:1", "x:2"});
    ASSERT_EQ(done.status, 0) << done.errors;
  }
  expect_mirrored();
}

TEST_P(MirrorTest, ChangesDuringTheRunAreFollowedUntilNoneIsLeft) {
  int listings = 0, deliveries = 0;
  script_ = [&](const std::string &message) {
    std::string answer = dated(catalog_(message), earliest + 100 * day);
    const bool is_listing = message.find("view-attributes") != std::string::npos;
    ++(is_listing ? listings : deliveries);
    if (is_listing || deliveries > 3) return answer;
    erase(0);
    add("x:" + std::to_string(deliveries) + "/new");
    return answer;
  };
  expect_mirrored();
  EXPECT_EQ(listings, 5);
}

TEST_P(MirrorTest, CatalogThatNeverRestsIsMirroredWithAWarning) {
  int answers = 0;
  script_ = [&](const std::string &message) {
    add("x:" + std::to_string(++answers) + "/new");
    return catalog_(message);
  };
  const Ran ran = run();
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("the catalog changes faster than it can be compared"));
  script_ = [&](const std::string &message) { return catalog_(message); };
  options_.full_every = 86400;
  expect_mirrored();
}

TEST_P(MirrorTest, ChangeWithoutANewTimeIsNoticedWhileItsSecondIsRecent) {
  script_ = [&](const std::string &message) { return dated(catalog_(message), newest() + 1); };
  expect_mirrored();
  catalog_.descriptions.back().title = "changed within the second";
  expect_mirrored();
}

TEST_P(MirrorTest, DescriptionsWithoutATimeAreComparedByTheirBytes) {
  const auto all = [](const std::string &title) {
    std::string text;
    for (int i = 0; i < 3; ++i) text += "@FILE { x:" + std::to_string(i) + "\n" + attribute("title", title) + "}\n";
    return http(header("rd-response") + text);
  };
  std::string title = "one";
  script_ = [&](const std::string &) { return all(title); };
  EXPECT_EQ(run().status, 0);
  title = "another";
  EXPECT_EQ(run().errors, "rdm: 0 new, 3 changed, 0 gone, 3 held\n");
  EXPECT_EQ(run().errors, "rdm: 0 new, 0 changed, 0 gone, 3 held\n");
}

TEST_P(MirrorTest, DescriptionWithoutAUrlIsRejectedAndTheOthersAreKept) {
  catalog_.descriptions[2].url = "-";
  const Ran ran = run();
  EXPECT_EQ(ran.status, 1);
  EXPECT_THAT(ran.errors, HasSubstr("rdm: rejected: a description without a URL\n"));
  EXPECT_EQ(held_in(options_.target).size(), 5u);
}

TEST_P(MirrorTest, ResultAsJsonListsWhatIsGone) {
  expect_mirrored();
  erase(0);
  options_.json = true;
  EXPECT_EQ(run().out, R"({"verb":"mirror","new":0,"changed":0,"held":5,"rejected":0,"compared":true,"gone":["x:0"]})"
                       "\n");
}

TEST_P(MirrorTest, AnswerThatCannotBeTrustedChangesNothing) {
  expect_mirrored();
  options_.retries = 0;
  erase(0);
  catalog_.descriptions[0].title = "changed";
  script_ = [&](const std::string &message) {
    const std::string answer = catalog_(message);
    return answer.substr(0, answer.size() - 3);
  };
  EXPECT_EQ(run().status, exit_distrust);
  EXPECT_EQ(held_in(options_.target).size(), 6u);
}

INSTANTIATE_TEST_SUITE_P(Targets, MirrorTest, ::testing::Values("mirror.db", "mirror/"), [](const auto &tested) {
  return std::string(tested.param) == "mirror.db" ? "Database" : "Directory";
});

class MirrorTarget : public ::testing::Test {
 protected:
  MirrorTarget() { options_.state = directory_.path("state"); }

  support::TemporaryDirectory directory_;
  CatalogScript catalog_{{{"x:1", earliest}, {"x:2", earliest + 1}}};
  ScriptedServer server_{catalog_};
  Options options_ = options_for(server_);
};

TEST_F(MirrorTarget, DatabaseIsPublishedWithItsIndex) {
  options_.target = directory_.path("mirror.db");
  EXPECT_EQ(run_verb(mirror, options_).status, 0);
  EXPECT_FALSE(catalog::has_other_index(catalog::Catalog(options_.target)));
  const support::Finished verified =
      support::run({support::in_build("bin/minidba"), "-d", options_.target, "-i", options_.target + ".idx", "verify"});
  EXPECT_EQ(verified.status, 0) << verified.out << verified.errors;
}

TEST_F(MirrorTarget, OtherFilesOfADirectoryAreLeftAloneAndThoseOfAKilledRunRemoved) {
  options_.target = directory_.path("mirror");
  std::filesystem::create_directory(options_.target);
  support::write_file(options_.target + "/notes.soif", "mine");
  support::write_file(options_.target + "/" + hex_of(digest_of("x:1")) + ".soif.new", "cut");
  EXPECT_EQ(run_verb(mirror, options_).status, 0);
  EXPECT_EQ(support::read_file(options_.target + "/notes.soif"), "mine");
  EXPECT_FALSE(support::file_exists(options_.target + "/" + hex_of(digest_of("x:1")) + ".soif.new"));
  EXPECT_EQ(support::read_file(options_.target + "/" + hex_of(digest_of("x:1")) + ".soif"), text_of({"x:1", earliest}));
}

TEST_F(MirrorTarget, DatabaseThatCannotBeWrittenIsAFailureAndNotADistrust) {
  for (const char *target : {"/proc/mirror.db", "/proc/mirror/"}) {
    options_.target = target;
    EXPECT_EQ(run_verb(mirror, options_).status, 2);
  }
}

TEST_F(MirrorTarget, DescriptionDatedAheadIsToldOnce) {
  constexpr time_t ahead = 3'786'912'000;
  CatalogScript catalog{{{"x:1", earliest}, {"x:2", ahead}}};
  ScriptedServer server{catalog};
  options_.url = server.url();
  options_.target = directory_.path("mirror.db");
  EXPECT_EQ(run_verb(mirror, options_).errors,
            "rdm: a description has the time of change Sun, 01 Jan 2090 00:00:00 GMT, after the clock: changes of " +
                options_.target + " by other programs get later times\nrdm: 2 new, 0 changed, 0 gone, 2 held\n");
  EXPECT_EQ(run_verb(mirror, options_).errors, "rdm: 0 new, 0 changed, 0 gone, 2 held\n");
}

TEST_F(MirrorTarget, OfARelativePathHasOneStateBeforeAndAfterItExists) {
  const auto place = std::filesystem::current_path();
  std::filesystem::current_path(directory_.path());
  options_.target = "mirror.db";
  EXPECT_EQ(run_verb(mirror, options_).status, 0);
  EXPECT_EQ(run_verb(mirror, options_).status, 0);
  std::filesystem::current_path(place);
  size_t states = 0;
  for (const auto &entry : std::filesystem::directory_iterator(options_.state))
    states += entry.path().has_extension() ? 0 : 1;
  EXPECT_EQ(states, 1u);
}

TEST_F(MirrorTarget, LinkToADatabaseStays) {
  options_.full_every = 0;
  std::filesystem::create_directory(directory_.path("place"));
  std::filesystem::create_symlink(directory_.path("place"), directory_.path("link"));
  options_.target = directory_.path("link/mirror.db");
  EXPECT_EQ(run_verb(mirror, options_).status, 0);
  std::filesystem::create_symlink(directory_.path("place/mirror.db"), directory_.path("mirror.db"));
  options_.target = directory_.path("mirror.db");
  EXPECT_EQ(run_verb(mirror, options_).errors, "rdm: 0 new, 0 changed, 0 gone, 2 held\n");
  EXPECT_TRUE(std::filesystem::is_symlink(options_.target));
}
