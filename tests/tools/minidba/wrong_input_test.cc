// SPDX-License-Identifier: MIT
/// Empty, foreign or truncated input changes no file of the catalog: not its bytes, times or inode.
///
/// Regression: `minidba import --replace </dev/null` emptied a catalog and reported success, and so did an import from
/// an export that had failed.
#include <sys/stat.h>
#include <unistd.h>

#include <map>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "support/directories.h"
#include "tools/minidba/verb.h"

using namespace rdm;
using namespace std::string_literals;

namespace {

using support::Finished;
using testing::HasSubstr;

struct Foreign {
  const char *what;
  std::string bytes;
};

/// foreign_inputs returns inputs without valid descriptions; some have at-signs.
const std::vector<Foreign> &foreign_inputs() {
  static const std::vector<Foreign> all = {
      {"nothing", ""},
      {"white space", " \n\t\n\n"},
      {"a gzip file", "\x1f\x8b\x08\0\0\0\0\0\0\x03\x4b\xcb\x40\xcf\x57\x00@\x7f\x9a{\x05\0\0}\0"s},
      {"an HTML page",
       "<!DOCTYPE html>\n<html><head><style>\n@media print { a { color: red } }\n@import url(x.css);\n</style></head>\n"
       "<body><h1>502 Bad Gateway</h1>\nwrite to admin@example.org</body></html>\n"},
      {"an mbox",
       "From list@example.org Sat Nov 21 04:51:09 2026\nFrom: A <a@example.org>\nTo: list@example.org\nSubject: {1}\n\n"
       "@B: Hello\n\n-- \na@example.org\n\n"},
      {"an error message", "ssh: connect to host catalog.example.org port 22: Connection refused\n"},
      {"a header without descriptions", "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{11}:\trd-response\n}\n\n\n"},
      {"malformed objects only", "@DOCUMENT { http://localhost/1\ntitle{3}:One\n}\n@DOCUMENT { -\n}\n@"},
      {"an object that is cut", "@DOCUMENT { http://localhost/1\ntitle{3}:\tOn"},
  };
  return all;
}

/// State is the bytes, inode and st_mtim of every file in a directory.
using State = std::map<std::string, std::tuple<std::string, ino_t, time_t, long>>;

State state_of(const CatalogFiles &catalog) {
  State state;
  for (const std::string &name : catalog.files()) {
    const std::string path = catalog.directory() + "/" + name;
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    state[name] = {support::read_file(path), status.st_ino, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
  }
  return state;
}

class WrongInput : public testing::Test {
 protected:
  WrongInput() {
    for (int i = 1; i <= 3; ++i)
      stream_ += rd("http://localhost/" + std::to_string(i),
                    {{"title", std::to_string(i)}, {"body", {"a}\n@A { b\n}\n@\n", 14}}});
    catalog_.update(stream_);
    catalog_.index();
  }
  Finished run(std::vector<std::string> words, const std::string &input) const {
    words.insert(words.begin(), {"-d", catalog_.path()});
    return run_verb(words, input);
  }
  /// expect_refused asserts that a verb fails with a reason and leaves everything as it was.
  void expect_refused(const std::vector<std::string> &words, const std::string &input, const std::string &reason) {
    const State before = state_of(catalog_);
    const Finished finished = run(words, input);
    EXPECT_EQ(finished.status, 2) << reason;
    EXPECT_EQ(finished.out, "") << reason;
    EXPECT_THAT(finished.errors, testing::EndsWith("minidba: " + reason + "\n"));
    EXPECT_TRUE(state_of(catalog_) == before) << reason;
  }

  std::string stream_;
  CatalogFiles catalog_;
  const std::string no_header_ = "no export header in front of the input: nothing is imported without --no-header";
};

TEST_F(WrongInput, AnUpdateThatUnderstandsNothingChangesNothing) {
  ::unlink(catalog_.path(".url").c_str());  // an update writes it only if it accepts a description
  const State before = state_of(catalog_);
  for (const Foreign &foreign : foreign_inputs())
    for (const bool can_be_read_twice : {true, false}) {
      const Finished finished = run_verb({"-d", catalog_.path(), "update"}, foreign.bytes, can_be_read_twice);
      EXPECT_EQ(finished.status, 1) << foreign.what;
      EXPECT_EQ(finished.out, "0\n") << foreign.what << ": the service reads this number";
      EXPECT_THAT(finished.errors, HasSubstr("minidba: no valid description in the input: the catalog is unchanged\n"));
      EXPECT_TRUE(state_of(catalog_) == before) << foreign.what;
    }
}

TEST_F(WrongInput, AnUpdateThatUnderstandsNothingMakesNoCatalog) {
  for (const Foreign &foreign : foreign_inputs()) {
    const CatalogFiles none;
    const Finished finished = none.update(foreign.bytes);
    EXPECT_EQ(finished.status, 1) << foreign.what;
    EXPECT_EQ(finished.out, "0\n") << foreign.what;
    EXPECT_TRUE(none.files().empty()) << foreign.what;
  }
}

TEST_F(WrongInput, ADryRunOfAnUpdateThatUnderstandsNothingSaysSoToo) {
  EXPECT_EQ(run({"update", "--dry-run"}, "").status, 1);
  EXPECT_EQ(
      run({"update", "--json"}, "").out,
      "{\"verb\":\"update\",\"dry-run\":false,\"accepted\":0,\"new\":0,\"changed\":0,\"unchanged\":0,\"rejected\":"
      "0,\"rejects\":[]}\n");
}

TEST_F(WrongInput, AnEmptyUpdateLeavesTheRejectsOfAnEarlierOne) {
  const std::string rejects = catalog_.path(".rejects"), malformed = "@D { http://localhost/9\ntitle{3}:Two\n}\n";
  EXPECT_EQ(run({"update", "--rejects", rejects}, malformed).status, 1);
  EXPECT_EQ(support::read_file(rejects), malformed) << "what was refused can be mended";
  const State before = state_of(catalog_);
  EXPECT_EQ(run({"update", "--rejects", rejects}, "").status, 1);
  EXPECT_TRUE(state_of(catalog_) == before);
}

TEST_F(WrongInput, AnImportNeedsAnExportHeader) {
  for (const Foreign &foreign : foreign_inputs()) {
    expect_refused({"import", "--replace"}, foreign.bytes, no_header_);
    expect_refused({"import", "--replace", "--allow-empty"}, foreign.bytes, no_header_);
  }
  expect_refused({"import", "--replace"}, stream_, no_header_);
  expect_refused({"import", "--replace"}, "@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n" + stream_, no_header_);
  EXPECT_EQ(run({"import", "--replace", "--no-header"}, stream_).out, "3\n");
}

TEST_F(WrongInput, AnImportOfNothingIsRefusedUnlessAllowed) {
  const std::string over_some =
      "the input has no descriptions and " + catalog_.path() + " has some: nothing is imported without --allow-empty";
  const std::string rejects = catalog_.path(".rejects");
  expect_refused({"import", "--replace"}, export_header("9", "0"), over_some);
  expect_refused({"import", "--replace", "--no-header"}, "", over_some);
  expect_refused({"import", "--replace", "--no-header", "--rejects", rejects}, "@D { -\n}\n", over_some);
  EXPECT_EQ(run({"import", "--replace", "--allow-empty"}, export_header("9", "0")).out, "0\n");
  EXPECT_EQ(run({"list"}, "").out, "");
  EXPECT_EQ(run({"import", "--replace"}, export_header("9", "0")).status, 0) << "there was nothing left to lose";
  expect_refused({"import", "--replace", "--no-header"}, "",
                 "no descriptions in the input: nothing is imported without --allow-empty");
  EXPECT_EQ(run({"import", "--replace", "--no-header", "--allow-empty"}, "").status, 0);
}

// A catalog that cannot be read may hold descriptions: salvage may find them.
TEST_F(WrongInput, AnUnreadableCatalogCountsAsNotEmpty) {
  for (const std::string &bytes : {std::string(), std::string("damaged"), std::string(100'000, 'x')}) {
    support::write_file(catalog_.path(), bytes);
    expect_refused({"import", "--replace"}, export_header("9", "0"),
                   "the input has no descriptions and " + catalog_.path() +
                       " has some: nothing is imported without --allow-empty");
    EXPECT_EQ(run({"import", "--replace", "--allow-empty", "--dry-run"}, export_header("9", "0")).out, "0\n");
  }
}

TEST_F(WrongInput, AnImportBehindAnExportThatFailsChangesNothing) {
  const State before = state_of(catalog_);
  const std::string import = catalog_.shell_command("import --replace");
  const std::string absent = support::in_build("bin/minidba") + " -d /nonexistent/catalog.db export";
  const std::string cut = "(" + catalog_.shell_command("export") + " | head -c 300)";
  for (const std::string &exporting : {absent, cut, std::string("false")}) {
    const Finished finished = support::run({"/bin/sh", "-c", exporting + " | " + import});
    EXPECT_EQ(finished.status, 2) << exporting;
    EXPECT_TRUE(state_of(catalog_) == before) << exporting;
  }
}

// The header announces the number of descriptions. Only missing white space at the end is not noticed.
TEST_F(WrongInput, AnExportCutAnywhereChangesNothing) {
  const std::string whole = run({"export"}, "").out;
  const State before = state_of(catalog_);
  const std::string rejects = catalog_.path(".rejects");
  for (size_t size = 0; size < whole.size() - 1; ++size) {
    const std::string cut = whole.substr(0, size);
    EXPECT_EQ(run({"import", "--replace", "--allow-empty", "--rejects", rejects}, cut).status, 2) << size;
    // Without a whole header, the stream has no valid description.
    EXPECT_EQ(run({"update", "--rejects", rejects}, cut).status, cut.find("\n}") == std::string::npos ? 1 : 2) << size;
    if (support::file_exists(rejects)) ::unlink(rejects.c_str());
    ASSERT_TRUE(state_of(catalog_) == before) << size;
  }
  EXPECT_EQ(run({"import", "--replace"}, whole.substr(0, whole.size() - 1)).out, "3\n");
}

TEST_F(WrongInput, ACutExportIsSaidToBe) {
  std::string whole = export_header("4", "3");
  for (const char *url : {"http://localhost/1", "http://localhost/4", "http://localhost/5"})
    whole += rd(url, {{"title", "T"}});
  for (const char *verb : {"import", "update"}) {
    const std::vector<std::string> words =
        verb == std::string("import") ? std::vector<std::string>{verb, "--replace"} : std::vector<std::string>{verb};
    const size_t last = whole.rfind("@DOCUMENT");
    expect_refused(words, whole.substr(0, last), "the header announces 3 descriptions and 2 follow");
    expect_refused(words, whole.substr(0, whole.size() - 3),
                   "the input ends within object 4 at byte " + std::to_string(last));
  }
}

// A malformed object within an export does not mean truncation: an update accepts the others.
TEST_F(WrongInput, AnUpdateTakesAnExportWithAMalformedObject) {
  const std::string stream = export_header("9", "3") + rd("http://localhost/a", {{"title", "A"}}) +
                             "@DOCUMENT { http://localhost/b\ntitle{3}:Two\n}\n" +
                             rd("http://localhost/c", {{"body", "\n@ line that looks like an object\n"}});
  EXPECT_EQ(run({"update"}, stream).out, "2\n");
}

}  // namespace
