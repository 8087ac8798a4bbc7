// SPDX-License-Identifier: MIT
/// A change has a later time of change than every change before it, whatever the clock does: a gatherer that asks for
/// changes since the newest time that it holds gets them all.
#include "catalog/change_times.h"

#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "catalog/catalog_files.h"
#include "catalog/hash/trailer.h"
#include "catalog/os/file.h"
#include "catalog/record.h"
#include "tools/minidba/verb.h"

using namespace rdm;

namespace {

using catalog::date_of;
using support::Finished;

constexpr time_t noon = 1'800'000'000, day = time_t{24} * 60 * 60;

class ChangeTimes : public testing::Test {
 protected:
  Finished run(std::vector<std::string> words, const std::string &input = "") const {
    words.insert(words.begin(), {"-q", "-d", catalog_.path()});
    Finished finished = run_verb(words, input, true, [this] { return clock_; });
    EXPECT_EQ(finished.status, 0) << finished.errors;
    return finished;
  }
  Finished update(int number, const std::string &title) { return run({"update"}, rd(url(number), {{"title", title}})); }
  /// import replaces the catalog with descriptions of these times of change.
  Finished import(const std::vector<std::string> &times) {
    std::string stream = export_header("1", std::to_string(times.size()));
    for (size_t i = 0; i < times.size(); ++i)
      stream += rd(url(static_cast<int>(i) + 1), {{"rd-last-changed", times[i]}});
    return run({"import", "--replace"}, stream);
  }
  /// text_of returns the time of change of a description as text, time_of as a number.
  std::string text_of(int number) const {
    for (const auto &[key, record] : catalog_.records())
      if (record.find("{ " + url(number) + "\n") != std::string::npos)
        return CatalogFiles::value(record, "rd-last-changed");
    return "(no description)";
  }
  time_t time_of(int number) const {
    time_t time = 0;
    return cs_str2time(text_of(number).c_str(), &time);
  }
  /// write_as_an_earlier_version removes the newest time of change from the trailer of a file.
  void write_as_an_earlier_version(const std::string &suffix) const {
    std::string bytes = support::read_file(catalog_.path(suffix));
    bytes.replace(336, 24, 24, '\0');
    support::write_file(catalog_.path(suffix), bytes);
  }

