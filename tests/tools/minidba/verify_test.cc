// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>

#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "catalog/catalog_files.h"
#include "catalog/hash/statistics.h"
#include "catalog/url_map.h"
#include "hashdb/format.h"
#include "qxapi/guard.h"
#include "support/database.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

std::string word(uint32_t number) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
  return bytes;
}

class Verify : public testing::Test {
 protected:
  /// The descriptions have times of change a second apart.
  Verify() {
    std::string stream =
        "@RDMHEADER { -\nrdm-version{3}:\t1.0\nminidba-next-number{1}:\t4\nminidba-descriptions{1}:\t3\n}\n";
    for (int i = 1; i <= 3; ++i)
      stream += rd("http://localhost/" + std::to_string(i),
                   {{"rd-last-changed", "Sun, 09 Sep 2001 01:46:4" + std::to_string(i) + " GMT"},
                    {"title", std::to_string(i)},
                    {"minidba-number", std::to_string(i)}});
    EXPECT_EQ(catalog_.run({"import"}, stream).status, 0);
    catalog_.index();
  }
  /// expect_note asserts that the catalog is sound, and that the index is older with these differences.
  void expect_note(const std::string &verdict, const std::string &note) {
    const Finished finished = catalog_.run({"verify"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "sound: " + verdict + ", index older than the database\n");
    EXPECT_EQ(finished.errors, "minidba: the index is older than the database, by " + note + ": run minidba index\n");
  }
  void expect_sound(const std::string &verdict) {
    const Finished finished = catalog_.run({"verify"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out, "sound: " + verdict + "\n");
    EXPECT_EQ(finished.errors, "");
  }
  /// expect_faults asserts that exactly these faults are reported.
  void expect_faults(const std::vector<std::string> &faults) {
    const Finished finished = catalog_.run({"verify"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out,
              "damaged: " + std::to_string(faults.size()) + (faults.size() == 1 ? " fault\n" : " faults\n"))
        << finished.errors;
    for (const std::string &fault : faults) EXPECT_THAT(finished.errors, HasSubstr("minidba: " + fault + "\n"));
  }
  std::string entry(uint32_t number) {
    const std::string bytes = support::read_file(catalog_.path(".idx"));
    return bytes.substr(8 + 20 * (number - 1), 20);
  }
  /// remap changes the number of a URL in the map, or erases the URL if `key` is empty, and updates the checksum, as a
  /// faulty writer might.
  void remap(const std::string &url, const std::string &key) {
    const std::string path = catalog_.path(".url");
    DatabasePtr map(dba_open(path.c_str(), "w"));
    key.empty() ? support::erase_record(map.get(), url) : support::put_record(map.get(), url, key);
    map.reset();
    catalog::seal(catalog::File(catalog::open_file(path, O_RDWR), path));
  }
  /// change_header changes the header of the database.
  void change_header(const std::function<void(hashdb::Header &header)> &change) const {
    std::string bytes = support::read_file(catalog_.path());
    auto *start = reinterpret_cast<unsigned char *>(bytes.data());
    hashdb::Header header = hashdb::decode(start);
    change(header);
    encode(header, start);
    support::write_file(catalog_.path(), bytes);
  }
  void write_index(const std::vector<std::string> &entries) {
    std::string bytes = word(0x3EB1CA0E) + word(static_cast<uint32_t>(entries.size()));
    for (const std::string &entry : entries) bytes += entry;
    support::write_file(catalog_.path(".idx"), bytes);
  }
  CatalogFiles catalog_;
};

TEST_F(Verify, ACatalogJustMadeIsSound) {
  expect_sound("3 descriptions, 3 index entries");
  EXPECT_EQ(catalog_.run_read_only({"verify"}).out, "sound: 3 descriptions, 3 index entries\n");
}

TEST_F(Verify, ReportsAMissingIndexAndUrlMap) {
  unlink(catalog_.path(".idx").c_str());
  unlink(catalog_.path(".url").c_str());
  const Finished finished = support::run(catalog_.command({"verify"}));
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "sound: 3 descriptions, no index, no URL map\n");
}

TEST_F(Verify, FindsTheIndexBesideTheDatabase) {
  EXPECT_EQ(support::run(catalog_.command({"verify"})).out, "sound: 3 descriptions, 3 index entries\n");
  EXPECT_EQ(support::run(catalog_.command({"-i", catalog_.path(".index"), "verify"})).errors,
            "minidba: cannot read " + catalog_.path(".index") + ": No such file or directory\n");
}

TEST_F(Verify, ReportsFaultsOfTheIndex) {
  const std::string one = entry(1), two = entry(2), three = entry(3), path = catalog_.path(".idx");
  std::string four = one, other_time = two, other_reserved = two;
  four[11] = 4;
  other_time[3] = static_cast<char>(other_time[3] + 1);
  other_reserved[7] = 1;
  std::string other_bytes = other_reserved;
  other_bytes[15] = static_cast<char>(other_bytes[15] + 1);
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{two, one, three}, "the index is not sorted"},
      {{one, two, three, four}, "the index is not sorted"},
      {{one, three}, "description 2 is not in the index"},
      {{one, two, two, three}, "the index has description 2 twice"},
      {{one, other_reserved, three}, "the index entry of description 2 is wrong"},
      {{one, other_bytes, three}, "the index entry of description 2 is wrong"},
      {{one, other_time, three}, "the index entry of description 2 is wrong"},
  };
  for (const auto &[entries, fault] : rows) {
    write_index(entries);
    expect_faults({fault});
  }
  support::write_file(path, "no index");
  expect_faults({"not an index: " + path});
  support::write_file(path, word(0x3EB1CA0E) + word(1));
  expect_faults({"not as long as its 1 entry: " + path});
}

