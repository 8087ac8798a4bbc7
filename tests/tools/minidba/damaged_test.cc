// SPDX-License-Identifier: MIT
// Records with changed bytes, in a file with unchanged size and times: every verb notices them.
#include <fcntl.h>
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog.h"
#include "catalog/catalog_files.h"
#include "hashdb/format.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

constexpr char hint[] = " (--skip-damaged of minidba leaves it out)\n";

/// Regression: after a bit of a value had flipped, update copied the record, index wrote its new checksum, and verify
/// called the catalog sound.
class Damaged : public testing::Test {
 protected:
  Damaged() {
    std::string stream =
        "@RDMHEADER { -\nrdm-version{3}:\t1.0\nminidba-next-number{2}:\t21\nminidba-descriptions{2}:\t20\n}\n";
    for (int i = 1; i <= 20; ++i)
      stream += rd(url(i), {{"rd-last-changed", "Sun, 09 Sep 2001 01:46:" + std::to_string(39 + i) + " GMT"},
                            {"title", "No. " + std::to_string(i) + "."},
                            {"rd-expires", "Fri, 31 Dec 2099 00:00:00 GMT"},
                            {"minidba-number", std::to_string(i)}});
    EXPECT_EQ(catalog_.run({"import"}, stream).status, 0);
    EXPECT_EQ(catalog_.index().status, 0);
  }
  static std::string url(int number) { return "http://localhost/" + std::to_string(number); }
  /// change replaces a text in the database and restores the times of the file.
  void change(const std::string &from, const std::string &to) {
    struct stat status;
    ASSERT_EQ(::stat(catalog_.path().c_str(), &status), 0);
    std::string bytes = support::read_file(catalog_.path());
    const size_t at = bytes.find(from);
    ASSERT_NE(at, std::string::npos);
    support::write_file(catalog_.path(), bytes.replace(at, from.size(), to));
    const struct timespec times[] = {status.st_atim, status.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, catalog_.path().c_str(), times, 0), 0);
  }
  std::string fault(int number, const std::string &what = "its checksum is not that of the index") const {
    return "damaged record " + std::to_string(number) + " (" + url(number) + ") in " + catalog_.path() + ": " + what;
  }
  std::string refusal(const std::string &count) const {
    return "minidba: index not written: " + catalog_.path(".idx") + ": " + count +
           " damaged, or the index is of another catalog: restore a backup, or index the records as they are with "
           "--accept-damage\n";
  }
  CatalogFiles catalog_;
};

TEST_F(Damaged, AreNotIndexedUnlessTheyAreAccepted) {
  const std::string index = support::read_file(catalog_.path(".idx"));
  change("No. 3.", "No. X.");
  change("No. 5.", "No. Y.");
  for (const std::vector<std::string> &words : {std::vector<std::string>{"index", "--dry-run"}, {"index"}}) {
    const Finished finished = catalog_.run(words);
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.errors, HasSubstr("minidba: " + fault(3) + "\n"));
    EXPECT_THAT(finished.errors, HasSubstr("minidba: " + fault(5) + "\n"));
    EXPECT_THAT(finished.errors, testing::EndsWith(refusal("2 records are")));
  }
  EXPECT_TRUE(support::read_file(catalog_.path(".idx")) == index);
  EXPECT_EQ(catalog_.run({"verify"}).out, "damaged: 2 faults\n");
  const Finished accepted = catalog_.run({"index", "--accept-damage"});
  EXPECT_EQ(accepted.status, 0);
  EXPECT_EQ(accepted.out, "20\n");
  EXPECT_EQ(catalog_.run({"verify"}).out, "sound: 20 descriptions, 20 index entries\n");
}

/// Regression: an index that was written under a new name had the checksums of damaged records.
TEST_F(Damaged, RecordsAreRefusedByAnIndexOfAnotherName) {
  change("No. 3.", "No. X.");
  const Finished finished = support::run(catalog_.command({"-i", catalog_.path(".idx.next"), "index", "--quiet"}));
  EXPECT_EQ(finished.status, 2);
  EXPECT_THAT(finished.errors, testing::StartsWith("minidba: " + fault(3) + "\n"));
  EXPECT_FALSE(support::file_exists(catalog_.path(".idx.next")));
}

