// SPDX-License-Identifier: MIT
#include "service/csid.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "service/alias.h"
#include "support/diagnostics.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

/// The registry over configuration files of the test's own directory.
class Csid : public support::HostTest {
 protected:
  void TearDown() override { csid_terminate(); }

  int init(const std::string &text, const char *default_csid = nullptr) {
    return csid_init(directory.write("csid.conf", text).c_str(), default_csid);
  }

  static std::string value(const char *name, const char *csid) {
    const char *found = csid_findval(name, csid);
    return found == nullptr ? "(none)" : found;
  }

  std::string file() const { return directory.path("csid.conf"); }

  support::TemporaryDirectory directory;
  support::Diagnostics diagnostics;
};

TEST_F(Csid, EachServiceHasThePairsOfItsOwnLines) {
  EXPECT_EQ(init("csid=\"x-catalog://h:1/one\" catalog-database=\"/db/one\"\n"
                 "alpha=\"1\"\n"
                 "beta=\"2\" gamma=\"3\"\n"
                 "csid=\"x-catalog://h:1/two\"\n"
                 "catalog-database=\"/db/two\" alpha=\"4\"\n",
                 "x-catalog://h:1/two"),
            0);
  const char *const one = "x-catalog://h:1/one", *const two = "x-catalog://h:1/two";
  const struct {
    const char *name, *of_one, *of_two;
  } rows[] = {{"csid", one, two},       {"catalog-database", "/db/one", "/db/two"},
              {"alpha", "1", "4"},      {"beta", "2", "(none)"},
              {"gamma", "3", "(none)"}, {"delta", "(none)", "(none)"}};
  for (const auto &row : rows) {
    EXPECT_EQ(value(row.name, one), row.of_one) << row.name;
    EXPECT_EQ(value(row.name, two), row.of_two) << row.name;
  }
  EXPECT_STREQ(csid_default(nullptr), two);
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Csid, CommentsAndLinesWithoutPairsOrServiceAreIgnored) {
  EXPECT_EQ(init("# csid=comment\n"
                 "\n"
                 "a=0 b=0\n"
                 "csid=one a=1\n"
                 "#csid=comment\n"
                 "\r\n"
                 "\n"
                 "no pairs here\n"
                 "   \n"
                 "\t\n"
                 "#b=2\n"
                 "c=3"),
            0);
  EXPECT_EQ(csid_find("comment"), nullptr);
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_EQ(value("b", "one"), "(none)");
  EXPECT_EQ(value("c", "one"), "3");
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Csid, ACommentBeginsInTheFirstColumn) {
  EXPECT_EQ(init("csid=one\n #csid=two a=1\n # csid=three a=2\n"), 0);
  EXPECT_EQ(csid_find("two"), nullptr);
  EXPECT_EQ(value("#csid", "one"), "two");
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_EQ(value("a", "three"), "2");
}

// Regression: a read error was taken for the end of the file.
TEST_F(Csid, AFileThatCannotBeReadLeavesNoServices) {
  qxapi_host broken = support::memory_host();
  static int lines;
  lines = 0;
  broken.getline = [](host_buffer *buffer, int number, int limit, char *line) {
    if (lines++ == 0) return support::memory_host().getline(buffer, number, limit, line);
    errno = EIO;
    return -1;
  };
  qxapi_bind(&broken);
  EXPECT_EQ(init("csid=one a=1\ncsid=two a=2\n"), -1);
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: " + file() + ": Input/output error\n");
}

TEST_F(Csid, FindsTheFirstOfEqualNamesAndServices) {
  EXPECT_EQ(init("a=1 csid=one a=2\na=3\ncsid=first csid=second\ncsid=one a=4 b=4\n"), 0);
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_EQ(value("b", "one"), "(none)");
  EXPECT_NE(csid_find("first"), nullptr);
  EXPECT_EQ(csid_find("second"), nullptr);
}

TEST_F(Csid, IsComparedExactly) {
  init("csid=One\n");
  EXPECT_NE(csid_find("One"), nullptr);
  for (const char *other : {"one", "One ", ""}) EXPECT_EQ(csid_find(other), nullptr) << other;
  init("csid=\"\" a=1\ncsid=one\n");
  EXPECT_EQ(value("a", ""), "1") << "an empty CSID is a service, too";
  EXPECT_NE(csid_find("one"), nullptr);
}

