// SPDX-License-Identifier: MIT
/// rdmctl backup, restore and diff.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/os/file.h"
#include "tools/minidba/catalog_state.h"
#include "tools/minidba/killing.h"
#include "tools/rdmctl/descriptions.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;
using support::Finished;
using support::read_file;
using support::write_file;
using testing::HasSubstr;

class Backup : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(publish(described(1, 3)).status, 0); }
  Finished publish(const std::string &stream) const { return rdmctl({"publish", catalog_.path(), "-"}, stream); }
  Finished backup() const { return rdmctl({"backup", catalog_.path(), file_}); }
  Finished restore(const std::string &database, std::vector<std::string> words = {}) const {
    words.insert(words.begin(), {"restore", database, file_});
    return rdmctl(words);
  }
  static void expect_failure(const Finished &finished, const std::string &text) {
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "rdmctl: " + text + "\n");
  }

  CatalogFiles catalog_, other_;
  support::TemporaryDirectory files_;
  std::string file_ = files_.path("backup");
};

TEST_F(Backup, IsRestoredWithItsNumbersTimesAndANewIndex) {
  const auto records = catalog_.records();
  const std::string index = read_file(catalog_.path(".idx"));
  const std::string bytes = std::to_string(catalog::status_of(catalog_.path())->st_size);
  const Finished finished = backup();
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "3 descriptions, " + bytes + " bytes\n");
  ASSERT_EQ(publish(described(2, 9, "new")).status, 0);
  EXPECT_EQ(restore(catalog_.path()).out, "3 descriptions, " + bytes + " bytes\n");
  EXPECT_EQ(catalog_.records(), records);
  EXPECT_EQ(read_file(catalog_.path(".idx")), index);
  EXPECT_EQ(verdict_on(catalog_), "sound: 3 descriptions, 3 index entries\n");
}

TEST_F(Backup, IsRestoredWhereThereIsNoCatalog) {
  ASSERT_EQ(backup().status, 0);
  EXPECT_EQ(restore(other_.path()).status, 0);
  EXPECT_EQ(other_.records(), catalog_.records());
  EXPECT_EQ(verdict_on(other_), "sound: 3 descriptions, 3 index entries\n");
}

// Gatherers know the replaced descriptions by their numbers and times.
TEST_F(Backup, NumbersAndTimesOfTheReplacedCatalogAreNotGivenAgain) {
  ASSERT_EQ(backup().status, 0);
  ASSERT_EQ(publish(described(4, 9)).status, 0);
  const uint32_t newest = catalog_.words()[2 + 5 * 8];
  ASSERT_EQ(restore(catalog_.path()).status, 0);
  ASSERT_EQ(publish(described(20, 20)).status, 0);
  EXPECT_TRUE(catalog_.records().contains("0000000a"));
  EXPECT_GT(catalog_.words()[2 + 5 * 3], newest);
}

TEST_F(Backup, HasWhatAnotherProgramHasWritten) {
  const std::string record = "@FILE { http://localhost/other\ntitle{1}:\tT\n}\n";
  catalog_.put("00000007", record);
  const Finished finished = backup();
  EXPECT_EQ(finished.status, 0) << finished.errors;
  ASSERT_EQ(restore(other_.path()).status, 0);
  EXPECT_EQ(other_.records(), catalog_.records());
}

TEST_F(Backup, IsNotMadeOfDamagedRecordsThoughTheIndexIsMissing) {
  std::string damaged = read_file(catalog_.path());
  damaged[damaged.find("http://localhost/2") + 1] ^= 1;
  write_file(catalog_.path(), damaged);
  fs::remove(catalog_.path(".idx"));
  expect_failure(backup(), catalog_.path(".idx") +
                               " is missing, and the records are not those that were published: another program has "
                               "changed them, or they are damaged; \"minidba index\" accepts them");
  EXPECT_FALSE(support::file_exists(file_));
}

TEST_F(Backup, IsMadeOfSoundRecordsThoughTheIndexIsMissing) {
  fs::remove(catalog_.path(".idx"));
  EXPECT_EQ(backup().status, 0);
}

TEST_F(Backup, EachFlippedBitIsFound) {
  ASSERT_EQ(backup().status, 0);
  const std::string good = read_file(file_);
  const size_t at = good.find("http://localhost/2");
  ASSERT_NE(at, std::string::npos);
  for (const size_t offset : {at + 1, at + 17, good.find("title", at) + 12}) {
    std::string bad = good;
    bad[offset] = static_cast<char>(bad[offset] ^ 1);
    write_file(file_, bad);
    for (const std::vector<std::string> &words : {std::vector<std::string>{}, {"--dry-run"}}) {
      const Finished finished = restore(other_.path(), words);
      EXPECT_EQ(finished.status, 2);
      EXPECT_THAT(finished.errors, HasSubstr("damaged")) << finished.errors;
    }
    EXPECT_FALSE(support::file_exists(other_.path()));
  }
}

