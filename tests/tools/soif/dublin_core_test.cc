// SPDX-License-Identifier: MIT
/// The formats dc-xml and oai-dc.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"
#include "tools/soif/formats.h"
#include "tools/soif/run_soif.h"

using namespace rdm;
using namespace rdm::soif_tool;

namespace {

using support::Finished;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string prolog =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<records xmlns:dc=\"http://purl.org/dc/elements/1.1/\">\n";

TEST(SoifDublinCore, WritesARecordForEachDescription) {
  const std::string text =
      "@RDMHEADER { -\nx{1}:\ty\n}\n"
      "@F { http://a/?b&c\ntitle{7}:\t<x>&\r\ny\nauthor-1{1}:\tA\nauthor-2{1}:\tB\nclassification{1}:\tc\n"
      "description{3}:\t x \nrights{2}:\t\x01\xFF\nlanguage{0}:\t\n}\n";
  const Finished finished = run_soif({"to", "dc-xml"}, text);
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, prolog +
                              "<record>\n"
                              "<dc:identifier>http://a/?b&amp;c</dc:identifier>\n"
                              "<dc:title>&lt;x&gt;&amp;&#13;\ny</dc:title>\n"
                              "<dc:creator>A</dc:creator>\n"
                              "<dc:creator>B</dc:creator>\n"
                              "<dc:description xml:space=\"preserve\"> x </dc:description>\n"
                              "<dc:rights>base64:Af8=</dc:rights>\n"
                              "</record>\n"
                              "</records>\n");
  EXPECT_EQ(finished.errors, "soif: left out, without an element: classification\n");
  EXPECT_EQ(run_soif({"from", "dc-xml", "--template", "F"}, finished.out).out,
            "@F { http://a/?b&c\ntitle{7}:\t<x>&\r\ny\nauthor-1{1}:\tA\nauthor-2{1}:\tB\n"
            "description{3}:\t x \nrights{2}:\t\x01\xFF\n}\n");
  EXPECT_EQ(written_in("dc-xml", {}), prolog + "</records>\n");
}

TEST(SoifDublinCore, NamesManyLeftOutAttributesInOneLine) {
  std::string text = "@F { u\n";
  for (char c = 'a'; c <= 'z'; ++c) text += std::string(1, c) + "{1}:\tx\n";
  EXPECT_EQ(run_soif({"to", "dc-xml"}, text + "}\n").errors,
            "soif: left out, without an element: a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p, q, r, s, t, ...\n");
}

TEST(SoifDublinCore, ReadsRecordsInAnyElements) {
  const std::string text =
      R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<x:list xmlns:x="x" xmlns="http://purl.org/dc/elements/1.1/">
  <x:item><identifier>ISBN 1</identifier><identifier>http://a/</identifier>
    <title> A
      <x:b>b</x:b> )"
      "\xE9"
      R"(</title><creator/><subject>s</subject><x:skipped>no</x:skipped><language>en</language></x:item>
  <x:group><x:item><identifier>u</identifier><type><![CDATA[<t>]]></type></x:item></x:group>
  <title>of the list</title>
</x:list>)";
  for (const size_t piece : {1, 100, 65536}) {
    const Taken taken = read_in("dc-xml", text, {}, piece);
    EXPECT_THAT(taken.faults, IsEmpty());
    EXPECT_THAT(
        taken.descriptions,
        ElementsAre(
            Description{
                "DOCUMENT",
                "http://a/",
                {{"identifier", "ISBN 1"}, {"title", "A\n      b \xC3\xA9"}, {"keywords", "s"}, {"language", "en"}}},
            Description{"DOCUMENT", "u", {{"type", "<t>"}}}));
  }
}

TEST(SoifDublinCore, RefusesEntitiesAndWhatIsNotXml) {
  const std::pair<std::string, const char *> rows[] = {
      {"<!DOCTYPE x [<!ENTITY e SYSTEM \"/etc/passwd\">]><x>&e;</x>",
       "1:13: a document type declaration is refused; the rest is not read"},
      {"", "1:1: not XML: no element found; the rest is not read"},
      {"<a>\n</b>", "2:3: not XML: mismatched tag; the rest is not read"},
      {"<a>&e;</a>", "1:4: not XML: undefined entity; the rest is not read"},
      {"<a:b/>", "1:1: not XML: unbound prefix; the rest is not read"},
  };
  for (const auto &[text, fault] : rows) {
    const Taken taken = read_in("dc-xml", text);
    EXPECT_THAT(taken.descriptions, IsEmpty()) << text;
    EXPECT_THAT(taken.faults, ElementsAre(fault)) << text;
  }
  std::string deep;
  for (int i = 0; i < 65; ++i) deep += "<a>";
  EXPECT_THAT(read_in("dc-xml", deep).faults, ElementsAre("1:196: nested too deep; the rest is not read"));
}

TEST(SoifDublinCore, TheFileOfRejectedRecordsIsADocument) {
  const support::TemporaryDirectory directory;
  const std::string rejects = directory.path("rejects");
  const std::string good = "<record><dc:identifier>u</dc:identifier></record>",
                    bad = "<record><dc:title>t</dc:title></record>",
                    worse = "<record><dc:title>base64:x</dc:title></record>";
  const Finished finished =
      run_soif({"from", "dc-xml", "--rejects", rejects}, prolog + good + bad + "\n" + good + worse + "</records>");
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "@DOCUMENT { u\n}\n@DOCUMENT { u\n}\n");
  EXPECT_EQ(finished.errors,
            "soif: the input:3:50: no URL\n"
            "soif: the input:4:50: dc:title is not base64\n"
            "soif: 2 rejected, 2 done\n");
  EXPECT_EQ(support::read_file(rejects), prolog + bad + worse + "</records>");
}

