// SPDX-License-Identifier: MIT
/// The formats csv and tsv.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/os/error.h"
#include "support/files.h"
#include "tools/soif/formats.h"
#include "tools/soif/run_soif.h"

using namespace rdm;
using namespace rdm::soif_tool;

namespace {

using support::Finished;
using testing::ElementsAre;
using testing::IsEmpty;

const std::vector<Description> sample = {
    {"F", "u", {{"title", "x, \"y\"\r\n"}, {"author-1", "a"}, {"author-2", "b\\t\tc"}}},
    {"G", "v", {{"author-1", "\xFF"}, {"title", "base64:x"}, {"title", "z"}, {"empty", ""}}},
};

TEST(SoifTable, HasAColumnForEachAttribute) {
  EXPECT_EQ(written_in("csv", sample),
            "template,url,title,title,author-1,author-2\r\n"
            "F,u,\"x, \"\"y\"\"\r\n\",,a,b\\t\tc\r\n"
            "G,v,base64:YmFzZTY0Ong=,z,base64:/w==,\r\n");
  EXPECT_EQ(written_in("tsv", sample),
            "template\turl\ttitle\ttitle\tauthor-1\tauthor-2\n"
            "F\tu\tx, \"y\"\\r\\n\t\ta\tb\\\\t\\tc\n"
            "G\tv\tbase64:YmFzZTY0Ong=\tz\tbase64:/w==\t\n");
  EXPECT_EQ(written_in("csv", {}), "template,url\r\n");
}

TEST(SoifTable, TellsTheUrlFromAnAttributeOfThatName) {
  const std::vector<Description> descriptions = {{"F", "u", {{"url", "x"}, {"template", "y"}}}};
  EXPECT_EQ(written_in("tsv", descriptions), "@template\t@url\turl\ttemplate\nF\tu\tx\ty\n");
  EXPECT_EQ(read_in("tsv", written_in("tsv", descriptions)).descriptions, descriptions);
}

TEST(SoifTable, ReadsWhatOthersWrite) {
  const std::pair<const char *, const char *> rows[] = {
      {"csv", "URL,Title,Title\nu,x,\n\n\"v\",\"a\"\"b\r\n,c\",\" d \""},
      {"csv", "\xEF\xBB\xBF\"url\",title,title\r\nu,x,\"\"\r\nv,\"a\"\"b\r\n,c\", d \r\n"},
      {"tsv", "url\ttitle\ttitle\nu\tx\t\n\r\nv\ta\"b\\r\\n,c\t d \r\n"},
  };
  for (const auto &[format, text] : rows)
    for (const size_t piece : {1, 65536}) {
      const Taken taken = read_in(format, text, {}, piece);
      EXPECT_THAT(taken.faults, IsEmpty()) << text;
      EXPECT_THAT(taken.descriptions,
                  ElementsAre(Description{"DOCUMENT", "u", {{"title", "x"}}},
                              Description{"DOCUMENT", "v", {{"title", "a\"b\r\n,c"}, {"title", " d "}}}))
          << text;
    }
  EXPECT_THAT(read_in("tsv", "url\ta\nu\tC:\\dir\\").descriptions,
              ElementsAre(Description{"DOCUMENT", "u", {{"a", "C:\\dir\\"}}}));
  EXPECT_THAT(read_in("csv", "url,a\nu,x\ry").descriptions, ElementsAre(Description{"DOCUMENT", "u", {{"a", "x\ry"}}}));
}

TEST(SoifTable, NamesAndKeepsBadRows) {
  const struct {
    const char *format, *row, *fault;
  } rows[] = {
      {"csv", "u\r\n", "2:1: 1 cell instead of 2"},
      {"csv", "u,x,y\n", "2:1: 3 cells instead of 2"},
      {"csv", "u,\"x\"y\n", "2:1: text after a closing quote"},
      {"csv", "u,x\"y\n", "2:1: a quote in a cell that is not quoted"},
      {"csv", "u,base64:x\n", "2:1: cell 2 is not base64"},
      {"tsv", "u\tx\ty\n", "2:1: 3 cells instead of 2"},
      {"tsv", "base64:/w=\tx\n", "2:1: cell 1 is not base64"},
  };
  for (const auto &[format, row, fault] : rows) {
    const std::string separator(1, *format == 'c' ? ',' : '\t');
    const std::string good = "v" + separator + "z\n";
    const Taken taken = read_in(format, "url" + separator + "a\n" + row + good);
    EXPECT_THAT(taken.faults, ElementsAre(fault)) << row;
    EXPECT_THAT(taken.bytes, ElementsAre(row)) << row;
    EXPECT_EQ(taken.descriptions.size(), 1U) << row;
  }
  const Taken open = read_in("csv", "url,a\nu,\"x\nv,y\n");
  EXPECT_THAT(open.faults, ElementsAre("2:1: a quote is not closed"));
  EXPECT_THAT(open.bytes, ElementsAre("u,\"x\nv,y\n"));
}

TEST(SoifTable, TheFileOfRejectedRowsIsATable) {
  const support::TemporaryDirectory directory;
  const std::string rejects = directory.path("rejects");
  const Finished finished = run_soif({"from", "csv", "--rejects", rejects}, "url,a\nu,x\n\"a b\",y\nv\n");
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "@DOCUMENT { u\na{1}:\tx\n}\n");
  EXPECT_EQ(finished.errors,
            "soif: the input:3:1: the URL contains white space or NUL: a b\n"
            "soif: the input:4:1: 1 cell instead of 2\n"
            "soif: 2 rejected, 1 done\n");
  EXPECT_EQ(support::read_file(rejects), "url,a\n\"a b\",y\nv\n");
}