TEST_F(Backup, ReplacesNeitherACatalogNorAnotherFile) {
  const std::string text = other_.path(".txt");
  write_file(text, "text");
  expect_failure(rdmctl({"backup", catalog_.path(), text}), text + " exists and is no backup: name another file");
  ASSERT_EQ(backup().status, 0);
  EXPECT_EQ(backup().status, 0) << "a backup is replaced";
  ASSERT_EQ(restore(other_.path()).status, 0);
  expect_failure(rdmctl({"backup", catalog_.path(), other_.path()}),
                 other_.path() + " is the database of a catalog: name another file");
}

TEST_F(Backup, IsWrittenToTheTargetOfALink) {
  const std::string link = files_.path("link");
  fs::create_symlink(file_, link);
  expect_failure(rdmctl({"backup", catalog_.path(), link}),
                 "cannot follow the link " + link + ": No such file or directory");
  ASSERT_EQ(backup().status, 0);
  const std::string before = read_file(file_);
  ASSERT_EQ(publish(described(4, 9)).status, 0);
  EXPECT_EQ(rdmctl({"backup", catalog_.path(), link}).status, 0);
  EXPECT_TRUE(fs::is_symlink(link));
  EXPECT_NE(read_file(file_), before);
}

TEST_F(Backup, OfAFileThatIsNoCatalogLeavesNoLock) {
  write_file(other_.path(), "text");
  EXPECT_EQ(rdmctl({"backup", other_.path(), file_}).status, 2);
  EXPECT_FALSE(support::file_exists(other_.path(".lock")));
}

TEST_F(Backup, IsRestoredToACatalogOnly) {
  ASSERT_EQ(backup().status, 0);
  const std::string good = read_file(file_);
  expect_failure(
      rdmctl({"restore", file_, catalog_.path()}),
      file_ + " exists, and no index or URL map is beside it: it is not the database of a catalog; move it away");
  EXPECT_EQ(read_file(file_), good) << "the arguments were the wrong way round";
}

TEST_F(Backup, ALockDoesNotMakeACatalogOfAFile) {
  const std::string text = other_.path(".txt");
  write_file(text, "text");
  write_file(text + ".lock", "");
  ASSERT_EQ(backup().status, 0);
  EXPECT_EQ(restore(text).status, 2);
  EXPECT_EQ(read_file(text), "text");
}

TEST_F(Backup, ABackupNeedsAName) {
  expect_failure(rdmctl({"backup", catalog_.path(), "-"}), "a backup is a file: name one");
}

TEST_F(Backup, OnlyABackupIsRestored) {
  expect_failure(restore(other_.path()), "no such database: " + file_);
  write_file(file_, "not a database");
  EXPECT_EQ(restore(other_.path()).status, 2);
  ASSERT_EQ(other_.update(described(1, 2)).status, 0);
  fs::copy_file(other_.path(), file_, fs::copy_options::overwrite_existing);
  expect_failure(restore(catalog_.path()), "not a backup: " + file_ + ": it has no checksum");
  EXPECT_EQ(catalog_.records().size(), 3u);
}

TEST_F(Backup, ADryRunOnlyChecks) {
  ASSERT_EQ(backup().status, 0);
  EXPECT_EQ(restore(other_.path(), {"--dry-run", "--json"}).status, 0);
  EXPECT_THAT(other_.files(), testing::IsEmpty());
}

TEST_F(Backup, IsNotWrittenOverTheCatalog) {
  for (const char *suffix : {"", ".idx", ".url", ".lock", ".imports"}) {
    const std::string before = read_file(catalog_.path(suffix));
    expect_failure(rdmctl({"backup", catalog_.path(), catalog_.path(suffix)}),
                   catalog_.path(suffix) + " belongs to the catalog: name another file");
    EXPECT_EQ(read_file(catalog_.path(suffix)), before);
  }
  expect_failure(rdmctl({"backup", catalog_.path(), files_.path()}), "not a regular file: " + files_.path());
  expect_failure(rdmctl({"backup", "/nowhere/x", file_}), "no such database: /nowhere/x");
  EXPECT_EQ(rdmctl({"backup", catalog_.path(), "/nowhere/x"}).status, 2);
}

TEST_F(Backup, ADamagedRecordIsRefused) {
  std::string damaged = catalog_.records()["00000002"];
  damaged[damaged.find("T\n")] = 'U';
  catalog_.put("00000002", damaged);
  const Finished finished = backup();
  EXPECT_EQ(finished.status, 2);
  EXPECT_THAT(finished.errors, testing::MatchesRegex("rdmctl: damaged record 2 \\(http://localhost/2\\) in .*: its "
                                                     "checksum .* \\(--skip-damaged of minidba leaves it out\\)\n"));
  EXPECT_FALSE(support::file_exists(file_));
}

TEST_F(Backup, TellsWhatItWroteAsJson) {
  const Finished finished = rdmctl({"backup", "--json", catalog_.path(), file_});
  EXPECT_EQ(finished.out,
            "{\"file\":\"" + file_ + "\",\"descriptions\":3,\"bytes\":" + std::to_string(fs::file_size(file_)) + "}\n");
}