TEST(SoifDublinCore, KeepsTheRecordInWhichAnInputEnds) {
  const Taken taken = read_in("dc-xml", prolog + "<record><dc:title>t");
  EXPECT_THAT(taken.bytes, ElementsAre("<record><dc:title>t"));
}

TEST(SoifDublinCore, MapsElements) {
  const support::TemporaryDirectory directory;
  const std::string map = directory.write("map", "classification = subject\nkeywords = keywords\n");
  const std::string text = "@DOCUMENT { u\nclassification-1{1}:\tx\nclassification-2{1}:\ty\nauthor{1}:\tA\n}\n";
  const Finished document = run_soif({"to", "dc-xml", "--map", map}, text);
  EXPECT_THAT(document.out, HasSubstr("<dc:subject>x</dc:subject>\n<dc:subject>y</dc:subject>\n"));
  EXPECT_EQ(run_soif({"from", "dc-xml", "--map", map}, document.out).out, text);
}

// What has been read once stays the same: the first document may have several forms of the same values.
TEST(SoifDublinCore, ComesBackAsItWas) {
  support::check_model(300, [] {
    const auto descriptions = *random_descriptions();
    const Taken once = read_in("dc-xml", written_in("dc-xml", descriptions));
    RC_ASSERT(once.faults.empty());
    RC_ASSERT(once.descriptions.size() == descriptions.size());
    for (size_t i = 0; i < descriptions.size(); ++i) RC_ASSERT(once.descriptions[i].url == descriptions[i].url);
    RC_ASSERT(read_in("dc-xml", written_in("dc-xml", once.descriptions)).descriptions == once.descriptions);
  });
}

const std::string oai = R"(<?xml version="1.0"?>
<OAI-PMH xmlns="http://www.openarchives.org/OAI/2.0/"><responseDate>2026-11-22T00:00:00Z</responseDate><ListRecords>
<record><header><identifier>oai:x:1</identifier><datestamp>2026-01-02</datestamp><setSpec>s</setSpec></header>
<metadata><oai_dc:dc xmlns:oai_dc="http://www.openarchives.org/OAI/2.0/oai_dc/" xmlns:dc="http://purl.org/dc/elements/1.1/">
<dc:title>T</dc:title><dc:identifier>http://a/1</dc:identifier></oai_dc:dc></metadata></record>
<record><header status="deleted"><identifier>oai:x:2</identifier><datestamp>2026-01-03</datestamp></header></record>
<record><header><identifier>oai:x:3</identifier></header><metadata>
<dc:creator xmlns:dc="http://purl.org/dc/elements/1.1/">C</dc:creator></metadata></record>
<resumptionToken>more</resumptionToken></ListRecords></OAI-PMH>
)";

TEST(SoifOai, ReadsAListOfRecords) {
  const Finished finished = run_soif({"from", "oai-dc"}, oai);
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out,
            "@DOCUMENT { http://a/1\noai-identifier{7}:\toai:x:1\noai-datestamp{10}:\t2026-01-02\noai-set{1}:\ts\n"
            "title{1}:\tT\n}\n"
            "@DOCUMENT { oai:x:3\noai-identifier{7}:\toai:x:3\nauthor{1}:\tC\n}\n");
  EXPECT_EQ(finished.errors,
            "soif: the input:6:1: deleted: oai:x:2\n"
            "soif: the input:9:1: the list has more records: resumptionToken more\n");
}

TEST(SoifOai, ListsDeletedRecords) {
  const support::TemporaryDirectory directory;
  const std::string deletions = directory.path("deletions");
  const Finished finished = run_soif({"from", "oai-dc", "--deletions", deletions, "--oai-identifiers"}, oai);
  EXPECT_EQ(support::read_file(deletions), "oai:x:2\n");
  EXPECT_THAT(finished.out, HasSubstr("@DOCUMENT { oai:x:1\n"));
  EXPECT_THAT(finished.out, HasSubstr("\nidentifier{10}:\thttp://a/1\n"));
  EXPECT_EQ(finished.errors, "soif: the input:9:1: the list has more records: resumptionToken more\n");
}

TEST(SoifOai, AnIdentifierIsOneLineOfTheList) {
  const std::string start =
                        R"(<OAI-PMH xmlns="http://www.openarchives.org/OAI/2.0/"><record><header status="deleted">)",
                    end = "</header></record></OAI-PMH>";
  for (const char *identifier : {"", "<identifier/>", "<identifier>a\nb</identifier>"})
    EXPECT_EQ(run_soif({"from", "oai-dc", "-q"}, start + identifier + end).errors,
              "soif: the input:1:55: a deleted record without an identifier\n");
}

TEST(SoifOai, AnErrorOfTheServerIsAFailure) {
  const Finished finished = run_soif(
      {"from", "oai-dc"},
      R"(<OAI-PMH xmlns="http://www.openarchives.org/OAI/2.0/"><error code="noRecordsMatch">None</error></OAI-PMH>)");
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "soif: the input: the answer is an error: noRecordsMatch: None\n");
}

TEST(SoifOai, ReportsNotesAsJson) {
  EXPECT_THAT(run_soif({"from", "oai-dc", "--json"}, oai).errors,
              HasSubstr(R"({"input":"the input","line":6,"column":1,"note":"deleted: oai:x:2"})"
                        "\n"));
}

}  // namespace
