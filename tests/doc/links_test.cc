// SPDX-License-Identifier: MIT
/// The check of the links of documents.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

struct Case {
  std::string name;
  const char *text;
  const char *fault;  // empty: none
};

class Links : public ::testing::Test {
 protected:
  void SetUp() override { directory_.write("there.md", "# One\n## Two words, `code`\n## One\n"); }

  /// expect_faults checks a document for each case, with this suffix of its name, and compares what is reported.
  template <size_t count>
  void expect_faults(const Case (&cases)[count], const std::string &suffix) {
    std::vector<std::string> command = {PYTHON, "-B", support::in_source("doc/reference/links.py")};
    std::string expected;
    for (const Case &one : cases) {
      command.push_back(directory_.write(one.name + suffix, one.text));
      if (*one.fault != '\0') expected += command.back() + ": " + one.fault + "\n";
    }
    const support::Finished finished = support::run(command);
    EXPECT_EQ(finished.status, 1) << finished.errors;
    EXPECT_EQ(finished.out, expected);
  }

  support::TemporaryDirectory directory_;
};

TEST_F(Links, OfMarkdownLeadSomewhere) {
  const Case cases[] = {
      {"a file", "[x](there.md)", ""},
      {"a heading", "[x](there.md#two-words-code)", ""},
      {"the second of equal headings", "[x](there.md#one-1)", ""},
      {"a heading of the document", "# Here\n[x](#here)", ""},
      {"another site", "[x](https://example.org/y#z)", ""},
      {"a block of code", "```\n[x](nowhere.md)\n```\n", ""},
      {"code in a line", "`[x](nowhere.md)`", ""},
      {"a missing file", "[x](nowhere.md)", "nowhere.md does not exist"},
      {"a missing picture", "![x](nowhere.svg)", "nowhere.svg does not exist"},
      {"a missing heading", "[x](there.md#three)", "there.md#three: there is no such heading"},
      {"a missing heading of the document", "[x](#three)", "#three: there is no such heading"},
  };
  expect_faults(cases, ".md");
}

TEST_F(Links, OfHtmlLeadSomewhereAndLoadNothingFromElsewhere) {
  const Case cases[] = {
      {"an anchor", "<p id=\"x\"><a href=\"#x\">x</a>", ""},
      {"a site", "<a href=\"https://example.org/\">x</a>", ""},
      {"a missing file", "<a href=\"nowhere.html\">x</a>", "nowhere.html does not exist"},
      {"a missing anchor", "<a href=\"#y\">x</a>", "#y: there is no such heading"},
      {"a missing script", "<script src=\"x.js\"></script>", "x.js does not exist"},
      {"a script from elsewhere", "<script src=\"https://example.org/x.js\"></script>",
       "https://example.org/x.js is loaded from elsewhere"},
      {"a style from elsewhere", "<link rel=\"stylesheet\" href=\"//example.org/x.css\">",
       "//example.org/x.css is loaded from elsewhere"},
  };
  expect_faults(cases, ".html");
}

TEST_F(Links, ThatAreSoundAreNotReported) {
  const std::string file = directory_.write("sound.md", "[x](there.md)");
  const support::Finished finished = support::run({PYTHON, "-B", support::in_source("doc/reference/links.py"), file});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "");
}

}  // namespace
