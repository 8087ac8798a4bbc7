// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Key;
using testing::StartsWith;

const std::string late = "Fri, 01 Jan 2016 00:00:00 GMT";

/// with_number returns a record as an export writes it.
std::string with_number(const std::string &record, const std::string &number) {
  std::string text = record;
  text.insert(record.find('\n') + 1, "minidba-number{" + std::to_string(number.size()) + "}:\t" + number + "\n");
  return text;
}

class Export : public testing::Test {
 protected:
  Export() {
    std::string stream;
    for (int i = 1; i <= 12; ++i)
      stream += rd("http://localhost/" + std::to_string(i), {{"title", std::to_string(i)}, {"body", {"a\0\n}@", 5}}});
    catalog_.update(stream);
    catalog_.run({"delete", "http://localhost/3", "http://localhost/12"});
    set_time("http://localhost/10", late);
  }
  /// set_time changes the time of change of a description.
  void set_time(const std::string &url, const std::string &time) {
    auto records = catalog_.records();
    for (auto &[key, record] : records)
      if (record.find(url + "\n") != std::string::npos) {
        record.replace(record.find("rd-last-changed{29}:\t") + 21, 29, time);
        catalog_.put(key, record);
      }
  }
  std::string exported() { return catalog_.run({"export"}).out; }
  CatalogFiles catalog_, other_;
};

TEST_F(Export, IsAHeaderAndTheDescriptionsByNumber) {
  std::string expected = export_header("11", "10");
  for (const auto &[key, record] : catalog_.records())
    expected += with_number(record, std::to_string(std::stoul(key, nullptr, 16)));
  // After a change by another program, the trailer does not tell which numbers are used.
  unlink(catalog_.path(".url").c_str());
  EXPECT_THAT(exported(), StartsWith("@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{11}:\trd-response\n"));
  EXPECT_EQ(exported().substr(exported().find("@DOCUMENT")), expected.substr(expected.find("@DOCUMENT")));
}

TEST_F(Export, ReplacesAFileAsAWhole) {
  const std::string file = other_.path(".soif");
  support::write_file(file, "before");
  Finished finished = catalog_.run({"export", file, "--dry-run"});
  EXPECT_EQ(finished.out, "10\n");
  EXPECT_EQ(support::read_file(file), "before");
  finished = catalog_.run({"export", file});
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "10\n");
  EXPECT_EQ(support::read_file(file), exported());
  EXPECT_EQ(catalog_.run({"export", file, "--json"}).out, "{\"verb\":\"export\",\"dry-run\":false,\"exported\":10}\n");
  EXPECT_THAT(other_.files(), ElementsAre("catalog.db.soif"));
}

/// Regression: a file named "-" appeared in the working directory.
TEST_F(Export, ADashIsStandardOutput) {
  EXPECT_EQ(catalog_.run({"export", "-"}).out, exported());
  EXPECT_EQ(catalog_.run({"salvage", "-"}).out, exported());
  for (const std::vector<std::string> &words :
       {std::vector<std::string>{"export", "--json", "-"}, {"export", "--json"}})
    EXPECT_EQ(catalog_.run(words).errors, "minidba: --json needs a FILE to export to; see \"minidba export --help\"\n");
  EXPECT_EQ(catalog_.run({"update", "--rejects", "-"}).errors,
            "minidba: --rejects: must be a file; see \"minidba update --help\"\n");
  EXPECT_FALSE(support::file_exists("-"));
}

TEST_F(Export, RefusesFilesItCannotReplace) {
  const std::string pipe = other_.path(".pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(catalog_.run({"export", pipe}).errors, "minidba: not a regular file: " + pipe + "\n");
  EXPECT_EQ(catalog_.run({"export", "/nonexistent/x"}).errors,
            "minidba: cannot create /nonexistent/x.new: No such file or directory\n");
}

TEST_F(Export, ComesBackAsTheSameCatalog) {
  const Finished finished = other_.run({"import"}, exported());
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, "10\n");
  EXPECT_EQ(finished.errors, "minidba: 10 imported, 0 numbered anew, 0 rejected\n");
  EXPECT_EQ(other_.records(), catalog_.records()) << "numbers, times of change and all other bytes";
  EXPECT_EQ(other_.run({"export"}).out, exported());
  EXPECT_EQ(support::run(other_.command({"verify"})).out, "sound: 10 descriptions, no index\n");
}

TEST_F(Export, IsASubmissionToOtherCatalogs) {
  const Finished finished = other_.update(exported());
  EXPECT_EQ(finished.errors, "minidba: 10 new, 0 changed, 0 unchanged, 0 rejected\n");
  EXPECT_EQ(other_.records().begin()->second.find("minidba-number"), std::string::npos);
  EXPECT_EQ(catalog_.update(exported()).errors, "minidba: 0 new, 0 changed, 10 unchanged, 0 rejected\n");
}

class Import : public testing::Test {
 protected:
  static std::string numbered(const std::string &number, const std::string &url) {
    return rd(url, {{"minidba-number", number}, {"title", "T"}});
  }
  /// expect_refused asserts exit status 2, a message, and that no file was created.
  void expect_refused(const std::string &stream, const std::string &message) {
    const Finished finished = catalog_.run({"import", "--no-header"}, stream);
    EXPECT_EQ(finished.status, 2) << message;
    EXPECT_EQ(finished.out, "") << message;
    EXPECT_THAT(finished.errors, testing::EndsWith("minidba: " + message + "\n"));
    EXPECT_TRUE(catalog_.files().empty());
  }
  CatalogFiles catalog_;
};

