// SPDX-License-Identifier: MIT
/// rdmctl publish and imports: database and index change together, completely or not at all.
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "catalog/catalog_files.h"
#include "catalog/os/file.h"
#include "hosts/rdmd/rdmd_process.h"
#include "tools/minidba/catalog_state.h"
#include "tools/minidba/killing.h"
#include "tools/rdmctl/descriptions.h"
#include "tools/rdmctl/service_files.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;
using support::Finished;
using support::read_file;
using support::write_file;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string malformed = "@FILE { http://localhost/2\ntitle{99}:\tT\n}\n";
const std::string unnamed = "@FILE { -\ntitle{1}:\tT\n}\n";

class Publish : public testing::Test {
 protected:
  Finished publish(std::vector<std::string> words, const std::string &input = "") const {
    words.insert(words.begin(), {"publish", catalog_.path()});
    return rdmctl(words, input);
  }
  void make(int count) const { ASSERT_EQ(publish({"-"}, described(1, count)).status, 0); }
  std::string file(const std::string &name, const std::string &text) const { return files_.write(name, text); }
  size_t count() const { return catalog_.records().size(); }
  std::string verdict() const { return verdict_on(catalog_); }
  /// reports returns the kept reports as JSON.
  nlohmann::json reports() const { return nlohmann::json::parse(rdmctl({"imports", "--json", catalog_.path()}).out); }

  CatalogFiles catalog_;
  support::TemporaryDirectory files_;
};

TEST_F(Publish, UpdatesExpiresAndIndexesInOne) {
  make(3);
  const std::string feed = described(3, 4, "new") + described(5, 5, "T", past) + described(1, 1, "T", past);
  const Finished finished = publish({file("one", feed), "-"}, described(6, 6));
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.errors, "");
  EXPECT_EQ(finished.out, "3 new, 2 changed, 0 unchanged, 0 deleted, 2 expired, 0 rejected\n");
  EXPECT_EQ(verdict(), "sound: 4 descriptions, 4 index entries\n");
}

TEST_F(Publish, ADryRunOnlyTells) {
  make(3);
  const std::string database = read_file(catalog_.path()), index = read_file(catalog_.path(".idx"));
  const Finished finished = publish({"--dry-run", "-"}, described(3, 5));
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "dry run: 2 new, 0 changed, 1 unchanged, 0 deleted, 0 expired, 0 rejected\n");
  EXPECT_EQ(read_file(catalog_.path()), database);
  EXPECT_EQ(read_file(catalog_.path(".idx")), index);
  EXPECT_EQ(reports().size(), 1u);
}

TEST_F(Publish, RejectsObjectsAndTakesTheOthers) {
  const std::string feed = file("feed", described(1, 1) + malformed + described(3, 3));
  const Finished finished = publish({feed});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors,
            "rdmctl: " + feed +
                ": line 5: http://localhost/2: object 2 at byte 66 rejected: title{99} reaches beyond the "
                "end; title{1} would fit, not title{99}\n");
  EXPECT_EQ(count(), 2u);
  EXPECT_EQ(reports()[0]["rejects"][0]["url"], url(2));
}

TEST_F(Publish, ChangesNothingWithoutAValidDescription) {
  make(2);
  for (const std::string &input : {std::string(), malformed, std::string(100000, '\0'), std::string("no SOIF\n")}) {
    const Finished finished = publish({"-"}, input);
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.errors, testing::EndsWith("rdmctl: no valid description in the input: nothing is changed\n"));
  }
  EXPECT_EQ(count(), 2u);
}

TEST_F(Publish, ChangesNothingIfAFileIsCutOrCannotBeRead) {
  make(2);
  const std::string header = export_header("9", "3");
  EXPECT_EQ(publish({file("cut", header + described(3, 4))}).status, 2);
  const Finished missing = publish({file("good", described(3, 4)), "/nowhere/feed"});
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.errors, "rdmctl: cannot read /nowhere/feed: No such file or directory\n");
  EXPECT_EQ(publish({files_.path()}).status, 2);
  EXPECT_EQ(count(), 2u);
}

