// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/catalog.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "dba/index_format.h"
#include "hosts/rdmd/check/catalog_files.h"
#include "support/files.h"

using namespace rdm;

namespace {

using support::big_endian;
using support::Descriptions;

enum class Written { index_last, database_last };

/// CheckCatalog has a database "db" and its index "db.idx".
class CheckCatalog : public ::testing::Test {
 protected:
  void database(const Descriptions &descriptions) { records(support::records_of(descriptions)); }
  void records(const support::Records &records) { support::make_database(directory_.path("db"), records); }
  void index(const std::string &bytes) { directory_.write("db.idx", bytes); }

  /// found returns the findings, each as "index: TEXT" or "database: TEXT".
  std::string found(Written order = Written::index_last) {
    set_time("db", order == Written::index_last ? 1000 : 2000);
    set_time("db.idx", order == Written::index_last ? 2000 : 1000);
    check::Findings findings;
    check::Report report(directory_.path("db"), findings);
    check::check_catalog(report);
    std::string text;
    for (const check::Finding &finding : findings) {
      const std::string line = check::describe(finding);
      text += (finding.file == report.file() ? "database: " : "index: ") + line.substr(finding.file.size() + 2) + "\n";
    }
    return text;
  }
  void set_time(const char *name, std::time_t seconds) {
    const struct timespec times[] = {{seconds, 0}, {seconds, 0}};
    ::utimensat(AT_FDCWD, directory_.path(name).c_str(), times, 0);
  }