TEST_F(Backup, BothWaitForAWriter) {
  ASSERT_EQ(backup().status, 0);
  const HostFileGuard lock = catalog::open_file(catalog_.path(".lock"), O_RDWR);
  ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
  for (const char *verb : {"backup", "restore"}) {
    const Finished finished = rdmctl({verb, "--wait", "0", catalog_.path(), file_});
    EXPECT_EQ(finished.status, 2);
    EXPECT_THAT(finished.errors, HasSubstr("cannot lock " + catalog_.path(".lock")));
  }
}

TEST_F(Backup, AKilledRestoreLeavesTheOldStateOrTheNew) {
  ASSERT_EQ(publish(described(1, 100)).status, 0);
  ASSERT_EQ(backup().status, 0);
  ASSERT_EQ(publish(described(50, 200, "new")).status, 0);
  std::map<std::string, std::string> files;
  for (const char *suffix : {"", ".url", ".idx"}) files[suffix] = read_file(catalog_.path(suffix));
  const auto reset = [&] {
    for (const auto &[suffix, bytes] : files) write_file(catalog_.path(suffix), bytes);
  };
  const CatalogState before = state_of(catalog_);
  const std::vector<std::string> command{program, "restore", catalog_.path(), file_};
  const std::string output = files_.path("output");
  const long changes = count_changes(command, "/dev/null", output);
  const CatalogState after = state_of(catalog_);
  ASSERT_EQ(after.records.size(), 100u);
  for (long trial = 0; trial < crash_trials(); ++trial) {
    const long change = changes - trial % changes;
    SCOPED_TRACE("before change " + std::to_string(change) + " of " + std::to_string(changes));
    reset();
    ASSERT_EQ(kill_before_change(change, command, "/dev/null", output), 128 + SIGKILL);
    const CatalogState now = state_of(catalog_);
    EXPECT_TRUE(now.records == before.records || now.records == after.records);
    ASSERT_EQ(support::run(catalog_.command({"expire"})).status, 0);
    const std::string number = std::to_string(now.records.size());
    EXPECT_EQ(verdict_on(catalog_), "sound: " + number + " descriptions, " + number + " index entries\n");
  }
}

class Diff : public Backup {
 protected:
  void SetUp() override {
    Backup::SetUp();
    ASSERT_EQ(rdmctl({"publish", other_.path(), "-"}, described(2, 4)).status, 0);
  }
  Finished diff(std::vector<std::string> words = {}) const {
    words.insert(words.begin(), {"diff", catalog_.path(), other_.path()});
    return rdmctl(words);
  }
};

TEST_F(Diff, NamesWhatDiffers) {
  ASSERT_EQ(publish(rd(url(3), {{"title", "other"}, {"author", "A"}, {"rd-expires", "never"}})).status, 0);
  const Finished finished = diff();
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors, "");
  EXPECT_EQ(finished.out, "- http://localhost/1\n~ http://localhost/3: author, title\n+ http://localhost/4\n");
  EXPECT_EQ(diff({"--json"}).out,
            "[{\"url\":\"http://localhost/1\",\"in\":\"first\",\"attributes\":[]},\n"
            "{\"url\":\"http://localhost/3\",\"in\":\"both\",\"attributes\":[\"author\",\"title\"]},\n"
            "{\"url\":\"http://localhost/4\",\"in\":\"second\",\"attributes\":[]}]\n");
}

TEST_F(Diff, EqualCatalogsDoNotDifferByNumbersAndTimes) {
  ASSERT_EQ(
      rdmctl({"publish", "--full-feed", "--max-delete", "1", other_.path(), "-"}, described(3, 3) + described(1, 2))
          .status,
      0);
  const Finished finished = diff();
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(diff({"--json"}).out, "[]\n");
}

TEST_F(Diff, ComparesTimesOfChangeIfTold) {
  ASSERT_EQ(backup().status, 0);
  ASSERT_EQ(publish(described(2, 2, "new")).status, 0);
  ASSERT_EQ(publish(described(2, 2)).status, 0);
  EXPECT_EQ(rdmctl({"diff", catalog_.path(), file_}).status, 0);
  const Finished finished = rdmctl({"diff", "--times", catalog_.path(), file_});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "~ http://localhost/2: rd-last-changed\n");
}

TEST_F(Diff, ComparesTheTemplateToo) {
  ASSERT_EQ(rdmctl({"publish", catalog_.path(), "-"},
                   "@OTHER { http://localhost/2\nrd-expires{5}:\tnever\n"
                   "title{1}:\tT\n}\n")
                .status,
            0);
  EXPECT_THAT(diff().out, HasSubstr("~ http://localhost/2: @\n"));
}

TEST_F(Diff, FailsWithoutACatalog) {
  expect_failure(rdmctl({"diff", catalog_.path(), "/nowhere/x"}), "no such database: /nowhere/x");
}

}  // namespace