TEST_F(Publish, RefusesADeleteResponse) {
  const std::string header = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{18}:\tRD-Delete-Response\n}\n\n";
  const std::string feed = file("feed", header + described(1, 1));
  const Finished finished = publish({feed});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors,
            "rdmctl: " + feed + " is an rd-delete-response: rdmctl import --delete deletes what it names\n");
  EXPECT_FALSE(support::file_exists(catalog_.path()));
}

TEST_F(Publish, RefusesARequest) {
  const std::string feed =
      file("feed", "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{10}:\tRD-Request\n}\n\n" + described(1, 1));
  const Finished finished = publish({feed});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "rdmctl: " + feed + " is a request: RD-Request\n");
}

TEST_F(Publish, NamesTextThatBelongsToNoObject) {
  const std::string feed = file("feed", described(1, 1) + "FILE { http://localhost/2\n}\n" + described(3, 3));
  const Finished finished = publish({feed});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "2 new, 0 changed, 0 unchanged, 0 deleted, 0 expired, 0 rejected\n");
  EXPECT_THAT(finished.errors, HasSubstr("rdmctl: " + feed + ": line 5: text that belongs to no object\n"));
}

TEST_F(Publish, OfDescriptionsWithOneUrlTheLastCountsAndOthersAreNamed) {
  make(2);
  const std::string feed = file(
      "feed", described(1, 1) + described(2, 3) + described(1, 1, "new") + described(2, 2) + described(3, 3, "new"));
  const Finished finished = publish({feed});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "1 new, 1 changed, 1 unchanged, 0 deleted, 0 expired, 0 rejected\n");
  const std::string reason = "an earlier description of the feed has this URL: the last one counts";
  const auto line = [&](const char *number, int description) {
    return feed + ": line " + number + ": " + url(description) + ": " + reason + "\n";
  };
  const std::string lines[] = {line("13", 1), line("17", 2), line("21", 3)};
  EXPECT_EQ(finished.errors, "rdmctl: " + lines[0] + "rdmctl: " + lines[1] + "rdmctl: " + lines[2]);
  EXPECT_EQ(CatalogFiles::value(catalog_.records()["00000001"], "title"), "new");
  EXPECT_EQ(verdict(), "sound: 3 descriptions, 3 index entries\n");
  const nlohmann::json report = reports()[1];
  EXPECT_EQ(report["accepted"], 3);
  EXPECT_EQ(report["repeated"], 3);
  EXPECT_EQ(report["repeats"][1]["url"], url(2));
  EXPECT_EQ(report["repeats"][1]["line"], 17);
  EXPECT_THAT(rdmctl({"imports", "--last", "1", catalog_.path()}).out, testing::EndsWith("  repeated: " + lines[2]));
}

TEST_F(Publish, SaysWhichUrlIsTooLong) {
  const std::string long_url = url(1) + std::string(5000, 'x');
  const Finished finished = publish({"-"}, rd(long_url, {{"title", "T"}}) + described(2, 2));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors, "rdmctl: the input: line 1: object 1 at byte 0 rejected: the URL has " +
                                 std::to_string(long_url.size()) + " bytes, more than 4095\n");
}

TEST_F(Publish, OfAFileThatIsNoCatalogLeavesNoLock) {
  write_file(catalog_.path(), "text");
  EXPECT_EQ(publish({"-"}, described(1, 1)).status, 2);
  EXPECT_FALSE(support::file_exists(catalog_.path(".lock")));
}

TEST_F(Publish, AFullFeedDeletesWhatItLacks) {
  make(20);
  const Finished finished = publish({"--full-feed", "-"}, described(3, 21, "new"));
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "1 new, 18 changed, 0 unchanged, 2 deleted, 0 expired, 0 rejected\n");
  EXPECT_EQ(verdict(), "sound: 19 descriptions, 19 index entries\n");
}