TEST_F(Csid, LookupsOfANullCsidAndInAnEmptyRegistryFindNothing) {
  EXPECT_EQ(csid_default(nullptr), nullptr);
  for (const char *csid : {static_cast<const char *>(nullptr), "one"}) {
    EXPECT_EQ(csid_find(csid), nullptr);
    EXPECT_EQ(csid_findval("csid", csid), nullptr);
    EXPECT_EQ(csid_finda2p(csid), nullptr);
    EXPECT_EQ(csid_findp2a(csid), nullptr);
    init("csid=another\n");
  }
}

TEST_F(Csid, LinesAreCutAtTheirLimit) {
  const std::string start = "csid=one a=";
  EXPECT_EQ(init(start + std::string(9000, 'x') + " b=2\nc=3\n"), 0);
  EXPECT_EQ(value("a", "one"), std::string(8191 - start.size(), 'x'));
  EXPECT_EQ(value("b", "one"), "(none)");
  EXPECT_EQ(value("c", "one"), "3");
}

std::string numbered_services(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) text += "csid=c" + std::to_string(i) + "\nnumber=" + std::to_string(i) + "\n";
  return text;
}

TEST_F(Csid, HoldsSixtyThreeServicesAndReportsMore) {
  EXPECT_EQ(init(numbered_services(63)), 0);
  EXPECT_EQ(diagnostics.text(), "");
  EXPECT_EQ(init(numbered_services(65) + "late=1\n"), 0);
  for (int i = 1; i <= 63; ++i) EXPECT_EQ(value("number", ("c" + std::to_string(i)).c_str()), std::to_string(i));
  EXPECT_EQ(csid_find("c64"), nullptr);
  EXPECT_EQ(csid_find("c65"), nullptr);
  EXPECT_EQ(value("late", "c63"), "(none)");
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: " + file() + ": More than 63 services, <CSID:c64> ignored\n" +
                                    "ERROR: csid_init: " + file() + ": More than 63 services, <CSID:c65> ignored\n");
}

TEST_F(Csid, TheDefaultIsACopyOfTheLastNameGiven) {
  EXPECT_EQ(csid_default(nullptr), nullptr);
  char text[] = "one";
  EXPECT_STREQ(csid_default(text), "one");
  text[0] = 'O';
  EXPECT_EQ(init("csid=one\n"), 0) << "reading without a default keeps it";
  EXPECT_STREQ(csid_default(nullptr), "one");
  EXPECT_STREQ(csid_default("two"), "two");
  EXPECT_STREQ(csid_default(csid_default(nullptr)), "two");
}

TEST_F(Csid, ADefaultThatIsNotConfiguredIsReportedAndKept) {
  for (const char *csid : {"two", "Unknown", "%s%n"}) {
    const support::Diagnostics log;
    EXPECT_EQ(init("csid=one\n", csid), 0);
    EXPECT_EQ(init("csid=one\n"), 0) << "also if it was set before";
    EXPECT_STREQ(csid_default(nullptr), csid);
    const std::string report = std::string("ERROR: Invalid default <CSID:") + csid + ">!\n";
    EXPECT_EQ(log.text(), report + report);
  }
  const support::Diagnostics log;
  EXPECT_EQ(init("csid=one\n", "unknown"), 0);
  EXPECT_EQ(log.text(), "") << "this one is allowed";
}

TEST_F(Csid, ADefaultThatCannotBeKeptIsReported) {
  const std::string path = directory.write("csid.conf", "csid=one\n");
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(csid_init(path.c_str(), "one"), 0);
  EXPECT_EQ(csid_default(nullptr), nullptr);
  EXPECT_NE(csid_find("one"), nullptr);
  EXPECT_EQ(diagnostics.text(), "WARNING: No default CSID?\n");
}

TEST_F(Csid, WithoutAFileTheRegistryIsEmptyAndTheReasonReported) {
  const std::string existing = directory.write("csid.conf", "csid=one\n"), missing = directory.path("missing");
  const struct {
    const char *path;
    long refused;  // allocation, 0 for none
    std::string reason;
  } rows[] = {{nullptr, 0, "No filename for csid.conf?"},
              {missing.c_str(), 0, missing + ": No such file or directory"},
              {existing.c_str(), 2, existing + ": Cannot buffer?"}};
  for (const auto &row : rows) {
    ASSERT_EQ(csid_init(existing.c_str(), "one"), 0);
    const support::Diagnostics log;
    host.fail_allocation = row.refused != 0 ? host.allocations + row.refused : 0;
    EXPECT_EQ(csid_init(row.path, "one"), -1);
    EXPECT_EQ(csid_find("one"), nullptr);
    EXPECT_STREQ(csid_default(nullptr), "one");
    EXPECT_EQ(log.text(), "ERROR: csid_init: " + row.reason + "\n");
  }
}

