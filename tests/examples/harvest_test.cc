// SPDX-License-Identifier: MIT
/// The example gatherers in Python, Go and C keep copies of a catalog that changes, over connections that break.
#include <algorithm>
#include <ctime>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/environment.h"
#include "support/files.h"
#include "support/process.h"
#include "tools/rdm/chaos_proxy.h"
#include "tools/rdm/scripted_server.h"
#include "tools/rdm/served_catalog.h"

using namespace rdm;
using namespace rdm::client;
using testing::HasSubstr;

namespace {

using Words = std::vector<std::string>;

std::string sample(const std::string &name) { return support::in_source("examples/harvest/" + name); }

bool has_go() { return support::run({"/bin/sh", "-c", "command -v go"}).status == 0; }

/// in_order returns descriptions in the order of their URLs.
std::string in_order(const std::string &text) {
  Words descriptions;
  for (size_t at = 0, end = 0; at < text.size(); at = end) {
    end = std::min(text.find("\n@", at), text.size() - 1) + 1;
    descriptions.push_back(text.substr(at, end - at));
  }
  std::sort(descriptions.begin(), descriptions.end());
  std::string ordered;
  for (const std::string &description : descriptions) ordered += description;
  return ordered;
}

/// replace_by_old makes a catalog of descriptions that changed days ago, the first one first.
void replace_by_old(const ServedCatalog &catalog, const Words &urls) {
  std::string text;
  constexpr time_t day = 86400;
  time_t changed = std::time(nullptr) - 30 * day;
  for (const std::string &url : urls) text += text_of({url, changed += day});
  const std::string minidba = support::in_build("bin/minidba"), database = catalog.database();
  EXPECT_EQ(support::run({minidba, "-d", database, "import", "--replace", "--no-header"}, text).status, 0);
  EXPECT_EQ(support::run({minidba, "-d", database, "-i", database + ".idx", "index"}).status, 0);
}

/// build_go compiles the sample once in a test program, with the compiler's cache in the build directory. Several test
/// programs run at once, so each has a file of its own.
std::string build_go() {
  static const support::TemporaryDirectory directory;
  static const std::string program = directory.path("harvest");
  static const support::Finished built = [] {
    const support::Environment cache("GOCACHE", support::in_build("examples/go-cache").c_str());
    return support::run({"/bin/sh", "-c", "exec go build -o \"$0\" \"$1\"", program, sample("harvest.go")});
  }();
  EXPECT_EQ(built.status, 0) << built.errors;
  return program;
}

/// Gatherer runs the sample of a language.
class Gatherer : public ::testing::TestWithParam<const char *> {
 protected:
  void SetUp() override {
    const std::string language = GetParam();
    if (language == "Go" && !has_go()) GTEST_SKIP() << "there is no Go compiler: scripts/deps go installs it";
    program_ = language == "Python" ? Words{"/usr/bin/env", "python3", sample("harvest.py")}
               : language == "Go"   ? Words{build_go()}
                                    : Words{support::in_build("examples/harvest")};
  }

  support::Finished run(const std::string &url, const Words &more = {}) {
    const support::Environment no_proxy("no_proxy", "*");
    Words words = program_;
    words.insert(words.end(), {url, copy()});
    words.insert(words.end(), more.begin(), more.end());
    return support::run(words);
  }
  std::string copy() const { return directory_.path("copy.soif"); }

  /// expect_equal_after runs the sample and expects the copy to be what the catalog lists, in the order of the URLs.
  void expect_equal_after(const std::string &url, const ServedCatalog &catalog, const std::string &said) {
    const support::Finished done = run(url);
    EXPECT_EQ(done.status, 0) << done.errors;
    EXPECT_EQ(done.out, said + "\n");
    EXPECT_EQ(support::read_file(copy()), in_order(catalog.listed()));
  }
  support::TemporaryDirectory directory_;

 private:
  Words program_;
};

TEST_P(Gatherer, CopiesACatalogAndFollowsItsChanges) {
  ServedCatalog catalog(20);
  expect_equal_after(catalog.url(), catalog, "20 sent, 0 gone, 20 held");
  catalog.update({{"x:3", "another title"}, {"x:new", "a new one"}});
  catalog.erase({"x:5", "x:7"});
  expect_equal_after(catalog.url(), catalog, "19 sent, 2 gone, 19 held");
}

TEST_P(Gatherer, AsksOnlyForWhatChanged) {
  ServedCatalog catalog(1);
  replace_by_old(catalog, {"x:a", "x:b", "x:c", "x:d"});
  expect_equal_after(catalog.url(), catalog, "4 sent, 0 gone, 4 held");
  expect_equal_after(catalog.url(), catalog, "0 sent, 0 gone, 4 held");
  catalog.update({{"x:a", "another title"}, {"x:e", "a new one"}});
  expect_equal_after(catalog.url(), catalog, "2 sent, 0 gone, 5 held");
}

TEST_P(Gatherer, MissesNoChangeThatASearchCannotFind) {
  ServedCatalog catalog(1);
  replace_by_old(catalog, {"x:a", "x:b", "x:c"});
  expect_equal_after(catalog.url(), catalog, "3 sent, 0 gone, 3 held");
  // The search narrows to the last entry, and the server answers that there is nothing.
  catalog.update({{"x:c", "another title"}});
  expect_equal_after(catalog.url(), catalog, "3 sent, 0 gone, 3 held");
}

TEST_P(Gatherer, TriesAgainWhenTheServerIsBusyOrAnAnswerIsCut) {
  ServedCatalog catalog(200);
  int connections = 0;
  ChaosProxy proxy(
      catalog.port(),
      [&connections] {
        Fate fate;
        fate.is_refused = connections == 0;
        if (connections == 1) fate.cut = 5000;
        ++connections;
        return fate;
      },
      [] {});
  expect_equal_after(proxy.url(), catalog, "200 sent, 0 gone, 200 held");
  EXPECT_GE(connections, 3);
}

TEST_P(Gatherer, DoesNotBelieveASuddenEmptiness) {
  ServedCatalog catalog(10);
  expect_equal_after(catalog.url(), catalog, "10 sent, 0 gone, 10 held");
  const std::string before = support::read_file(copy());
  catalog.erase({"x:0", "x:1", "x:2", "x:3", "x:4", "x:5"});
  const support::Finished done = run(catalog.url());
  EXPECT_EQ(done.status, 3);
  EXPECT_THAT(done.errors, HasSubstr("10 descriptions are held, 4 are left"));
  EXPECT_EQ(support::read_file(copy()), before);
}

TEST_P(Gatherer, ShowsTheWordsOfARefusal) {
  ServedCatalog catalog(1);
  const support::Finished done = run(catalog.url(), {"x-catalog://h:1/other"});
  EXPECT_EQ(done.status, 3);
  EXPECT_THAT(done.errors, HasSubstr("Unknown CSID: x-catalog://h:1/other"));
  EXPECT_FALSE(support::file_exists(copy()));
}

INSTANTIATE_TEST_SUITE_P(Languages, Gatherer, ::testing::Values("Python", "Go", "C"),
                         [](const auto &language) { return std::string(language.param); });

}  // namespace