TEST_F(Publish, AFullFeedDeletesNoMoreThanItMay) {
  make(20);
  const std::string feed = file("feed", described(4, 20));
  const std::string text = "rdmctl: the feed lacks 3 of 20 descriptions, more than --max-delete ";
  const std::pair<std::string, bool> limits[] = {{"10%", false}, {"14.9%", false}, {"2", false},  {"0", false},
                                                 {"0%", false},  {"3", true},      {"15%", true}, {"100%", true}};
  for (const auto &[limit, is_allowed] : limits) {
    const Finished finished = publish({"--dry-run", "--full-feed", "--max-delete", limit, feed});
    EXPECT_EQ(finished.status, is_allowed ? 0 : 2) << limit;
    EXPECT_EQ(finished.errors, is_allowed ? "" : text + limit + ": nothing is changed\n");
  }
  EXPECT_EQ(publish({"--full-feed", feed}).status, 2) << "10% is the default";
  EXPECT_EQ(count(), 20u);
  EXPECT_EQ(reports()[1]["failure"],
            "the feed lacks 3 of 20 descriptions, more than --max-delete 10%: nothing is changed");
}

// The clock may be wrong.
TEST_F(Publish, WhatHasExpiredCountsAsDeletedByAFullFeed) {
  make(20);
  const std::string feed = described(2, 18) + described(19, 20, "T", past);
  const Finished finished = publish({"--full-feed", "-"}, feed);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors,
            "rdmctl: the feed lacks 1 of 20 descriptions and 2 have expired, more than --max-delete 10%: nothing is "
            "changed\n");
  EXPECT_EQ(count(), 20u);
  EXPECT_EQ(publish({"--full-feed", "--max-delete", "3", "-"}, feed).out,
            "0 new, 2 changed, 17 unchanged, 1 deleted, 2 expired, 0 rejected\n");
}

TEST_F(Publish, LimitsThatAreNoneAreRefused) {
  for (const char *limit : {"", "%", "-1", "101%", "x", "5 %", "nan", "inf", "1e3"})
    EXPECT_EQ(publish({"--full-feed", "--max-delete", limit, "-"}, described(1, 1)).status, 2) << limit;
  EXPECT_FALSE(support::file_exists(catalog_.path()));
}

// A description whose new version is malformed is still there at its source.
TEST_F(Publish, ARejectedObjectOfAFullFeedKeepsItsDescription) {
  make(3);
  const Finished finished =
      publish({"--full-feed", "--max-delete", "1", "-"}, described(1, 1) + malformed + described(1, 1));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "0 new, 0 changed, 1 unchanged, 1 deleted, 0 expired, 1 rejected\n");
  EXPECT_EQ(count(), 2u);
}

TEST_F(Publish, AFullFeedWithARejectedObjectOfUnknownUrlDeletesNothing) {
  make(3);
  const Finished finished = publish({"--full-feed", "-"}, unnamed + described(1, 1));
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors, HasSubstr("rdmctl: nothing is deleted: the URL of a rejected object is not known\n"));
  EXPECT_EQ(count(), 3u);
}

TEST_F(Publish, AFullFeedWithTextThatBelongsToNoObjectDeletesNothing) {
  make(3);
  const std::string one = described(1, 1), headless = described(2, 2).substr(1);
  for (const std::string &feed : {one + headless, headless + one, one + "ERROR 500\n"}) {
    const Finished finished = publish({"--full-feed", "-"}, feed);
    EXPECT_EQ(finished.status, 1) << feed;
    EXPECT_THAT(finished.errors, HasSubstr(": text that belongs to no object\n"));
    EXPECT_THAT(finished.out, HasSubstr(" 0 deleted, "));
  }
  EXPECT_EQ(count(), 3u);
}

TEST_F(Publish, AFullFeedThatEndsWithinAnObjectChangesNothing) {
  make(3);
  std::string feed = described(1, 3, "new");
  feed.resize(feed.size() - 10);
  const Finished finished = publish({"--full-feed", "-"}, feed);
  EXPECT_EQ(finished.status, 2);
  EXPECT_THAT(finished.errors, testing::EndsWith("\nrdmctl: the input ends within an object: nothing is changed\n"));
  EXPECT_EQ(count(), 3u);
}