TEST_F(Import, RemembersWhichNumbersWereUsed) {
  catalog_.run({"import"}, export_header("77", "1") + numbered("5", "http://localhost/5"));
  catalog_.update(rd("http://localhost/new", {{"title", "New"}}));
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("00000005"), Key("0000004d")));
}

// The commit changes no record, but the next number.
TEST_F(Import, RemembersWhichNumbersWereUsedWhenACatalogStaysEmpty) {
  catalog_.make_empty();
  EXPECT_EQ(catalog_.run({"import", "--replace"}, export_header("30", "0")).out, "0\n");
  EXPECT_EQ(catalog_.run({"export"}).out, export_header("30", "0"));
  catalog_.update(rd("http://localhost/new", {{"title", "New"}}));
  EXPECT_THAT(catalog_.records(), ElementsAre(Key("0000001e")));
}

TEST_F(Import, UnnumberedDescriptionsGetTheHighestNumbers) {
  const Finished finished =
      catalog_.run({"import"}, export_header("1", "3") + rd("http://localhost/a", {{"title", "A"}}) +
                                   numbered("9", "http://localhost/9") + rd("http://localhost/b", {{"title", "B"}}));
  EXPECT_EQ(finished.errors, "minidba: 3 imported, 2 numbered anew, 0 rejected\n");
  const auto records = catalog_.records();
  EXPECT_THAT(records, ElementsAre(Key("00000009"), Key("0000000a"), Key("0000000b")));
  EXPECT_EQ(CatalogFiles::value(records.at("0000000b"), "title"), "B");
}

TEST_F(Import, RefusesACatalogThatIsThereUnlessAsked) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}) + rd("http://localhost/2", {{"title", "Two"}}));
  const auto before = catalog_.records();
  const std::string stream =
      export_header("8", "2") + numbered("2", "http://localhost/1") + numbered("7", "http://localhost/7");
  Finished finished = catalog_.run({"import"}, stream);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: database exists: " + catalog_.path() + " (--replace replaces it)\n");
  finished = catalog_.run({"import", "--replace", "--dry-run", "--json"}, stream);
  EXPECT_EQ(finished.out,
            "{\"verb\":\"import\",\"dry-run\":true,\"imported\":2,\"numbered-anew\":0,\"rejected\":0,"
            "\"rejects\":[]}\n");
  EXPECT_EQ(catalog_.records(), before);
  EXPECT_EQ(catalog_.run({"import", "--replace"}, stream).status, 0);
  EXPECT_EQ(catalog_.run({"list", "--format", "tsv", "--attributes", "title"}).out,
            "2\thttp://localhost/1\tT\n7\thttp://localhost/7\tT\n");
  EXPECT_EQ(support::run(catalog_.command({"verify"})).out, "sound: 2 descriptions, no index\n");
}

TEST_F(Import, TheLastNumberCanBeUsed) {
  catalog_.run({"import", "--no-header"}, numbered("4294967295", "http://localhost/last"));
  const Finished finished = catalog_.update(rd("http://localhost/new", {{"title", "New"}}));
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: no number is left in " + catalog_.path() + "\n");
  EXPECT_THAT(catalog_.run({"export"}).out, HasSubstr("minidba-next-number{1}:\t0\n"));
}

TEST_F(Import, LosesNothingWithoutBeingAskedTo) {
  const std::string one = numbered("1", "http://localhost/1");
  const struct {
    std::string stream, message;
  } rows[] = {
      {one + numbered("1", "http://localhost/2"), "its number was there before"},
      {one + numbered("2", "http://localhost/1"), "its URL was there before"},
      {one + rd("http://localhost/1", {{"title", "T"}}), "its URL was there before"},
      {numbered("0", "http://localhost/1"), "minidba-number is not a number from 1"},
      {numbered("x", "http://localhost/1"), "minidba-number is not a number from 1"},
      {numbered("4294967296", "http://localhost/1"), "minidba-number is not a number from 1"},
      {numbered("1", "-"), "no URL"},
      {one + "@D { http://localhost/2\ntitle{3}:Two\n}\n", "no colon and tab after title{3}"},
      {one.substr(0, one.size() - 2), "not closed"},
  };
  for (const auto &row : rows) {
    expect_refused(row.stream, "1 object rejected: nothing is imported without --rejects");
    EXPECT_THAT(catalog_.run({"import", "--no-header"}, row.stream).errors,
                HasSubstr("rejected: " + row.message + "\n"));
    // With --json, the reasons are in the report.
    const std::string json = catalog_.run({"import", "--no-header", "--json"}, row.stream).out;
    EXPECT_THAT(json, testing::StartsWith("{\"verb\":\"import\",\"dry-run\":false,\"imported\":0,\"rejected\":1,"));
    EXPECT_THAT(json, HasSubstr("\"reason\":\"" + row.message + "\""));
  }
}

TEST_F(Import, RefusesMoreDescriptionsThanAnnounced) {
  expect_refused(export_header("3", "1") + numbered("1", "http://localhost/1") + numbered("2", "http://localhost/2"),
                 "the header announces 1 description and 2 follow");
}

TEST_F(Import, WithRejectsSoundDescriptionsAreImported) {
  const std::string one = numbered("1", "http://localhost/1"), bad = "@D { http://localhost/2\ntitle{3}:Two\n}\n";
  const Finished finished =
      catalog_.run({"import", "--rejects", catalog_.path(".rejects")}, export_header("3", "2") + one + bad);
  EXPECT_EQ(finished.status, 1) << finished.errors;
  EXPECT_EQ(finished.out, "1\n");
  EXPECT_EQ(support::read_file(catalog_.path(".rejects")), bad);
}

}  // namespace