TEST_F(Damaged, QuietStillReportsThatRecordsAreNotCompared) {
  support::write_file(catalog_.path(".idx"), "no index");
  EXPECT_EQ(catalog_.run({"rebuild", "--quiet"}).errors,
            "minidba: not an index: " + catalog_.path(".idx") + ": records are not compared with it\n");
}

TEST_F(Damaged, AreCopiedByNoWriter) {
  const auto before = catalog_.records();
  change("No. 3.", "No. X.");
  const std::string database = support::read_file(catalog_.path());
  const std::string input = rd(url(30), {{"title", "New"}});
  for (const std::vector<std::string> &words : {std::vector<std::string>{"update"},
                                                {"update", "--dry-run"},
                                                {"delete", url(9)},
                                                {"expire"},
                                                {"rebuild"},
                                                {"rebuild", "--dry-run"},
                                                {"export"},
                                                {"export", catalog_.path(".soif")}}) {
    const Finished finished = catalog_.run(words, input);
    EXPECT_EQ(finished.status, 2) << words[0];
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "minidba: " + fault(3) + hint);
  }
  EXPECT_TRUE(support::read_file(catalog_.path()) == database);
  EXPECT_FALSE(support::file_exists(catalog_.path(".soif")));
  const Finished unnamed = support::run(catalog_.command({"update"}), input);
  EXPECT_EQ(unnamed.errors, "minidba: " + fault(3) + hint) << "the index beside the database is used";
}

/// If few records change, the file is copied and edited.
TEST_F(Damaged, RecordsAreFoundInAnEditedCopy) {
  std::string stream;
  for (int i = 100; i < 400; ++i) stream += rd(url(i), {{"body", std::string(1000, 'b')}});
  ASSERT_EQ(catalog_.update(stream).status, 0);
  ASSERT_EQ(catalog_.index().status, 0);
  change("No. 3.", "No. X.");
  EXPECT_EQ(catalog_.update(rd(url(400), {{"title", "New"}})).errors, "minidba: " + fault(3) + hint);
  EXPECT_EQ(catalog_.update(rd(url(3), {{"title", "New"}})).status, 0) << "what is replaced is not copied";
  EXPECT_EQ(catalog_.index().status, 0);
}

TEST_F(Damaged, SkipDamagedLeavesRecordsOut) {
  change("No. 3.", "No. X.");
  const std::string left_out = "minidba: left out: " + fault(3) + "\n";
  Finished finished = catalog_.run({"export", "--skip-damaged"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors, left_out);
  EXPECT_THAT(finished.out, HasSubstr("minidba-descriptions{2}:\t19\n"));
  finished = catalog_.run({"update", "--skip-damaged"}, rd(url(30), {{"title", "New"}}));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_EQ(finished.errors, left_out + "minidba: 1 new, 0 changed, 0 unchanged, 0 rejected, 1 damaged\n");
  EXPECT_EQ(catalog_.records().size(), 20u);
  EXPECT_EQ(catalog_.run({"get", url(3)}).errors, "minidba: no description " + url(3) + "\n");
  EXPECT_EQ(catalog_.index().status, 0);
  EXPECT_EQ(catalog_.run({"verify"}).out, "sound: 20 descriptions, 20 index entries\n");
}

/// Regression: after a page of records was overwritten with zeros, only the number of missing records was reported, not
/// which ones.
TEST_F(Damaged, MissingRecordsAreNamed) {
  const std::string bytes = support::read_file(catalog_.path());
  const size_t page_size = hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data())).page_size;
  const size_t page = bytes.find(url(7) + "\n") / page_size * page_size;
  change(bytes.substr(page, page_size), std::string(page_size, '\0'));
  const Finished finished = catalog_.run({"update", "--skip-damaged"}, rd(url(30), {{"title", "New"}}));
  EXPECT_EQ(finished.status, 1);
  const auto left = catalog_.records();
  EXPECT_THAT(finished.errors, HasSubstr("minidba: left out: records are missing in " + catalog_.path() +
                                         ": of 20 there are " + std::to_string(left.size() - 1) + "\n"));
  int named = 0;
  for (int i = 1; i <= 20; ++i) {
    const std::string line =
        "minidba: left out: lost record " + std::to_string(i) + " (" + url(i) + ") in " + catalog_.path() + "\n";
    if (finished.errors.find(line) != std::string::npos) ++named;
  }
  EXPECT_LT(left.size(), 21u);
  EXPECT_EQ(named, 21 - static_cast<int>(left.size()));
}

