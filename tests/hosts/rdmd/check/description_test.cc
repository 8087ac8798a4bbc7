// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/description.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

/// found checks a prepared answer of these bytes and returns the findings without the path: "LINE: error: TEXT" or
/// "error: TEXT".
std::string found(const std::string &bytes, const std::string &key = "server-description") {
  const support::TemporaryDirectory directory;
  check::Findings findings;
  check::Report report(directory.write("d", bytes), findings);
  check::check_description(key, report);
  std::string text;
  for (const check::Finding &finding : findings)
    text += check::describe(finding).substr(report.file().size() + (finding.line > 0 ? 1 : 2)) + "\n";
  return text;
}

const std::string header = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{27}:\tserver-description-response\n}\n\n";
const std::string body = "@SERVER { -\ntitle{5}:\tBooks\n}\n";

TEST(CheckDescription, BeginsWithAHeader) {
  const std::string no_header = "error: does not begin with an RDMHEADER object\n";
  EXPECT_EQ(found(header + body), "");
  EXPECT_EQ(found("\n \t" + header + body), "");
  EXPECT_EQ(found(""), "error: is empty\n");
  EXPECT_EQ(found("\n \n"), "3: " + no_header);
  EXPECT_EQ(found("\n\n  @rdmheader{ -\n}"), "3: " + no_header);
  EXPECT_EQ(found("Some text " + header + body), "1: " + no_header);
  EXPECT_EQ(found("@" + header + body), "1: " + no_header);
  EXPECT_EQ(found(body), "1: " + no_header);
  EXPECT_EQ(found("@RDMHEADERS { -\n}\n"), "1: " + no_header);
}

TEST(CheckDescription, HasTheTypeOfItsKey) {
  const struct {
    const char *key, *names[2], *other;
  } cases[] = {
      {"server-description", {"server-description-response", "Server-Response"}, "schema-description-response"},
      {"schema-description", {"Schema-Description-Response", "schema-response"}, "schema-description-request"},
      {"taxonomy-description", {"taxonomy-description-response", "taxonomy-response"}, "status-response"},
  };
  const auto answer = [](const std::string &type) {
    return "@RDMHEADER { -\nrdm-version{3}:\t1.0\nRDM-Type{" + std::to_string(type.size()) + "}:\t" + type +
           "\nrdm-type{1}:\tx\n}\n\n" + body;
  };
  for (const auto &row : cases) {
    for (const char *name : row.names) EXPECT_EQ(found(answer(name), row.key), "") << name;
    EXPECT_EQ(found(answer(row.other), row.key), "3: error: the type is \"" + std::string(row.other) + "\"; \"" +
                                                     row.key + "\" requires \"" + row.key + "-response\"\n");
    EXPECT_EQ(
        found("@RDMHEADER { -\nrdm-version{3}:\t1.0\n}\n\n" + body, row.key),
        "1: error: the RDMHEADER object has no \"rdm-type\"; \"" + std::string(row.key) + "-response\" is required\n");
  }
}