TEST_F(Publish, KeepsAReportOfEachImport) {
  const std::string feed = file("feed", described(1, 2));
  ASSERT_EQ(publish({"--from", "me\x1b@localhost", feed}).status, 0);
  nlohmann::json report = reports()[0];
  EXPECT_THAT(report["when"].get<std::string>(), testing::MatchesRegex("20..-..-..T..:..:..Z"));
  EXPECT_NE(report["who"], "");
  report.erase("when");
  report.erase("who");
  EXPECT_EQ(report, nlohmann::json::parse(
                        "{\"source\":\"me\\u001b@localhost\",\"full-feed\":false,\"inputs\":[{\"name\":\"" + feed +
                        "\",\"bytes\":132,\"sha256\":"
                        "\"430da82ac5a5e9f47d9277bd877168fecb19bcbe61209a12c0af52ff67ed3e3d\"}],\"accepted\":2,\"new\":"
                        "2,\"changed\":0,\"unchanged\":0,\"deleted\":0,"
                        "\"expired\":0,\"rejected\":0,\"rejects\":[]}"));
}

TEST_F(Publish, ShowsItsReportAsJson) {
  const Finished finished = publish({"--json", "--from", "me", "-"}, malformed + described(1, 1));
  EXPECT_EQ(finished.status, 1);
  nlohmann::json shown = nlohmann::json::parse(finished.out);
  EXPECT_EQ(shown["dry-run"], false);
  shown.erase("dry-run");
  EXPECT_EQ(shown, reports()[0]);
  const nlohmann::json failed = nlohmann::json::parse(publish({"--json", "-"}, "").out);
  EXPECT_EQ(failed["failure"], "no valid description in the input: nothing is changed");
}

TEST_F(Publish, ImportsShowsTheReports) {
  ASSERT_EQ(publish({"--from", "me", "-"}, described(1, 1)).status, 0);
  ASSERT_EQ(publish({"-"}, malformed + described(1, 1)).status, 1);
  ASSERT_EQ(publish({"-"}, "").status, 2);
  const std::string head = "20..-..-..T..:..:..Z by [^ ]+ from ";
  const std::string input = "  -: [0-9]+ bytes, SHA-256 [0-9a-f]+\n";
  const std::string first = head + "me: 1 new, 0 changed, 0 unchanged, 0 deleted, 0 expired, 0 rejected\n" + input;
  const std::string second = head + "-: 0 new, 0 changed, 1 unchanged, 0 deleted, 0 expired, 1 rejected\n" + input +
                             "  rejected: the input: line 1: http://localhost/2: title[^\n]*\n";
  const std::string third = head + "-: failed: no valid description in the input: nothing is changed\n" + input;
  const Finished all = rdmctl({"imports", catalog_.path()});
  EXPECT_EQ(all.status, 0);
  EXPECT_THAT(all.out, testing::MatchesRegex(first + second + third));
  EXPECT_THAT(rdmctl({"imports", "--last", "2", catalog_.path()}).out, testing::MatchesRegex(second + third));
}

TEST_F(Publish, ImportsPassesOverDamagedReports) {
  make(1);
  write_file(catalog_.path(".imports"), "{\"when\":1,\"inputs\":3,\"rejects\":[4]}\n\x1b{\n[]\n{\"when\":\"cut");
  const Finished finished = rdmctl({"imports", catalog_.path()});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "1 by - from -: - new, - changed, - unchanged, - deleted, - expired, - rejected\n");
  const std::string start = "rdmctl: " + catalog_.path(".imports") + ": line ";
  EXPECT_EQ(finished.errors,
            start + "2 is not a report\n" + start + "3 is not a report\n" + start + "4 is not a report\n");
  ASSERT_EQ(publish({"-"}, described(2, 2)).status, 0);
  EXPECT_EQ(reports().size(), 2u) << "a new report begins on a line of its own";
}

TEST_F(Publish, TheReportsBelongToWhoOwnsTheDatabase) {
  make(1);
  fs::remove(catalog_.path(".imports"));
  ASSERT_EQ(::chmod(catalog_.path().c_str(), 0640), 0);
  make(2);
  EXPECT_EQ(catalog::status_of(catalog_.path(".imports"))->st_mode & 07777, 0640u);
}