TEST_F(Csid, AServiceHasTheMapsOfItsAliasFile) {
  const std::string one = directory.write("one.alias", "p a b\n"), two = directory.write("two.alias", "q c\n");
  EXPECT_EQ(init("csid=one alias-file=" + one + "\ncsid=none\ncsid=two\nalias-file=\"" + two + "\"\n"), 0);
  EXPECT_STREQ(alias_to_parent(csid_finda2p("one"), "b"), "p");
  EXPECT_STREQ(parent_to_aliases(csid_findp2a("one"), "p"), "a");
  EXPECT_STREQ(alias_to_parent(csid_finda2p("two"), "c"), "q");
  EXPECT_EQ(alias_to_parent(csid_finda2p("two"), "b"), nullptr);
  EXPECT_EQ(csid_finda2p("none"), nullptr);
  EXPECT_EQ(csid_findp2a("none"), nullptr);
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Csid, AServiceWhoseAliasFileFailsHasNoMaps) {
  const std::string path = directory.path("missing"), two = directory.write("two.alias", "q c\n");
  EXPECT_EQ(init("csid=one alias-file=" + path + "\ncsid=two alias-file=" + two + "\n"), 0);
  EXPECT_NE(csid_find("one"), nullptr);
  EXPECT_EQ(csid_finda2p("one"), nullptr);
  EXPECT_EQ(csid_findp2a("one"), nullptr);
  EXPECT_NE(csid_finda2p("two"), nullptr);
  EXPECT_EQ(diagnostics.text(), "ERROR: alias_init: Can't open " + path + ": No such file or directory\n" +
                                    "ERROR: alias_init failed for one\n");
}

TEST_F(Csid, ProblemsAreReportedInTheOrderOfTheSteps) {
  EXPECT_EQ(init(numbered_services(64) + "csid=a\n" + "alias-file=/nowhere\n", "none"), 0);
  const std::string more = "ERROR: csid_init: " + file() + ": More than 63 services, ";
  EXPECT_EQ(diagnostics.text(),
            more + "<CSID:c64> ignored\n" + more + "<CSID:a> ignored\n" + "ERROR: Invalid default <CSID:none>!\n");
  EXPECT_EQ(init("csid=a alias-file=/nowhere\ncsid=b alias-file=/nowhere\n", "none"), 0);
  const std::string missing = "ERROR: alias_init: Can't open /nowhere: No such file or directory\n";
  EXPECT_TRUE(diagnostics.text().ends_with(missing + "ERROR: alias_init failed for a\n" + missing +
                                           "ERROR: alias_init failed for b\n" +
                                           "ERROR: Invalid default <CSID:none>!\n"))
      << diagnostics.text();
}

TEST_F(Csid, ReadingAgainReplacesTheServices) {
  const std::string alias = directory.write("one.alias", "p a\n");
  EXPECT_EQ(init("csid=one a=1 alias-file=" + alias + "\ncsid=two\n", "one"), 0);
  EXPECT_EQ(init("csid=two b=2\n", "two"), 0);
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_EQ(value("b", "two"), "2");
  EXPECT_STREQ(csid_default(nullptr), "two");
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Csid, TerminateForgetsServicesAndDefault) {
  EXPECT_EQ(init("csid=one\n", "one"), 0);
  csid_terminate();
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_EQ(csid_default(nullptr), nullptr);
  EXPECT_EQ(host.live_blocks, 0);
  csid_terminate();
  EXPECT_EQ(init("csid=one\n"), 0);
  EXPECT_NE(csid_find("one"), nullptr);
}

TEST_F(Csid, ALineThatDoesNotFitInMemoryIsReportedAndLost) {
  const std::string path = directory.write("csid.conf", "csid=one\ncsid=two a=1\nb=2\ncsid=three\n");
  // The reader; then, for the first line, its block, two parsed texts, an entry with two copies, and the CSID.
  host.fail_allocation = host.allocations + 1 + 7 + 1;
  EXPECT_EQ(csid_init(path.c_str(), nullptr), 0);
  EXPECT_EQ(value("b", "one"), "(none)") << "pairs after the lost line do not belong to the service before it";
  EXPECT_EQ(csid_find("two"), nullptr);
  EXPECT_NE(csid_find("three"), nullptr);
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: " + path + ": Out of memory\n");
}

}  // namespace