/// Regression: wrong byte counts after an edit gave gatherers objects without their last attributes; the check looked
/// only at the header's counts.
TEST(CheckDescription, NamesTheCountThatWouldFit) {
  const struct {
    std::string lines, expected;
  } cases[] = {
      {"title{6}:\tBooks\n", "7: error: \"title\" announces 6 bytes; 5 would fit\n"},
      {"title{4}:\tBooks\n", "7: error: \"title\" announces 4 bytes; 5 would fit\n"},
      {"title{1}:\t\n", "7: error: \"title\" announces 1 byte; 0 would fit\n"},
      {"title{5}:\tB\xc3\xbc"
       "cher\r\n",
       "7: error: \"title\" announces 5 bytes; 7 would fit\n"},
      {"title{99999}:\tBooks\nlanguage{2}:\ten\n", "7: error: \"title\" announces 99999 bytes; 5 would fit\n"},
      {"title{18446744073709551615}:\tBooks\n",
       "7: error: \"title\" announces 18446744073709551615 bytes; 5 would fit\n"},
      // Values of several lines.
      {"description{9}:\tone\n\ntwo }\nlanguage{2}:\ten\n",
       "7: error: \"description\" announces 9 bytes; 10 would fit\n"},
      {"description{3}:\tone\ntwo\nlanguage{2}:\ten\n",
       "8: error: the SERVER object is damaged in this line, or the value of \"description\" in line 7 is longer than "
       "announced; 7 would fit\n"},
      // Each mistake once.
      {"title{6}:\tBooks\ndescription{1}:\tone\ntwo\nlanguage{2}:\ten\nmaintainer{9}:\tme\n",
       "7: error: \"title\" announces 6 bytes; 5 would fit\n"
       "8: error: \"description\" announces 1 byte; 7 would fit\n"
       "11: error: \"maintainer\" announces 9 bytes; 2 would fit\n"},
      // A size that fits a later line.
      {"title{21}:\tBooks\nlanguage{2}:\ten\n",
       "7: warning: \"title\" announces 21 bytes, the lines of further attributes among them; 5 would fit without "
       "those\n"},
      // A size that includes the end of the object.
      {"title{7}:\tBooks\n", "7: error: \"title\" announces 7 bytes; 5 would fit\n"},
      {"title{8}:\tBooks\n", "7: error: \"title\" announces 8 bytes; 5 would fit\n"},
      // Accepted by readers.
      {"title{5}:\tBooks\n\n \t\r\n", ""},
      {"title{5}:\tBooks  \n", ""},
      {"title{7}:\tBooks  \n", ""},
      {"title{7}:\tBooks\n\n\n", ""},
      {"  title{5}:\tBooks\r\n", ""},
      {"title{3}:\t}\n}\nlanguage{0}:\t\n", ""},
  };
  for (const auto &row : cases)
    EXPECT_EQ(found(header + "@SERVER { -\n" + row.lines + "}\n"), row.expected) << row.lines;
}

TEST(CheckDescription, CountsOfTheHeaderMustFitToo) {
  EXPECT_EQ(found("@RDMHEADER { -\nrdm-version{9}:\t1.0\nrdm-type{6}:\tserver-response\n}\n\n" + body),
            "2: error: \"rdm-version\" announces 9 bytes; 3 would fit\n"
            "3: error: \"rdm-type\" announces 6 bytes; 15 would fit\n");
}

TEST(CheckDescription, NamesLinesThatAreNoAttributes) {
  const char damaged[] = "8: error: the SERVER object is damaged in this line\n";
  for (const char *line : {"language{2}: en", "language{x}:\ten", "language{-2}:\ten", "language{}:\ten", "{2}:\ten",
                           "language {2}:\ten", "language{2}\ten"})
    EXPECT_EQ(found(header + "@SERVER { -\ntitle{5}:\tBooks\n" + line + "\nid{1}:\tx\n}\n"), damaged) << line;
  EXPECT_EQ(found(header + "@SERVER { -\nlanguage: en\nid{1}:\tx\n}\n"),
            "7: error: the SERVER object is damaged in this line\n");
}

/// Regression: the service sent files that had been copied only in part.
TEST(CheckDescription, IsNotCut) {
  const std::string whole = header + body;
  EXPECT_EQ(found(header), "error: no object follows the RDMHEADER object\n");
  EXPECT_EQ(found(header + "SERVER { -\n}\n"),
            "6: warning: this text is outside of any object; readers skip it\n"
            "error: no object follows the RDMHEADER object\n");
  EXPECT_EQ(found(whole.substr(0, whole.size() - 2)),
            "7: error: the SERVER object is not closed: the file is truncated\n");
  EXPECT_EQ(found(whole.substr(0, whole.size() - 5)),
            "7: error: \"title\" announces 5 bytes, but only 3 follow: the file is truncated\n");
  EXPECT_EQ(found(header + "@SERVER { -\n"), "6: error: the SERVER object is not closed: the file is truncated\n");
  EXPECT_EQ(found(header + "@SER"), "6: error: the SER object is not closed: the file is truncated\n");
  EXPECT_EQ(found(header + "@SERVER { -\ntitle{2}:\tBooks\n"),
            "7: error: \"title\" announces 2 bytes, which end within a line\n");
  // Every truncation is found, except that of the final newline.
  for (size_t size = 0; size + 1 < whole.size(); ++size)
    EXPECT_NE(found(whole.substr(0, size)).find("error: "), std::string::npos) << size;
}