TEST(SoifTable, ATableWithoutColumnOfTheUrlIsRefused) {
  EXPECT_EQ(run_soif({"from", "csv"}, "a,b\n").errors, "soif: the input: no column url; --map can name another\n");
  EXPECT_EQ(run_soif({"from", "csv"}, "a,\"b\n").errors, "soif: the input:1: a quote is not closed\n");
  EXPECT_EQ(run_soif({"from", "tsv"}, "").out, "");
}

TEST(SoifTable, ATableWhoseRowsEndWithCrAloneIsRefused) {
  const std::string fault = "soif: the input: the first row contains a CR: rows end with LF or CR LF\n";
  for (const char *text : {"url,a\ru,x\r", "url,a\ru,x\r\n"})
    EXPECT_EQ(run_soif({"from", "csv"}, text).errors, fault) << text;
  EXPECT_EQ(run_soif({"from", "tsv"}, "url\ta\ru\tx\r\n").errors, fault);
}

TEST(SoifTable, MapsColumns) {
  const support::TemporaryDirectory directory;
  const std::string map = directory.write("map", "@url = Adresse\n@template = Art\ntitle = url\n");
  const std::string text = "@F { u\ntitle{1}:\tx\n}\n";
  const Finished table = run_soif({"to", "csv", "--map", map}, text);
  EXPECT_EQ(table.out, "Art,Adresse,url\r\nF,u,x\r\n");
  EXPECT_EQ(run_soif({"from", "csv", "--map", map}, table.out).out, text);
}

TEST(SoifTable, LeavesOutTheHeaderOfAnExport) {
  const std::string export_text = "@RDMHEADER { -\nx{1}:\ty\n}\n@F { u\na{1}:\tx\n}\n";
  EXPECT_EQ(run_soif({"to", "csv"}, export_text).out, "template,url,a\r\nF,u,x\r\n");
}

/// as_rows returns descriptions without what a table does not hold: empty values, and the order of attributes.
std::vector<Description> as_rows(std::vector<Description> descriptions) {
  for (Description &description : descriptions) {
    auto &attributes = description.attributes;
    std::erase_if(attributes, [](const Attribute &attribute) { return attribute.value.empty(); });
    std::stable_sort(attributes.begin(), attributes.end(),
                     [](const auto &a, const auto &b) { return a.name < b.name; });
  }
  return descriptions;
}

TEST(SoifTable, KeepsTheOrderOfAttributesIfItCan) {
  const std::vector<Description> descriptions = {
      {"F", "u", {{"title", "x"}, {"author-1", "a"}, {"year", "1"}}},
      {"F", "v", {{"title", "x"}, {"author-1", "a"}, {"author-2", "b"}, {"year", "1"}, {"note", "n"}}},
      {"F", "w", {{"id", "i"}, {"title", "x"}}},
  };
  EXPECT_EQ(read_in("csv", written_in("csv", descriptions)).descriptions, descriptions);
}

// Regression: the second value of a name stood before the first one, so that a lookup found it.
TEST(SoifTable, KeepsTheOrderOfValuesOfOneName) {
  const std::vector<Description> descriptions = {{"F", "u", {{"b", "x"}, {"a", "y"}}},
                                                 {"F", "v", {{"a", "1"}, {"b", "x"}, {"a", "2"}}}};
  EXPECT_EQ(written_in("tsv", descriptions), "template\turl\tb\ta\ta\nF\tu\tx\ty\t\nF\tv\tx\t1\t2\n");
}

TEST(SoifTable, ComesBackAsItWasButForTheOrder) {
  support::check_model(300, [] {
    const auto descriptions = *random_descriptions();
    for (const char *format : {"csv", "tsv"}) {
      const Taken taken = read_in(format, written_in(format, descriptions));
      RC_ASSERT(taken.faults.empty());
      RC_ASSERT(as_rows(taken.descriptions) == as_rows(descriptions));
    }
  });
}

}  // namespace
