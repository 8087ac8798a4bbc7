// SPDX-License-Identifier: MIT
#include "service/csid.h"

#include <cerrno>
#include <string>

#include <gtest/gtest.h>
#include <libcs/log.h>

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

TEST_F(Csid, FindReturnsTheParametersOfTheService) {
  init("csid=one a=1\ncsid=two a=2\n");
  ASSERT_NE(csid_find("two"), nullptr);
  EXPECT_STREQ(host_param_find("a", csid_find("two")), "2");
}

TEST_F(Csid, CommentsAndEmptyLinesAreIgnored) {
  EXPECT_EQ(init("# csid=comment\n"
                 "\n"
                 "csid=one a=1\n"
                 "#csid=comment\n"
                 "\r\n"
                 "\n"
                 "#b=2\n"
                 "c=3"),
            0);
  EXPECT_EQ(csid_find("comment"), nullptr);
  EXPECT_EQ(value("b", "one"), "(none)");
  EXPECT_EQ(value("c", "one"), "3");
}

TEST_F(Csid, ACommentBeginsInTheFirstColumn) {
  EXPECT_EQ(init("csid=one\n #csid=two a=1\n # csid=three a=2\n"), 0);
  EXPECT_EQ(csid_find("two"), nullptr);
  EXPECT_EQ(value("#csid", "one"), "two");
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_EQ(value("a", "three"), "2");
}

// The error passed for the end of the file, without a word.
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

TEST_F(Csid, LinesWithoutPairsAreIgnored) {
  EXPECT_EQ(init("csid=one\nno pairs here\n   \n\t\na=1\n"), 0);
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Csid, PairsBeforeTheFirstServiceAreIgnored) {
  EXPECT_EQ(init("a=1 b=2\ncsid=one b=3\n"), 0);
  EXPECT_EQ(value("a", "one"), "(none)");
  EXPECT_EQ(value("b", "one"), "3");
}

TEST_F(Csid, TheCsidMayStandAnywhereInItsLine) {
  EXPECT_EQ(init("a=1 csid=one b=2\n"), 0);
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_EQ(value("b", "one"), "2");
}

TEST_F(Csid, OfEqualNamesTheFirstIsFound) {
  EXPECT_EQ(init("csid=one a=1 a=2\na=3\ncsid=first csid=second\n"), 0);
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_NE(csid_find("first"), nullptr);
  EXPECT_EQ(csid_find("second"), nullptr);
}

TEST_F(Csid, AServiceConfiguredTwiceIsFoundAtItsFirstPlace) {
  EXPECT_EQ(init("csid=one a=1\ncsid=one a=2 b=2\n"), 0);
  EXPECT_EQ(value("a", "one"), "1");
  EXPECT_EQ(value("b", "one"), "(none)");
}

TEST_F(Csid, IsComparedExactly) {
  init("csid=One\n");
  EXPECT_NE(csid_find("One"), nullptr);
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_EQ(csid_find("One "), nullptr);
  EXPECT_EQ(csid_find(""), nullptr);
}

TEST_F(Csid, AnEmptyCsidIsAService) {
  init("csid=\"\" a=1\ncsid=one\n");
  EXPECT_EQ(value("a", ""), "1");
  EXPECT_NE(csid_find("one"), nullptr);
}

TEST_F(Csid, LookupsOfANullCsidFindNothing) {
  init("csid=one\n");
  EXPECT_EQ(csid_find(nullptr), nullptr);
  EXPECT_EQ(csid_findval("csid", nullptr), nullptr);
  EXPECT_EQ(csid_finda2p(nullptr), nullptr);
  EXPECT_EQ(csid_findp2a(nullptr), nullptr);
}

TEST_F(Csid, LookupsInAnEmptyRegistryFindNothing) {
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_EQ(csid_findval("csid", "one"), nullptr);
  EXPECT_EQ(csid_finda2p("one"), nullptr);
  EXPECT_EQ(csid_findp2a("one"), nullptr);
  EXPECT_EQ(csid_default(nullptr), nullptr);
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

TEST_F(Csid, HoldsSixtyThreeServices) {
  EXPECT_EQ(init(numbered_services(63)), 0);
  for (int i = 1; i <= 63; ++i) EXPECT_EQ(value("number", ("c" + std::to_string(i)).c_str()), std::to_string(i));
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Csid, ReportsAndIgnoresServicesPastTheSixtyThird) {
  EXPECT_EQ(init(numbered_services(65) + "late=1\n"), 0);
  EXPECT_EQ(csid_find("c64"), nullptr);
  EXPECT_EQ(csid_find("c65"), nullptr);
  EXPECT_EQ(value("number", "c63"), "63");
  EXPECT_EQ(value("late", "c63"), "(none)");
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: " + file() + ": More than 63 services, <CSID:c64> ignored\n" +
                                    "ERROR: csid_init: " + file() + ": More than 63 services, <CSID:c65> ignored\n");
}

TEST_F(Csid, TheDefaultIsTheLastOneGiven) {
  EXPECT_EQ(csid_default(nullptr), nullptr);
  EXPECT_STREQ(csid_default("one"), "one");
  EXPECT_STREQ(csid_default(nullptr), "one");
  EXPECT_STREQ(csid_default("two"), "two");
  EXPECT_STREQ(csid_default(csid_default(nullptr)), "two");
}