  CatalogFiles catalog_;
  time_t clock_ = noon;
};

TEST_F(ChangeTimes, AnUpdateIgnoresTheGatherersTime) {
  run({"update"}, rd(url(1), {{"rd-last-changed", "Mon, 01 Jan 1990 00:00:00 GMT"}, {"title", "One"}}));
  clock_ += 10;
  update(2, "Two");
  EXPECT_EQ(time_of(1), noon);
  EXPECT_EQ(time_of(2), noon + 10);
}

// Regression: after the clock was set back by an hour, changes got times that gatherers had already asked for.
TEST_F(ChangeTimes, AreASecondAfterTheNewestWhenTheClockIsBehind) {
  update(1, "One");
  clock_ -= 3600;
  update(2, "Two");
  update(1, "Uno");
  EXPECT_EQ(time_of(2), noon + 1);
  EXPECT_EQ(time_of(1), noon + 2);
}

TEST_F(ChangeTimes, UpdatesInOneSecondGetDifferentTimes) {
  for (const char *title : {"One", "Uno", "Eins"}) update(1, title);
  EXPECT_EQ(time_of(1), noon + 2);
}

// An update with a slow input may begin an hour before a faster one and end after it.
TEST_F(ChangeTimes, AreTakenWhenTheInputHasEnded) {
  int asked = 0;
  const std::string stream = rd(url(1), {{"title", "One"}}) + rd(url(2), {{"title", "Two"}});
  run_verb({"-d", catalog_.path(), "update"}, stream, false, [&] { return ++asked, noon + asked; });
  EXPECT_EQ(asked, 1) << "once for all of them";
  EXPECT_EQ(time_of(1), noon + 1);
  EXPECT_EQ(time_of(2), noon + 1);
}

TEST_F(ChangeTimes, TimesOfDeletedDescriptionsAreNotReused) {
  update(1, "One");
  update(2, "Two");
  run({"delete", url(2)});
  clock_ -= 3600;
  update(3, "Three");
  EXPECT_EQ(time_of(3), noon + 2);
}

TEST_F(ChangeTimes, AnUnchangedDescriptionKeepsItsTime) {
  update(1, "One");
  clock_ += 10;
  update(1, "One");
  EXPECT_EQ(time_of(1), noon);
}

// A value may look like the line of rd-last-changed.
TEST_F(ChangeTimes, AValueThatLooksLikeTheAttributeIsNotReplaced) {
  const std::string line = "\nrd-last-changed{29}:\t" + date_of(0) + "\n";
  for (const char *name : {"a", "body", "rd-last-changed-2", "rd-last-change", "title", "zz"}) {
    const std::string stream = rd(url(1), {{name, line}, {"Title-1", date_of(0)}});
    run({"update"}, stream);
    const std::string record = catalog_.records().at("00000001");
    EXPECT_EQ(CatalogFiles::value(record, name), line) << name;
    EXPECT_EQ(CatalogFiles::value(record, "rd-last-changed"), date_of(clock_)) << name;
    clock_ += 10;
  }
  EXPECT_EQ(run_verb({"-d", catalog_.path(), "verify"}).status, 0);
}

TEST_F(ChangeTimes, AnImportStampsDescriptionsWithoutAValidTime) {
  import({"", "never", "Thu, 01 Jan 1970 00:00:00 GMT", "1 Jan 2016"});
  for (const int number : {1, 2, 3}) EXPECT_EQ(time_of(number), noon) << number;
  EXPECT_EQ(text_of(4), "1 Jan 2016") << "as it was written";
  EXPECT_EQ(run_verb({"-d", catalog_.path(), "verify"}).status, 0);
}

// Gatherers do not notice that a backup was restored. They must notice later changes, although they hold times that are
// later than all in the backup.
TEST_F(ChangeTimes, AnImportRestoresTimesAndReusesNoneOfTheReplacedCatalog) {
  update(1, "One");
  const auto before = catalog_.records();
  const std::string backup = run({"export"}).out;
  clock_ += 100;
  update(2, "Two");
  clock_ -= 3600;
  run({"import", "--replace"}, backup);
  EXPECT_EQ(catalog_.records(), before);
  update(3, "Three");
  EXPECT_EQ(time_of(3), noon + 101);
}

TEST_F(ChangeTimes, ReplacingADamagedCatalogReusesNoTime) {
  update(1, "One");
  const std::string backup = run({"export"}).out;
  clock_ += 100;
  update(2, "Two");
  support::write_file(catalog_.path(), "damaged");
  clock_ -= 3600;
  run({"import", "--replace"}, backup);
  update(3, "Three");
  EXPECT_EQ(time_of(3), noon + 101);
}

// The times of an index end in 2106. A single description must not use up the remaining ones.
TEST_F(ChangeTimes, AfterTheYear2099AreNotBelieved) {
  import({"Sun, 07 Feb 2106 06:28:15 GMT", date_of(catalog::latest_change + 1), "Fri, 01 Jan 9999 00:00:00 GMT"});
  for (const int number : {1, 2, 3}) EXPECT_EQ(time_of(number), noon) << number;
  update(1, "One");
  EXPECT_EQ(time_of(1), noon + 1);
}

TEST_F(ChangeTimes, AreLaterThanPlausibleTimesOfOtherPrograms) {
  update(1, "One");
  catalog_.put("00000002", rd(url(2), {{"rd-last-changed", "Sun, 07 Feb 2106 06:28:15 GMT"}}));
  catalog_.put("00000003", rd(url(3), {{"rd-last-changed", date_of(noon + 50)}}));
  update(1, "Uno");
  EXPECT_EQ(time_of(1), noon + 51);
  update(2, "Two");
  EXPECT_EQ(time_of(2), noon + 52);
}

TEST_F(ChangeTimes, ThatAreAheadOfTheClockAreGoneOnFromWithAWarning) {
  const time_t ahead = noon + 2 * day;
  EXPECT_EQ(import({date_of(ahead)}).errors, "minidba: the import has times of change up to " + date_of(ahead) +
                                                 ", ahead of the clock: changes after it get later times\n");
  EXPECT_EQ(update(2, "Two").errors, "minidba: the clock is behind the newest time of change: changes get the time " +
                                         date_of(ahead + 1) + "\n");
  EXPECT_EQ(time_of(2), ahead + 1);
  clock_ = ahead;
  EXPECT_EQ(update(2, "Due").errors, "");
  EXPECT_EQ(time_of(2), ahead + 2);
}

TEST_F(ChangeTimes, EndOnlyWithTheTimesOfAnIndex) {
  clock_ = 5'000'000'000;  // in the year 2128
  update(1, "One");
  EXPECT_EQ(time_of(1), catalog::latest_change);
  update(1, "Uno");
  EXPECT_EQ(time_of(1), catalog::latest_change + 1);
}

TEST_F(ChangeTimes, TheNewestTimeOfAnEarlierVersionIsReadFromTheRecords) {
  for (const bool has_map : {true, false}) {
    const time_t newest = std::max<time_t>(clock_, noon) + 10;
    import({date_of(newest)});
    for (const char *suffix : {"", ".url"}) write_as_an_earlier_version(suffix);
    if (!has_map) ::unlink(catalog_.path(".url").c_str());
    update(7, has_map ? "Seven" : "Sept");
    EXPECT_EQ(time_of(7), newest + 1) << has_map;
    clock_ = newest;
  }
}

// Earlier versions copy the newest time and change words that its checksum covers.
TEST_F(ChangeTimes, AreNotTakenFromAMapThatAnEarlierVersionHasWritten) {
  update(1, "One");
  const std::string path = catalog_.path(".url");
  const auto trailer = [&] { return catalog::Trailer::read(catalog::File::open(path)); };
  ASSERT_EQ(trailer()->newest_change, noon);
  std::string bytes = support::read_file(path);
  catalog::Trailer changed = *trailer();
  changed.database[1] += 1;
  const CatalogFiles other;
  support::write_file(other.path(), bytes);
  changed.write(catalog::File(catalog::open_file(other.path(), O_RDWR), other.path()));
  bytes.replace(264, 72, support::read_file(other.path()).substr(264, 72));
  support::write_file(path, bytes);
  ASSERT_TRUE(trailer().has_value());
  EXPECT_FALSE(trailer()->newest_change.has_value());
}

}  // namespace
