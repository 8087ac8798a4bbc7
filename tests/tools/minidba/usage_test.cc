#include <gtest/gtest.h>

#include "catalog_files.h"

namespace {

using support::Finished;

class Usage : public testing::Test {
 protected:
  /// expect_failure asserts exit status 2, one line on standard error and nothing on standard output.
  void expect_failure(const std::vector<std::string> &words, const std::string &text) {
    std::vector<std::string> arguments{BINARY_DIR "/bin/minidba"};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const Finished finished = support::run(arguments);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    EXPECT_EQ(finished.errors, "minidba: " + text + "\n");
  }
  CatalogFiles catalog_;
};

TEST_F(Usage, SaysWhatIsMissingOrUnknown) {
  expect_failure({}, "--database is required");
  expect_failure({"update"}, "--database is required");
  expect_failure({"-d", catalog_.path()}, "a verb is required: update or index");
  expect_failure({"-d", catalog_.path(), "explode"}, "The following argument was not expected: explode");
  expect_failure({"-d", catalog_.path(), "--explode", "update"}, "The following argument was not expected: --explode");
  expect_failure({"-d", catalog_.path(), "index"}, "index: --index is required");
  EXPECT_TRUE(catalog_.files().empty());
}

TEST_F(Usage, NamesTheFileThatIsNotThere) {
  expect_failure({"-d", catalog_.path(), "-i", catalog_.path(".idx"), "index"}, "not there: " + catalog_.path());
  expect_failure({"-d", "/nonexistent/catalog.db", "update"},
                 "cannot lock /nonexistent/catalog.db.lock: No such file or directory");
  EXPECT_TRUE(catalog_.files().empty());
}

TEST_F(Usage, NamesTheFileThatIsNotADatabase) {
  for (const std::string &text : {std::string(), std::string("not a database"), std::string(70000, '\0')}) {
    support::write_file(catalog_.path(), text);
    expect_failure({"-d", catalog_.path(), "update"}, "not a sound hash database: " + catalog_.path());
    expect_failure({"-d", catalog_.path(), "-i", catalog_.path(".idx"), "index"},
                   "not a sound hash database: " + catalog_.path());
    EXPECT_EQ(support::read_file(catalog_.path()), text);
  }
}

TEST_F(Usage, HelpAndVersionSucceed) {
  for (const char *option : {"--help", "--version"}) {
    const Finished finished = support::run({BINARY_DIR "/bin/minidba", option});
    EXPECT_EQ(finished.status, 0) << option;
    EXPECT_NE(finished.out, "") << option;
    EXPECT_EQ(finished.errors, "") << option;
  }
}

}  // namespace