TEST(CheckDescription, EveryObjectHasItsEnd) {
  EXPECT_EQ(found(header + "@SERVER { -\ntitle{5}:\tBooks\n\n@OTHER { -\nid{2}:\tx\n}\n"),
            "7: error: the SERVER object is not closed\n"
            "10: error: \"id\" announces 2 bytes; 1 would fit\n");
  EXPECT_EQ(found(header + "@SERVER { -\ntitle{9}:\tBooks\n@OTHER { -\nid{1}:\tx\n}\n"),
            "7: error: \"title\" announces 9 bytes; 5 would fit\n"
            "7: error: the SERVER object is not closed\n");
  EXPECT_EQ(found("@RDMHEADER { -\nrdm-version{3}:\t1.0\n"),
            "2: error: the RDMHEADER object is not closed: the file is truncated\n");
}

TEST(CheckDescription, ReadsEveryObject) {
  EXPECT_EQ(found(header + "@SERVER { -\ntitle{7}:\tBooks\n}\n\n" + body),
            "7: error: \"title\" announces 7 bytes; 5 would fit\n");
  EXPECT_EQ(found(header + body + "\n" + body + "\n@OTHER{ -\nid{2}:\tx\n}\n"),
            "15: error: \"id\" announces 2 bytes; 1 would fit\n");
  EXPECT_EQ(found(header + body + "SERVER { -\nid{2}:\tx\n}\n\n" + body),
            "9: warning: this text is outside of any object; readers skip it\n");
}

TEST(CheckDescription, AnAnswerThatRefusesNeedsNoBody) {
  EXPECT_EQ(found("@RDMHEADER { -\nrdm-type{15}:\tserver-response\nrdm-error-message{4}:\tNone\n}\n"), "");
}

/// Readers that ignore byte counts take everything up to the first empty line as the header.
TEST(CheckDescription, AnEmptyLineEndsTheHeader) {
  const std::string type = "rdm-type{15}:\tserver-response\n";
  EXPECT_EQ(found("@RDMHEADER { -\r\nrdm-type{15}:\tserver-response\r\n} \r\n\r\n" + body), "");
  EXPECT_EQ(found("@RDMHEADER { -\n" + type + "}\n" + body), "3: error: no empty line follows the RDMHEADER object\n");
  EXPECT_EQ(found("@RDMHEADER { -\n" + type + "}\n \n" + body),
            "3: error: no empty line follows the RDMHEADER object\n");
  EXPECT_EQ(found("@RDMHEADER { -\n\n" + type + "}\n\n" + body),
            "2: error: an empty line ends the RDMHEADER object too early\n");
  EXPECT_EQ(found("@RDMHEADER { -\n" + type + "\r\n}\n\n" + body),
            "3: error: an empty line ends the RDMHEADER object too early\n");
}

/// The length of an answer is a 32-bit number.
TEST(CheckDescription, IsShorterThanFourGibibytes) {
  const support::TemporaryDirectory directory;
  check::Findings findings;
  check::Report report(directory.write("d", header), findings);
  std::filesystem::resize_file(report.file(), std::uintmax_t{1} << 32);
  check::check_description("server-description", report);
  ASSERT_EQ(findings.size(), 1U);
  EXPECT_EQ(check::describe(findings[0]),
            report.file() + ": error: has 4294967296 bytes; an answer has at most 4294967295");
}

/// mistaken returns an answer in which every other line is damaged and every other count is wrong.
std::string mistaken(int attributes) {
  std::string lines;
  for (int i = 0; i < attributes; ++i) lines += "a{999999999}:\tb\nc\nd{1}:\te\nf\n";
  return header + "@SERVER { -\n" + lines + "}\n";
}

TEST(CheckDescription, ManyMistakesTakeTimeInProportion) {
  const auto time_of = [](int attributes) {
    const std::string text = mistaken(attributes);
    std::clock_t least = std::numeric_limits<std::clock_t>::max();
    for (int i = 0; i < 2; ++i) {
      const std::clock_t start = std::clock();
      const std::string lines = found(text);
      least = std::min(least, std::clock() - start);
      EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 2 * attributes);
    }
    return std::max<std::clock_t>(least, 1);
  };
  // Sixteen times the lines used to take 256 times as long.
  EXPECT_LT(time_of(8'000) / time_of(500), 64);
}

}  // namespace