TEST_F(Publish, AReportThatCannotBeKeptIsAMessage) {
  const std::string imports = catalog_.path(".imports"), reason = "not a regular file: " + imports + "\n";
  const auto expect_message = [&] {
    const Finished finished = publish({"-"}, described(1, 1));
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, "rdmctl: the report is not kept: " + reason);
    EXPECT_EQ(verdict(), "sound: 1 description, 1 index entry\n");
    const Finished shown = rdmctl({"imports", catalog_.path()});
    EXPECT_EQ(shown.status, 2);
    EXPECT_EQ(shown.errors, "rdmctl: " + reason);
  };
  fs::create_directory(imports);
  expect_message();
  fs::remove(imports);
  ASSERT_EQ(::mkfifo(imports.c_str(), 0600), 0);
  expect_message();  // and waits for no writer of the pipe
}

TEST_F(Publish, AFullStandardOutputDoesNotHideThatTheCatalogHasChanged) {
  const std::string command = program + " publish " + catalog_.path() + " " + file("feed", described(1, 1));
  const Finished finished = support::run({"/bin/sh", "-c", command + " > /dev/full"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors,
            "rdmctl: the catalog is changed, but standard output cannot be written: No space left on device\n");
  EXPECT_EQ(count(), 1u);
}

TEST_F(Publish, WaitsForAnotherWriterNoLongerThanTold) {
  make(1);
  const HostFileGuard lock = catalog::open_file(catalog_.path(".lock"), O_RDWR);
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  const Finished finished = publish({"--wait", "0", "-"}, described(2, 2));
  EXPECT_EQ(finished.status, 2);
  EXPECT_THAT(finished.errors, testing::StartsWith("rdmctl: cannot lock " + catalog_.path(".lock") + ": process "));
  EXPECT_EQ(count(), 1u);
}

TEST_F(Publish, ReplacesTheTargetOfALink) {
  make(1);
  fs::create_symlink(catalog_.path(), files_.path("link"));
  ASSERT_EQ(rdmctl({"publish", files_.path("link"), "-"}, described(2, 2)).status, 0);
  EXPECT_TRUE(fs::is_symlink(files_.path("link")));
  EXPECT_EQ(verdict(), "sound: 2 descriptions, 2 index entries\n");
  fs::create_symlink("/nowhere/at/all", files_.path("dangling"));
  EXPECT_EQ(rdmctl({"publish", files_.path("dangling"), "-"}, described(2, 2)).errors,
            "rdmctl: cannot follow the link " + files_.path("dangling") + ": No such file or directory\n");
}

class PublishToService : public testing::Test {
 protected:
  ServiceFiles service_;
};

TEST_F(PublishToService, FindsTheDatabaseOfACatalogService) {
  const std::string feed = service_.write("feed", described(1, 1)), more = service_.write("more", described(2, 2));
  EXPECT_EQ(rdmctl({"--config", service_.config(), "publish", csid, feed}).status, 0);
  EXPECT_EQ(rdmctl({"publish", csid, more, "--config", service_.config()}).status, 0);
  EXPECT_EQ(rdmctl({"publish", "--config", service_.config(), service_.database(), more}).status, 0);
  EXPECT_EQ(rdmctl({"--config", service_.config(), "import", "--csid", csid, more}).status, 0);
  const Finished shown = rdmctl({"imports", "--json", service_.database()});
  EXPECT_EQ(nlohmann::json::parse(shown.out).size(), 3u);
}

TEST_F(PublishToService, ReportsAServiceThatItDoesNotFind) {
  const std::string config = service_.config();
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{"imports", csid}, csid + " is a CSID: name the configuration with --config"},
      {{"imports", ""}, "the CSID or database is empty"},
      {{"imports", "/nowhere/x"}, "no such database: /nowhere/x"},
      {{"--config", config, "imports", "x-catalog://h:1/x"}, "no catalog service x-catalog://h:1/x in " + config},
      {{"--config", config, "imports", "boks"}, "no catalog service boks in " + config + ", and no such file"},
      {{"--config", config, "imports", "bare"}, "catalog service bare has no catalog-database in " + config},
      {{"--config", "/nowhere/c", "imports", csid}, "cannot read /nowhere/c: No such file or directory"},
  };
  for (const auto &[words, text] : cases) {
    const Finished finished = rdmctl(words);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.errors, "rdmctl: " + text + "\n");
  }
}