TEST_F(Csid, TheDefaultIsACopy) {
  char text[] = "one";
  csid_default(text);
  text[0] = 'O';
  EXPECT_STREQ(csid_default(nullptr), "one");
}

TEST_F(Csid, ReadingWithoutADefaultKeepsTheOneThereIs) {
  csid_default("one");
  EXPECT_EQ(init("csid=one\n"), 0);
  EXPECT_STREQ(csid_default(nullptr), "one");
}

TEST_F(Csid, ADefaultThatIsNotConfiguredIsReportedAndKept) {
  EXPECT_EQ(init("csid=one\n", "two"), 0);
  EXPECT_STREQ(csid_default(nullptr), "two");
  EXPECT_EQ(diagnostics.text(), "ERROR: Invalid default <CSID:two>!\n");
}

TEST_F(Csid, AnUnknownDefaultIsAllowed) {
  EXPECT_EQ(init("csid=one\n", "unknown"), 0);
  EXPECT_STREQ(csid_default(nullptr), "unknown");
  EXPECT_EQ(diagnostics.text(), "");
  EXPECT_EQ(init("csid=one\n", "Unknown"), 0);
  EXPECT_EQ(diagnostics.text(), "ERROR: Invalid default <CSID:Unknown>!\n");
}

TEST_F(Csid, ADefaultThatCannotBeKeptIsReported) {
  const std::string path = directory.write("csid.conf", "csid=one\n");
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(csid_init(path.c_str(), "one"), 0);
  EXPECT_EQ(csid_default(nullptr), nullptr);
  EXPECT_NE(csid_find("one"), nullptr);
  EXPECT_EQ(diagnostics.text(), "WARNING: No default CSID?\n");
}

TEST_F(Csid, WithoutAFileNameTheRegistryIsEmpty) {
  EXPECT_EQ(csid_init(nullptr, "one"), -1);
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_STREQ(csid_default(nullptr), "one");
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: No filename for csid.conf?\n");
}

TEST_F(Csid, WithoutAFileTheRegistryIsEmpty) {
  EXPECT_EQ(csid_init(file().c_str(), "one"), -1);
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_STREQ(csid_default(nullptr), "one");
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: " + file() + ": No such file or directory\n");
}

TEST_F(Csid, WithoutAReaderTheRegistryIsEmpty) {
  const std::string path = directory.write("csid.conf", "csid=one\n");
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(csid_init(path.c_str(), nullptr), -1);
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: " + path + ": Cannot buffer?\n");
}

TEST_F(Csid, AFileWithoutServicesGivesAnEmptyRegistry) {
  EXPECT_EQ(init("", "one"), 0);
  EXPECT_EQ(csid_find("one"), nullptr);
  EXPECT_EQ(diagnostics.text(), "ERROR: Invalid default <CSID:one>!\n");
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

/// The default is compared with the services there are, whoever set it.
TEST_F(Csid, ADefaultOfBeforeIsComparedToo) {
  csid_default("before");
  EXPECT_EQ(init("csid=one\n"), 0);
  EXPECT_EQ(diagnostics.text(), "ERROR: Invalid default <CSID:before>!\n");
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

TEST_F(Csid, AFailedReadingLeavesTheRegistryEmpty) {
  EXPECT_EQ(init("csid=one\n"), 0);
  EXPECT_EQ(csid_init(directory.path("missing").c_str(), nullptr), -1);
  EXPECT_EQ(csid_find("one"), nullptr);
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
  // The reader, then for the first line: its block, the two texts parsed, the entry with its two copies, the CSID.
  host.fail_allocation = host.allocations + 1 + 7 + 1;
  EXPECT_EQ(csid_init(path.c_str(), nullptr), 0);
  EXPECT_EQ(value("b", "one"), "(none)") << "what follows the lost line is not the service's before it";
  EXPECT_EQ(csid_find("two"), nullptr);
  EXPECT_NE(csid_find("three"), nullptr);
  EXPECT_EQ(diagnostics.text(), "ERROR: csid_init: " + path + ": Out of memory\n");
}

TEST_F(Csid, SurvivesTheFailureOfAnyAllocation) {
  const std::string alias = directory.write("one.alias", "p a\n");
  const std::string path = directory.write("csid.conf", "csid=one a=1\nalias-file=" + alias + "\ncsid=two\nb=2\n");
  for (long refused = 1;; ++refused) {
    const long before = host.allocations;
    const size_t reported = diagnostics.raw().size();
    host.fail_allocation = before + refused;
    csid_init(path.c_str(), "one");
    const bool all = host.allocations < before + refused;
    EXPECT_EQ(diagnostics.raw().size() > reported, !all) << refused;
    csid_terminate();
    EXPECT_EQ(host.live_blocks, 0) << refused;
    if (all) break;
  }
}

TEST_F(Csid, NamesAreNeverPartOfAFormat) {
  EXPECT_EQ(init("csid=one\n", "%s%n"), 0);
  EXPECT_EQ(diagnostics.text(), "ERROR: Invalid default <CSID:%s%n>!\n");
}

TEST_F(Csid, WritesNothingWhenTheLogIsOff) {
  cslog_set_level(0);
  EXPECT_EQ(csid_init(nullptr, nullptr), -1);
  EXPECT_EQ(csid_init(file().c_str(), nullptr), -1);
  EXPECT_EQ(init(numbered_services(64) + "csid=a alias-file=/missing\n", "two"), 0);
  EXPECT_EQ(diagnostics.text(), "");
}

}  // namespace