/// Size, checksum and time of an entry tell a damaged record from a changed one. Regression: verify had one message for
/// both.
TEST_F(Verify, TellsDamagedRecordsFromChangedRecords) {
  const std::string one = entry(1), two = entry(2), three = entry(3);
  std::string other_size = two, other_checksum = two, earlier = two, later = two;
  const std::string damaged = "damaged record 2 (http://localhost/2) in " + catalog_.path() + ": its ";
  other_size[15] = static_cast<char>(other_size[15] + 1);
  write_index({one, other_size, three});
  expect_faults({damaged + "size is not that of the index"});
  other_checksum[19] = static_cast<char>(other_checksum[19] + 1);
  write_index({one, other_checksum, three});
  expect_faults({damaged + "checksum is not that of the index"});
  earlier.replace(0, 4, word(999999999)).replace(15, 1, "!");
  write_index({earlier, one, three});
  expect_note("3 descriptions, 3 index entries", "0 new, 1 changed and 0 removed descriptions");
  later.replace(0, 4, word(1000000009)).replace(15, 1, "!");
  write_index({one, three, later});
  expect_faults({"the index entry of description 2 is newer than the description"});
}

TEST_F(Verify, AnIndexThatIsOlderThanTheDatabaseIsNoFault) {
  const std::string older = support::read_file(catalog_.path(".idx"));
  catalog_.update(rd("http://localhost/4", {{"title", "4"}}) + rd("http://localhost/2", {{"title", "changed"}}));
  catalog_.run({"delete", "http://localhost/1"});
  const std::string note = "1 new, 1 changed and 1 removed descriptions";
  expect_note("3 descriptions, 3 index entries", note);
  const Finished finished = catalog_.run({"verify", "--json", "--quiet"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out,
            "{\"verb\":\"verify\",\"sound\":true,\"descriptions\":3,\"indexed\":3,\"index-older\":true,"
            "\"url-map\":true,\"fault-count\":0,\"faults\":[]}\n");
  EXPECT_EQ(finished.errors, "");
  catalog_.index();
  expect_sound("3 descriptions, 3 index entries");
  support::write_file(catalog_.path(".idx"), older);
  expect_note("3 descriptions, 3 index entries", note);
  write_index({});
  expect_note("3 descriptions, 0 index entries", "3 new, 0 changed and 0 removed descriptions");
}

/// An import replaces records without a later time of change: the old index does not belong to them.
TEST_F(Verify, AnIndexFromBeforeAnImportIsNoFault) {
  std::string exported = catalog_.run({"export"}).out;
  exported.replace(exported.find("title{1}:\t2"), 11, "title{1}:\tX");
  ASSERT_EQ(catalog_.run({"import", "--replace"}, exported).status, 0);
  const Finished finished = catalog_.run({"verify"});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "sound: 3 descriptions, 3 index entries, index older than the database\n");
  EXPECT_EQ(finished.errors, "minidba: the index is of an earlier catalog of this name: run minidba index\n");
  EXPECT_EQ(catalog_.index().status, 0);
  expect_sound("3 descriptions, 3 index entries");
}