  /// The descriptions that most tests begin with.
  const Descriptions three_ = {{1, {"one", 100}}, {2, {"two", 200}}, {7, {"seven", 300}}};
  support::TemporaryDirectory directory_;
};

TEST_F(CheckCatalog, ReadsAllRecords) {
  database(three_);
  index(support::index_of(three_));
  EXPECT_EQ(found(Written::index_last), "");
  EXPECT_EQ(found(Written::database_last), "");
  Descriptions many;
  for (std::uint32_t number = 1; number <= 3000; ++number)
    many[number] = {std::string(number % 50 + 1, 'x'), number % 77 * 1000};
  database(many);
  index(support::index_of(many));
  EXPECT_EQ(found(), "");
}

TEST_F(CheckCatalog, ACatalogMayBeEmpty) {
  database({});
  index(support::index_of({}));
  EXPECT_EQ(found(), "");
}

TEST_F(CheckCatalog, DatabasesAreHashFiles) {
  index(support::index_of({}));
  for (const std::string &bytes : {std::string(), std::string("abc"), std::string("not a database")}) {
    directory_.write("db", bytes);
    EXPECT_EQ(found(), "database: error: is not a catalog database\n") << bytes;
  }
  directory_.write("db", big_endian(0x061561) + std::string(8188, '\0'));
  EXPECT_EQ(found(), "database: error: is damaged: its header and its size contradict each other\n");
  std::filesystem::remove(directory_.path("db"));
  EXPECT_EQ(found(), "database: error: cannot be read: No such file or directory\n");
}

TEST_F(CheckCatalog, IndexesHaveTheirMagicTheirSizeAndTheirOrder) {
  const Descriptions pair = {{1, {"one", 1}}, {2, {"two", 2}}};
  const std::string whole = support::index_of(pair), no_index = "index: error: is not an index of a catalog database\n";
  const struct {
    std::string bytes, expected;
  } cases[] = {
      {"", no_index},
      {big_endian(0x3EB1CA0E), no_index},
      {big_endian(0x3EB1CA0F) + big_endian(0), no_index},
      {whole.substr(0, 47), "index: error: has 47 bytes; 2 entries take 48\n"},
      {whole + "x", "index: error: has 49 bytes; 2 entries take 48\n"},
      {big_endian(0x3EB1CA0E) + big_endian(0xffffffff),
       "index: error: has 8 bytes; 4294967295 entries take 85899345908\n"},
      {whole.substr(0, 8) + whole.substr(28) + whole.substr(8, 20),
       "index: error: entry 2 is earlier than the one before it\n"},
  };
  database(pair);
  for (const auto &row : cases) {
    index(row.bytes);
    EXPECT_EQ(found(), row.expected);
  }
  std::filesystem::remove(directory_.path("db.idx"));
  EXPECT_EQ(found(), "index: error: cannot be read: No such file or directory\n");
}

/// After a change of a catalog the service omits records until the next `minidba index`; this is intended.
TEST_F(CheckCatalog, AnOlderIndexIsAWarning) {
  const std::string older = "index: warning: is older than its database: ", again = "; rebuild it with minidba index\n";
  const struct {
    Descriptions now;
    std::string expected;
  } cases[] = {
      {{{1, {"one", 100}}, {2, {"two", 200}}, {7, {"seven", 300}}, {8, {"eight", 400}}}, "1 record is not in it"},
      {{{1, {"one", 100}}, {2, {"TWO", 301}}, {7, {"SEVEN", 301}}}, "2 have changed since"},
      {{{1, {"one", 100}}}, "2 are gone"},
      {{{1, {"one", 100}}, {2, {"second", 301}}, {8, {"eight", 400}}, {9, {"nine", 400}}},
       "2 records are not in it, 1 has changed since, 1 is gone"},
      {{{1, {"ONE", 301}}, {2, {"TWO", 302}}, {7, {"SEVEN", 303}}}, "3 have changed since"},
      {{{1, {"ONE", 301}}}, "1 has changed since, 2 are gone"},
      {{}, "3 are gone"},
  };
  index(support::index_of(three_));
  for (const auto &row : cases) {
    database(row.now);
    EXPECT_EQ(found(Written::database_last), older + row.expected + again);
  }
  // Changed and added records are recognised whichever file is newer, as after a copy.
  database(cases[0].now);
  EXPECT_EQ(found(Written::index_last), older + "1 record is not in it" + again);
  database(cases[1].now);
  EXPECT_EQ(found(Written::index_last), older + "2 have changed since" + again);
  index(support::index_of({}));
  EXPECT_EQ(found(Written::index_last), older + "3 records are not in it" + again);
}

/// Regression: with the index of another catalog, the service answered with wrong records, and no log said so.
TEST_F(CheckCatalog, AnotherCatalogsIndexIsAnError) {
  const std::string foreign = "index: error: is not the index of this database, or records are damaged: of ";
  const std::string see = "; see minidba verify\n";
  const struct {
    Descriptions other;
    std::string expected;
  } cases[] = {
      // The records are as old as their entries or older, so they cannot have changed since.
      {{{1, {"uno", 100}}, {2, {"due", 200}}}, "2 entries, 2 have another size or checksum than the record"},
      {{{1, {"uno", 101}}}, "1 entry, 1 has another size or checksum than the record"},
      {{{1, {"one", 100}}, {2, {"tow", 200}}}, "2 entries, 1 has another size or checksum than the record"},
      {{{3, {"one", 100}}, {4, {"two", 200}}}, "2 entries, 2 have no record"},
      {{{1, {"uno", 100}}, {2, {"two", 200}}, {9, {"nove", 10}}},
       "3 entries, 1 has another size or checksum than the record, 1 has no record"},
  };
  database(three_);
  for (const auto &row : cases)
    for (const Written order : {Written::index_last, Written::database_last}) {
      index(support::index_of(row.other));
      EXPECT_EQ(found(order), foreign + row.expected + see);
    }
  // Here the files' modification times decide.
  index(support::index_of({{1, {"one", 100}}, {2, {"two", 200}}, {7, {"seven", 300}}, {8, {"eight", 400}}}));
  EXPECT_EQ(found(Written::index_last), foreign + "4 entries, 1 has no record" + see);
  index(support::index_of({{1, {"uno", 50}}, {2, {"due", 60}}}));
  EXPECT_EQ(found(Written::index_last), foreign + "2 entries, 2 have another size or checksum than the record" + see);
  database({});
  EXPECT_EQ(found(Written::index_last), foreign + "2 entries, 2 have no record" + see);
}

TEST_F(CheckCatalog, OneNumberTwiceInAnIndexIsAnError) {
  database(three_);
  const std::string bytes = support::index_of(three_);
  index(bytes.substr(0, 8) + bytes.substr(8, 20) + bytes.substr(8, 20) + bytes.substr(28 + 20));
  EXPECT_EQ(found(),
            "index: error: is not the index of this database, or records are damaged: of 3 entries, "
            "1 has no record; see minidba verify\n");
}

/// A record without a time of change cannot have changed after its entry was made.
TEST_F(CheckCatalog, RecordsThatChangedWithoutATimeAreDamaged) {
  index(support::index_of(three_));
  for (const char *damage : {"rd-last-changex{", "rd-last-changed{29}:-"}) {
    support::Records damaged = support::records_of(three_);
    std::string &record = damaged["00000002"];
    record.replace(record.find("rd-last-changed"), std::string(damage).size(), damage);
    records(damaged);
    EXPECT_EQ(found(Written::database_last),
              "index: error: is not the index of this database, or records are damaged: of 3 entries, 1 has another "
              "size or checksum than the record; see minidba verify\n");
  }
}

TEST_F(CheckCatalog, KeysThatAreNoNumbersHaveNoEntries) {
  support::Records keys = support::records_of(three_);
  for (const char *key : {"0000002", "000000002", "0000000x"}) keys[key] = keys["00000002"];
  records(keys);
  index(support::index_of(three_));
  EXPECT_EQ(found(), "");
}

/// If pages of a database are unreadable, nothing is known about its index.
TEST_F(CheckCatalog, ADamagedDatabaseIsAnErrorOfItsOwn) {
  Descriptions many;
  for (std::uint32_t number = 1; number <= 300; ++number) many[number] = {"title", number};
  database(many);
  index(support::index_of(many));
  std::string bytes = support::read_file(directory_.path("db"));
  const std::size_t page_size = index_format::word_at(bytes, 12), header_pages = index_format::word_at(bytes, 60);
  bytes.replace(page_size * header_pages, 2, "\xff\x7f");
  directory_.write("db", bytes);
  EXPECT_EQ(found(), "database: error: is damaged: 1 bucket cannot be read; see minidba verify\n");
}

}  // namespace