class PublishSpool : public Publish {
 protected:
  Finished spool(std::vector<std::string> words = {}) const {
    words.insert(words.end(), {"--spool", files_.path()});
    return publish(words);
  }
  /// names returns the files in the spool and its directories.
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto &entry : fs::recursive_directory_iterator(files_.path()))
      if (!entry.is_directory()) names.push_back(fs::relative(entry.path(), files_.path()).string());
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(PublishSpool, TakesFinishedFilesInOrder) {
  file("2", described(1, 2, "second"));
  file("1", described(1, 3, "first"));
  for (const char *unfinished : {".3", "3.tmp", "3.part"}) file(unfinished, described(9, 9));
  fs::create_directory(files_.path("directory"));
  fs::create_symlink("2", files_.path("link"));
  const Finished finished = spool();
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out,
            "3 new, 0 changed, 0 unchanged, 0 deleted, 0 expired, 0 rejected\n"
            "0 new, 2 changed, 0 unchanged, 0 deleted, 0 expired, 0 rejected\n");
  EXPECT_THAT(names(), ElementsAre(".3", "3.part", "3.tmp", "done/1", "done/2", "link"));
  EXPECT_EQ(spool().out, "");
  EXPECT_EQ(reports().size(), 2u);
}

// A file that stays would be published again by each run, over newer states.
TEST_F(PublishSpool, TakesNothingIfFilesCannotBeMoved) {
  file("1", described(1, 2));
  file("done", "");
  const Finished finished = spool();
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "rdmctl: cannot write to " + files_.path("done") + ": Not a directory\n");
  EXPECT_FALSE(support::file_exists(catalog_.path()));
}

TEST_F(PublishSpool, MovesFilesThatCannotBePublishedAside) {
  file("1", "no description");
  file("2", described(1, 2) + malformed);
  const Finished finished = spool();
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors,
              testing::StartsWith("rdmctl: " + files_.path("1") + ": line 1: text that belongs to no object\nrdmctl: " +
                                  files_.path("1") + ": no valid description in the input: nothing is changed\n"));
  EXPECT_THAT(names(), ElementsAre("done/2", "rejected/1"));
}

TEST_F(PublishSpool, NeverOverwritesAFile) {
  for (int i = 1; i <= 3; ++i) {
    file("feed", described(i, i));
    ASSERT_EQ(spool().status, 0);
  }
  EXPECT_THAT(names(), ElementsAre("done/feed", "done/feed~1", "done/feed~2"));
  EXPECT_EQ(read_file(files_.path("done/feed~2")), described(3, 3));
}

TEST_F(PublishSpool, CutsALongNameToNumberIt) {
  const std::string longest(255, 'f');
  for (int i = 1; i <= 2; ++i) {
    file(longest, described(i, i));
    ASSERT_EQ(spool().status, 0);
  }
  EXPECT_THAT(names(), ElementsAre("done/" + longest, "done/" + longest.substr(2) + "~1"));
}

// The lock holds up the publication, so that the file can be replaced while it is read.
TEST_F(PublishSpool, LeavesAFileThatHasReplacedTheOneItPublished) {
  make(1);
  const std::string first = file("1", described(1, 1, "first"));
  HostFileGuard lock = catalog::open_file(catalog_.path(".lock"), O_RDWR);
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  const std::string errors = file(".errors", "");
  const pid_t child =
      support::start({program, "publish", catalog_.path(), "--spool", files_.path()}, "/dev/null", "/dev/null", errors);
  ASSERT_TRUE(support::eventually([&] { return !read_file(errors).empty(); }));
  fs::rename(file(".2", described(2, 2, "second")), first);
  lock = HostFileGuard();
  EXPECT_EQ(support::wait_for(child), 0);
  EXPECT_EQ(read_file(first), described(2, 2, "second"));
  EXPECT_EQ(spool().status, 0);
  EXPECT_EQ(count(), 2u);
}

TEST_F(PublishSpool, RefusesTheDirectoryOfTheCatalog) {
  make(1);
  const std::string directory = fs::path(catalog_.path()).parent_path();
  const Finished finished = publish({"--spool", directory});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "rdmctl: the catalog lies in the directory of --spool: " + directory + "\n");
  EXPECT_EQ(count(), 1u);
}