// If the hash library replaces a record in front of a long one, it does not count it. Regression: such a catalog could
// not be read any more: "records are missing", 2 of 1.
TEST_F(Verify, ARecordThatTheLibraryDidNotCountIsNoFault) {
  const CatalogFiles catalog;
  catalog.run({"import"}, export_header("6", "2") +
                              rd("http://localhost/1", {{"minidba-number", "5"}, {"body", std::string(70000, 'y')}}) +
                              rd("http://localhost/2", {{"minidba-number", "3"}, {"title", "Two"}}));
  catalog.put("00000003", rd("http://localhost/2", {{"title", "Foreign"}}));
  ASSERT_EQ(catalog::statistics_of(catalog.path()).records, 1);
  EXPECT_EQ(support::run(catalog.command({"verify"})).out, "sound: 2 descriptions, no index, no URL map\n");
  EXPECT_EQ(catalog.run({"list", "--format", "tsv", "--attributes", "title"}).out,
            "3\thttp://localhost/2\tForeign\n5\thttp://localhost/1\t\n");
  EXPECT_EQ(catalog.index().out, "2\n");
  EXPECT_EQ(catalog.run({"delete", "http://localhost/1"}).out, "1\n");
  EXPECT_EQ(catalog.run({"delete", "http://localhost/2"}).out, "1\n");
  EXPECT_EQ(catalog::statistics_of(catalog.path()).records, 0);
}

TEST_F(Verify, FindsRecordsThatAreNoDescriptions) {
  catalog_.put("00000002", "no object");
  expect_faults({"description 2 is not a SOIF object"});
}

TEST_F(Verify, FindsRecordsThatPrintDifferently) {
  catalog_.put("00000004", rd("http://localhost/4", {{"title", "4"}}) + "\n");
  catalog_.put("00000005", rd("http://localhost/5", {{"Title", "5"}}));
  catalog_.index();
  expect_faults({"description 4 is not as it would be printed", "description 5 is not as it would be printed"});
}

TEST_F(Verify, FindsKeysThatAreNoNumbers) {
  for (const char *key : {"short", "0000000G", "00000000", "0000000A"})
    catalog_.put(key, rd("http://localhost/4", {{"title", "4"}}));
  expect_faults({"a record has a key that is no number", "a record has a key that is no number",
                 "a record has a key that is no number", "a record has a key that is no number"});
}

TEST_F(Verify, FindsAUrlThatTwoDescriptionsHave) {
  catalog_.put("00000004", rd("http://localhost/3", {{"title", "4"}}));
  catalog_.index();
  expect_faults({"the URL of description 4 leads to 3: http://localhost/3"});
}

TEST_F(Verify, FindsDamageInTheUrlMap) {
  const CatalogFiles catalog;
  std::string stream;
  for (int i = 0; i < 500; ++i) stream += rd("http://localhost/" + std::to_string(i), {{"title", "T"}});
  catalog.update(stream);
  std::string bytes = support::read_file(catalog.path(".url"));
  for (size_t at = 512; at < bytes.size(); ++at)
    if (at % 512 < 64 && bytes.find("snapshot", at / 512 * 512) > at + 4096) bytes[at] = '\x7f';
  support::write_file(catalog.path(".url"), bytes);
  const Finished finished = catalog.run({"verify"});
  EXPECT_EQ(finished.status, 1) << finished.out;
  EXPECT_THAT(finished.errors, HasSubstr(" leads to nothing: http://localhost/"));
}

TEST_F(Verify, ReportsFaultsOfTheUrlMap) {
  remap("http://localhost/9", "00000009");
  expect_faults({"the URL map has description 9, which is not there: http://localhost/9"});
  remap("http://localhost/9", "");
  expect_sound("3 descriptions, 3 index entries");
  remap("http://localhost/3", "00000001");
  expect_faults({"the URL of description 3 leads to 1: http://localhost/3"});
  remap("http://localhost/3", "");
  expect_faults({"the URL of description 3 leads to nothing: http://localhost/3"});
}

