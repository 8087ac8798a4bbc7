// SPDX-License-Identifier: MIT
/// The check of the links of documents.

#include <string>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

struct Case {
  const char *name, *text;
  const char *faults;  // of the document, without its name
};

class Links : public ::testing::Test {
 protected:
  void SetUp() override { directory_.write("there.md", "# One\n## Two words, `code`\n## One\n"); }

  /// faults_in returns the output of the check for a document.
  std::string faults_in(const std::string &name, const std::string &text) {
    const std::string file = directory_.write(name, text);
    const support::Finished finished = support::run({PYTHON, "-B", support::in_source("doc/reference/links.py"), file});
    EXPECT_EQ(finished.status, finished.out.empty() ? 0 : 1) << finished.errors;
    return finished.out.starts_with(file + ": ") ? finished.out.substr(file.size() + 2) : finished.out;
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
      {"a missing file", "[x](nowhere.md)", "nowhere.md does not exist\n"},
      {"a missing picture", "![x](nowhere.svg)", "nowhere.svg does not exist\n"},
      {"a missing heading", "[x](there.md#three)", "there.md#three: there is no such heading\n"},
      {"a missing heading of the document", "[x](#three)", "#three: there is no such heading\n"},
  };
  for (const Case &one : cases) EXPECT_EQ(faults_in("document.md", one.text), one.faults) << one.name;
}

TEST_F(Links, OfHtmlLeadSomewhereAndLoadNothingFromElsewhere) {
  const Case cases[] = {
      {"an anchor", "<p id=\"x\"><a href=\"#x\">x</a>", ""},
      {"a site", "<a href=\"https://example.org/\">x</a>", ""},
      {"a missing file", "<a href=\"nowhere.html\">x</a>", "nowhere.html does not exist\n"},
      {"a missing anchor", "<a href=\"#y\">x</a>", "#y: there is no such heading\n"},
      {"a missing script", "<script src=\"x.js\"></script>", "x.js does not exist\n"},
      {"a script from elsewhere", "<script src=\"https://example.org/x.js\"></script>",
       "https://example.org/x.js is loaded from elsewhere\n"},
      {"a style from elsewhere", "<link rel=\"stylesheet\" href=\"//example.org/x.css\">",
       "//example.org/x.css is loaded from elsewhere\n"},
  };
  for (const Case &one : cases) EXPECT_EQ(faults_in("document.html", one.text), one.faults) << one.name;
}

}  // namespace