TEST_F(PublishSpool, RefusesASubdirectoryOnAnotherFileSystem) {
  const auto device = [](const std::string &path) { return catalog::status_of(path)->st_dev; };
  const std::string other = device("/dev/shm") != device(files_.path()) ? "/dev/shm" : "/var/tmp";
  fs::create_directory_symlink(other, files_.path("done"));
  file("1", described(1, 1));
  const Finished finished = spool();
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors,
            "rdmctl: " + files_.path("done") + " is on another file system than " + files_.path() + "\n");
  EXPECT_FALSE(support::file_exists(catalog_.path()));
}

TEST_F(PublishSpool, ADryRunMovesNothing) {
  file("1", described(1, 1));
  file("2", "none");
  EXPECT_EQ(spool({"--dry-run"}).status, 1);
  EXPECT_THAT(names(), ElementsAre("1", "2"));
}

// Another file would go ahead, or a sound one would be rejected.
TEST_F(PublishSpool, StopsIfTheCatalogCannotBeChanged) {
  make(1);
  file("1", described(1, 1, "new"));
  const HostFileGuard lock = catalog::open_file(catalog_.path(".lock"), O_RDWR);
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  EXPECT_EQ(spool({"--wait", "0"}).status, 2);
  EXPECT_THAT(names(), ElementsAre("1"));
}

TEST_F(PublishSpool, OneProcessAtATimeTakesFiles) {
  const HostFileGuard lock = catalog::open_file(files_.path(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  const Finished finished = spool();
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "rdmctl: another process takes files from " + files_.path() + "\n");
  const Finished missing = publish({"--spool", "/nowhere"});
  EXPECT_EQ(missing.errors, "rdmctl: cannot open /nowhere: No such file or directory\n");
}

class KilledPublish : public Publish {
 protected:
  void SetUp() override {
    ASSERT_EQ(rdmctl({"publish", original_.path(), "-"}, described(1, 200)).status, 0);
    write_file(input_,
               described(3, 150, "new") + described(151, 200) + described(300, 400) + described(401, 410, "T", past));
    before_ = state_of(original_);
    reset();
    changes_ = count_changes(command_, input_, output_);
    after_ = state_of(catalog_);
    ASSERT_EQ(after_.records.size(), 299u);
  }

  void reset() const {
    for (const char *suffix : {"", ".url", ".idx"})
      write_file(catalog_.path(suffix), read_file(original_.path(suffix)));
  }

  /// right_verdict returns the verdict on a catalog whose index is that of its database.
  std::string right_verdict() const {
    const std::string number = std::to_string(count());
    return "sound: " + number + " descriptions, " + number + " index entries\n";
  }

  CatalogFiles original_;
  std::string input_ = original_.path(".input"), output_ = original_.path(".output");
  std::vector<std::string> command_{program, "publish", catalog_.path(), "--full-feed", "-"};
  CatalogState before_, after_;
  long changes_ = 0;
};

TEST_F(KilledPublish, LeavesTheOldStateOrTheNewAndAnIndexThatTheNextCommandMends) {
  ASSERT_GT(changes_, 10);
  int mended = 0;
  for (long trial = 0; trial < crash_trials(); ++trial) {
    const long change = change_of_trial(trial, changes_);
    SCOPED_TRACE("before change " + std::to_string(change) + " of " + std::to_string(changes_));
    reset();
    ASSERT_EQ(kill_before_change(change, command_, input_, output_), 128 + SIGKILL);
    const CatalogState now = state_of(catalog_);
    EXPECT_TRUE(now.records == before_.records || now.records == after_.records);
    const Finished verified = support::run(catalog_.command({"verify"}));
    EXPECT_EQ(verified.status, 0) << verified.errors;
    const bool is_other = verified.errors.find("the index is not the one that was published") != std::string::npos;
    EXPECT_EQ(is_other, verified.out.find("index older than the database") != std::string::npos);
    mended += is_other ? 1 : 0;
    const Finished next = support::run(catalog_.command({"expire"}));
    EXPECT_EQ(next.status, 0) << next.errors;
    EXPECT_EQ(verdict(), right_verdict());
  }
  EXPECT_GT(mended, 0) << "none was killed between the renames";
}

}  // namespace