/// Regression: with a map that had the number of another URL, an update replaced, and a deletion erased, the other
/// description.
TEST_F(Verify, WritersDoNotBelieveAMapThatLeadsElsewhere) {
  const auto before = catalog_.records();
  const std::string failure = "minidba: damaged record http://localhost/3 in " + catalog_.path(".url") + "\n";
  for (const char *key : {"00000001", "00000004", "00000000"}) {
    remap("http://localhost/3", key);
    EXPECT_EQ(catalog_.update(rd("http://localhost/3", {{"title", "new"}})).errors, failure);
    EXPECT_EQ(catalog_.run({"delete", "http://localhost/3"}).errors, failure);
    EXPECT_EQ(catalog_.run({"get", "http://localhost/3"}).errors, failure);
    EXPECT_EQ(catalog_.records(), before);
  }
  EXPECT_EQ(catalog_.run({"rebuild"}).status, 0);
  EXPECT_EQ(catalog_.run({"delete", "http://localhost/3"}).status, 0);
  EXPECT_EQ(catalog_.records().size(), 2u);
}

TEST_F(Verify, ADescriptionThatIsNoObjectAnyMoreIsReplacedByTheNext) {
  struct stat status;
  ASSERT_EQ(::stat(catalog_.path().c_str(), &status), 0);
  std::string bytes = support::read_file(catalog_.path());
  bytes[bytes.find("@DOCUMENT { http://localhost/2")] = '?';
  support::write_file(catalog_.path(), bytes);
  const struct timespec times[] = {status.st_atim, status.st_mtim};
  ASSERT_EQ(::utimensat(AT_FDCWD, catalog_.path().c_str(), times, 0), 0) << "the map is still of this snapshot";
  const Finished finished = catalog_.update(rd("http://localhost/2", {{"title", "again"}}));
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(CatalogFiles::value(catalog_.records()["00000002"], "title"), "again");
  EXPECT_EQ(catalog_.records().size(), 3u);
}

TEST_F(Verify, FindsPagesThatAreMarkedWrongly) {
  const std::string sound = support::read_file(catalog_.path());
  const auto header = hashdb::decode(reinterpret_cast<const unsigned char *>(sound.data()));
  const size_t bitmap = overflow_page(header, header.bitmaps[0]) << header.page_shift;
  ASSERT_EQ(sound[bitmap], '\xFF') << "the bitmap itself is the only overflow page, and no other looks free";
  for (const char bits : {'\xFE', '\xFD'}) {
    std::string bytes = sound;
    bytes[bitmap] = bits;
    support::write_file(catalog_.path(), bytes);
    expect_faults({"the free pages are marked wrongly: " + catalog_.path()});
  }
}