TEST_F(Damaged, RecordsKeepTheirEntriesWithSkipDamaged) {
  const std::string index = support::read_file(catalog_.path(".idx"));
  change("No. 3.", "No. X.");
  const Finished finished = catalog_.run({"index", "--skip-damaged"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "20\n");
  EXPECT_EQ(finished.errors, "minidba: left out: " + fault(3) + "\nminidba: 1 damaged\n");
  EXPECT_TRUE(support::read_file(catalog_.path(".idx")) == index);
  EXPECT_EQ(catalog_.index().status, 2) << "the next index does not take it for a new one";
}

TEST_F(Damaged, RecordsWithADamagedTimeOfChangeAreFound) {
  change("01:46:42", "01:46:40");
  change("rd-last-changed{29}:\tSun, 09 Sep 2001 01:46:44", "rd-lost-changed{29}:\tSun, 09 Sep 2001 01:46:44");
  const Finished finished = catalog_.index();
  EXPECT_EQ(finished.status, 2);
  EXPECT_THAT(finished.errors, HasSubstr(fault(3, "its time of change is not that of the index")));
  EXPECT_THAT(finished.errors, HasSubstr(fault(5, "it has lost its time of change")));
  EXPECT_THAT(finished.errors, testing::EndsWith(refusal("2 records are")));
}

/// Regression: of 420 flipped bits, 5 counted as changes because they made a time of change later than all others.
TEST_F(Damaged, AnyFlippedBitOfARecordIsFound) {
  const catalog::Catalog catalog(catalog_.path());
  const catalog::KnownRecords known(catalog::read_index(catalog_.path(".idx")), catalog.newest_given());
  const catalog::KnownRecords without_newest(catalog::read_index(catalog_.path(".idx")));
  int later = 0;
  catalog.each([&](uint32_t number, std::string_view record) {
    std::string text(record);
    EXPECT_EQ(known.fault_of(number, text), "");
    for (size_t bit = 0; bit < 8 * text.size(); ++bit) {
      char &byte = text[bit / 8];
      byte = static_cast<char>(byte ^ 1 << bit % 8);
      EXPECT_NE(known.fault_of(number, text), "") << number << ", bit " << bit << ": " << text;
      if (without_newest.fault_of(number, text).empty()) ++later;
      byte = static_cast<char>(byte ^ 1 << bit % 8);
    }
  });
  EXPECT_GT(later, 100) << "bits that only the newest time given tells of";
}

TEST_F(Damaged, RecordsLaterThanTheNewestChangeAreFound) {
  change("Sun, 09 Sep 2001 01:46:42", "Sun, 09 Sep 2001 05:46:42");
  const std::string fault = this->fault(3, "one bit of it is not as in the index");
  for (const std::vector<std::string> &words :
       {std::vector<std::string>{"index"}, {"expire"}, {"rebuild"}, {"export"}, {"verify"}}) {
    const Finished finished = catalog_.run(words);
    EXPECT_NE(finished.status, 0) << words[0];
    EXPECT_THAT(finished.errors, HasSubstr("minidba: " + fault)) << words[0];
  }
  EXPECT_EQ(catalog_.update(rd(url(30), {{"title", "New"}})).errors, "minidba: " + fault + hint);
  EXPECT_THAT(catalog_.run({"salvage", catalog_.path(".soif")}).errors,
              HasSubstr("damaged, but written: description 3 (" + url(3) + ")"));
}

/// The damaged file is a copy: inode and times are new, and the URL map does not belong to it.
TEST_F(Damaged, RecordsLaterThanTheNewestChangeAreFoundInACopy) {
  std::string bytes = support::read_file(catalog_.path());
  const std::string time = "Sun, 09 Sep 2001 01:46:42";
  support::write_file(catalog_.path(".copy"),
                      bytes.replace(bytes.find(time), time.size(), "Sun, 09 Sep 2801 01:46:42"));
  ASSERT_EQ(::rename(catalog_.path(".copy").c_str(), catalog_.path().c_str()), 0);
  for (int attempt = 0; attempt < 2; ++attempt)
    EXPECT_EQ(catalog_.update(rd(url(30), {{"title", "New"}})).errors,
              "minidba: " + fault(3, "one bit of it is not as in the index") + hint);
}

/// Regression: a damaged URL was written to the terminal with its control characters.
TEST_F(Damaged, AreNamedWithoutControlCharacters) {
  change("http://localhost/3\n", "http://local\x1b[2J/3\n");
  change("http://localhost/5\n", "http://local\x7f\x01st/5\n");
  for (const char *verb : {"index", "verify", "export"}) {
    const Finished finished = catalog_.run({verb});
    EXPECT_THAT(finished.errors,
                testing::AnyOf(HasSubstr("(http://local\\x1b[2J/3)"), HasSubstr("local\\x7f\\x01st/5")));
    EXPECT_EQ(finished.errors.find_first_of("\x1b\x7f\x01"), std::string::npos) << finished.errors;
  }
  const std::string faults = catalog_.run({"verify", "--json"}).out;
  EXPECT_THAT(faults, HasSubstr("local\\u001b[2J/3")) << "JSON escapes on its own";
}

TEST_F(Damaged, WordsOfTheCommandLineAreNamedWithoutControlCharactersEither) {
  EXPECT_EQ(catalog_.run({"get", "a\x1b[2J\nb"}).errors, "minidba: no description a\\x1b[2J\\nb\n");
  EXPECT_EQ(catalog_.run({"delete", "\r\x7f"}).errors.substr(0, 34), "minidba: no description \\r\\x7f\nmin");
  EXPECT_EQ(catalog_.run({"list", "--since", "\x1b[2J"}).errors.find('\x1b'), std::string::npos);
  EXPECT_EQ(catalog_.run({"a\x1b\nb"}).errors.substr(0, 34), "minidba: unknown verb \"a\\x1b\\nb\": ");
}

/// Another program may write a description with a later time of change.
TEST_F(Damaged, ALaterTimeFromAnotherProgramIsNoDamage) {
  std::string record = catalog_.records().at("00000003");
  const std::string time = "Sun, 09 Sep 2001 01:46:42 GMT";
  record.replace(record.find(time), time.size(), "Mon, 10 Sep 2001 10:00:00 GMT");
  catalog_.put("00000003", record);
  EXPECT_EQ(catalog_.update(rd(url(30), {{"title", "New"}})).status, 0);
  EXPECT_EQ(catalog_.index().status, 0);
}

TEST_F(Damaged, ARecordChangedAndChangedBackIsNotDamaged) {
  const std::string original = rd(url(3), {{"title", "No. 3."}, {"rd-expires", "Fri, 31 Dec 2099 00:00:00 GMT"}});
  EXPECT_EQ(catalog_.update(rd(url(3), {{"title", "Other"}})).status, 0);
  EXPECT_EQ(catalog_.update(original).status, 0);
  EXPECT_EQ(catalog_.index().status, 0);
  EXPECT_EQ(catalog_.run({"verify"}).status, 0);
}

TEST_F(Damaged, RecordsAreNotDetectedWithoutAReadableIndex) {
  change("No. 3.", "No. X.");
  support::write_file(catalog_.path(".idx"), "no index");
  const std::string note = "minidba: not an index: " + catalog_.path(".idx") + ": records are not compared with it\n";
  const Finished finished = catalog_.update(rd(url(30), {{"title", "New"}}));
  EXPECT_EQ(finished.status, 0);
  EXPECT_THAT(finished.errors, testing::StartsWith(note));
  EXPECT_EQ(catalog_.index().errors, note);
  EXPECT_EQ(catalog_.run({"verify"}).out, "sound: 21 descriptions, 21 index entries\n");
}

TEST_F(Damaged, PagesAreLeftOutByEveryVerbThatReads) {
  catalog_.put("00000004", "no object");
  const std::string left_out =
      "minidba: left out: damaged record 4 in " + catalog_.path() + ": it is not a SOIF object\n";
  for (const std::vector<std::string> &words :
       {std::vector<std::string>{"list"}, {"stats"}, {"unclassified"}, {"get", "5"}}) {
    std::vector<std::string> skipping = words;
    skipping.emplace_back("--skip-damaged");
    const Finished finished = catalog_.run(skipping);
    EXPECT_EQ(finished.status, 1) << words[0];
    EXPECT_EQ(finished.errors, left_out);
    EXPECT_NE(finished.out, "");
  }
  EXPECT_EQ(catalog_.run({"expire", "--skip-damaged"}).status, 1);
  EXPECT_EQ(catalog_.records().size(), 19u);
}

}  // namespace