TEST_F(Verify, ReportsDamagedPagesAndTheDescriptionsTheyHide) {
  const CatalogFiles catalog;
  std::string stream;
  for (int i = 0; i < 200; ++i)
    stream += rd("http://localhost/" + std::to_string(i), {{"body", std::string(2000, 'b')}});
  catalog.update(stream);
  catalog.index();
  std::string bytes = support::read_file(catalog.path());
  const auto layout = nlohmann::json::parse(catalog.run({"stats", "--json"}).out);
  const auto page = layout["page-size"].get<size_t>();
  for (size_t at = page; at < 4 * page; ++at)
    if (at % page < 64) bytes[at] = '\x7f';
  support::write_file(catalog.path(), bytes);
  const Finished finished = catalog.run({"verify"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors, HasSubstr("minidba: a page is damaged\n"));
  EXPECT_THAT(finished.errors, HasSubstr("which is not there\n")) << "the index still has what the page hides";
  EXPECT_THAT(finished.out, testing::StartsWith("damaged: "));
  EXPECT_EQ(catalog.run({"list"}).errors,
            "minidba: damaged page in " + catalog.path() + " (--skip-damaged of minidba leaves it out)\n");
}

/// change_bytes replaces a text in a file with another of the same length.
void change_bytes(const std::string &path, const std::string &from, const std::string &to) {
  std::string bytes = support::read_file(path);
  const size_t at = bytes.find(from);
  ASSERT_NE(at, std::string::npos);
  support::write_file(path, bytes.replace(at, from.size(), to));
}

TEST_F(Verify, FindsARecordInTheWrongBucket) {
  change_bytes(catalog_.path(), "00000003", "00000004");
  EXPECT_THAT(catalog_.run({"verify"}).errors, HasSubstr("minidba: description 4 is not found by its key\n"));
}

TEST_F(Verify, FindsANumberThatTwoRecordsHave) {
  // In a small file, the keys of 1 and 3 are in one bucket.
  change_bytes(catalog_.path(), "00000003", "00000001");
  EXPECT_THAT(catalog_.run({"verify"}).errors, HasSubstr("minidba: description 1 is there twice\n"));
}

TEST_F(Verify, FindsRecordsThatAreCountedAndNotThere) {
  change_header([](hashdb::Header &header) { header.records += 2; });
  EXPECT_THAT(catalog_.run({"verify"}).errors, HasSubstr("minidba: the database counts 5 records and has 3\n"));
}

TEST_F(Verify, FindsAPageThatIsUsedTwice) {
  change_header([](hashdb::Header &header) { header.bitmaps[1] = header.bitmaps[0]; });
  EXPECT_THAT(catalog_.run({"verify"}).errors, HasSubstr("minidba: a page is used twice: " + catalog_.path() + "\n"));
}

TEST_F(Verify, ADatabaseReplacedMeanwhileIsNotJudged) {
  const std::string index = support::read_file(catalog_.path(".idx")), pipe = catalog_.path(".pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const CatalogFiles streams;
  support::write_file(streams.path(".in"), "");
  const pid_t child = support::start(catalog_.command({"-i", pipe, "verify"}), streams.path(".in"),
                                     streams.path(".out"), streams.path(".err"));
  // verify reads the index last and waits for it.
  HostFileGuard writer(::open(pipe.c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(catalog_.update(rd("http://localhost/4", {{"title", "4"}})).status, 0);
  EXPECT_EQ(::write(writer.get(), index.data(), index.size()), static_cast<ssize_t>(index.size()));
  writer = HostFileGuard();
  EXPECT_EQ(support::wait_for(child), 2);
  EXPECT_EQ(support::read_file(streams.path(".err")),
            "minidba: database changed while it was verified: " + catalog_.path() + "\n");
}

TEST_F(Verify, AFileThatIsNoDatabaseIsDamaged) {
  support::write_file(catalog_.path(), "not a database");
  expect_faults({"not a sound hash database: " + catalog_.path()});
}

TEST_F(Verify, PrintsJson) {
  EXPECT_EQ(catalog_.run({"verify", "--json"}).out,
            "{\"verb\":\"verify\",\"sound\":true,\"descriptions\":3,\"indexed\":3,\"index-older\":false,"
            "\"url-map\":true,\"fault-count\":0,\"faults\":[]}\n");
  write_index({entry(1), entry(3)});
  const Finished finished = catalog_.run({"verify", "--json"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out,
            "{\"verb\":\"verify\",\"sound\":false,\"descriptions\":3,\"indexed\":2,\"index-older\":false,"
            "\"url-map\":true,\"fault-count\":1,\"faults\":[\"description 2 is not in the index\"]}\n");
}

TEST_F(Verify, NamesTheFirstHundredFaults) {
  const CatalogFiles catalog;
  std::string stream;
  for (int i = 1; i <= 130; ++i) stream += rd("http://localhost/" + std::to_string(i), {{"title", "T"}});
  catalog.update(stream);
  catalog.index();
  std::string bytes = support::read_file(catalog.path(".idx"));
  for (size_t entry = 8; entry < bytes.size(); entry += 20) bytes[entry + 7] = '!';
  support::write_file(catalog.path(".idx"), bytes);
  const Finished finished = catalog.run({"verify"});
  EXPECT_EQ(finished.out, "damaged: 130 faults\n");
  EXPECT_EQ(std::count(finished.errors.begin(), finished.errors.end(), '\n'), 101);
  EXPECT_THAT(finished.errors, testing::EndsWith("minidba: and 30 more\n"));
}

}  // namespace
