// SPDX-License-Identifier: MIT
/// The verbs fmt and check, and what they are made of.

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/model.h"
#include "tools/soif/json_text.h"
#include "tools/soif/mend.h"
#include "tools/soif/run_soif.h"

using namespace rdm;
using namespace rdm::soif_tool;

namespace {

using support::Finished;

const std::string sound = "@FILE { http://a/1\ntitle{3}:\tOne\nauthor-1{1}:\tA\nempty{0}:\t\nbody{4}:\t}\n@\n\n}\n";

TEST(SoifFormat, KeepsASoundStreamAsItIs) {
  const Finished finished = run_soif({"fmt"}, sound + sound);
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, sound + sound);
  EXPECT_EQ(finished.errors, "");
}

TEST(SoifFormat, KeepsTheOrderOfTheExamples) {
  for (const char *name : {"examples/rfc/rds.soif", "examples/classics/rds.soif"}) {
    std::string text = support::read_file(support::in_source(name));
    const Finished finished = run_soif({"fmt", support::in_source(name)});
    for (size_t blank = text.find("}\n\n"); blank != std::string::npos; blank = text.find("}\n\n"))
      text.erase(blank + 1, 1);
    EXPECT_EQ(finished.out, text) << name;
  }
}

TEST(SoifFormat, CountsTheBytesOfValues) {
  const struct {
    const char *text, *formatted;
  } rows[] = {
      {"@F { u\na{9}:\tone\n}\n", "@F { u\na{3}:\tone\n}\n"},
      {"@F { u\na{1}:\tone\nb{3}:\ttwo\n}\n", "@F { u\na{3}:\tone\nb{3}:\ttwo\n}\n"},
      {"@F { u\nA{}: one\nb{}:\n}", "@F { u\na{3}:\tone\nb{0}:\t\n}\n"},
      {"@F { u\na{3}: one\n}\n", "@F { u\na{3}:\tone\n}\n"},
      {"@F { u\na{2}:\tlines\nmore {of} it: x\n\nb{1}:\ty\n}\n",
       "@F { u\na{22}:\tlines\nmore {of} it: x\n\nb{1}:\ty\n}\n"},
      {"@F { u\na{9}:\tx{1}:\n}\nrest\n}\n", "@F { u\na{12}:\tx{1}:\n}\nrest\n}\n"},
      {"@F { u\r\na{30}:\tone\r\nb{3}:\ttwo\r\n}\r\n", "@F { u\na{3}:\tone\nb{3}:\ttwo\n}\n"},
      {"@F { u\na{1}:\tx\nb{1}:\ty\n", "@F { u\na{1}:\tx\nb{1}:\ty\n}\n"},
      {"@F { u\na{7}:\tx", "@F { u\na{1}:\tx\n}\n"},
      // The parser takes these: the first value ends within a name, within a line, or before a brace.
      {"@F { u\ntitle{9}:\tOne\nauthor{1}:\tA\n}\n", "@F { u\ntitle{3}:\tOne\nauthor{1}:\tA\n}\n"},
      {"@F { u\na{1}:\txb{1}:\ty\n}\n", "@F { u\na{1}:\tx\nb{1}:\ty\n}\n"},
      {"@F { u\na{1}:\tx}y\nb{1}:\tz\n}\n", "@F { u\na{3}:\tx}y\nb{1}:\tz\n}\n"},
  };
  for (const auto &row : rows) {
    const Finished finished = run_soif({"fmt"}, row.text);
    EXPECT_EQ(finished.status, 0) << row.text << finished.errors;
    EXPECT_EQ(finished.out, row.formatted) << row.text;
    EXPECT_EQ(run_soif({"fmt"}, finished.out).out, row.formatted) << row.text;
  }
}

TEST(SoifFormat, RejectsWhatItCannotMend) {
  const std::string one = "@F { u1\na{1}:\tx\n}\n", lost = "# lost\n", cut = "@F\n",
                    open = "@F { u3\na{9}:\tb\n}\nrest\n";
  const support::TemporaryDirectory directory;
  const std::string rejects = directory.path("rejects"), output = directory.path("output");
  const Finished finished = run_soif({"fmt", "--rejects", rejects, "-o", output}, one + lost + open + one + cut);
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.errors,
            "soif: the input:4:1: this text belongs to no object\n"
            "soif: the input:5:1: attribute name \"@F \", after a value of the wrong size\n"
            "soif: the input:12:1: not a SOIF object\n"
            "soif: 3 rejected, 2 done\n");
  EXPECT_EQ(support::read_file(output), one + one);
  EXPECT_EQ(support::read_file(rejects), lost + open + cut);
}

TEST(SoifFormat, ReplacesItsOwnInput) {
  const support::TemporaryDirectory directory;
  const std::string file = directory.write("file", "@F { u\na{9}:\tone\n}\n");
  EXPECT_EQ(run_soif({"fmt", file, "--output", file}).status, 0);
  EXPECT_EQ(support::read_file(file), "@F { u\na{3}:\tone\n}\n");
}

TEST(SoifCheck, NamesFileLineAndColumnOfEachFault) {
  const support::TemporaryDirectory directory;
  const std::string good = directory.write("good", sound);
  const std::string bad = directory.write("bad", sound + "@F { u\na{9}:\tone\nb{0}:\ttwo\n}\n@\n@F { v\na{1}:\tx\n");
  const Finished finished = run_soif({"check", good, bad});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, bad + ":10:1: a{9} should be a{3}\n" + bad + ":11:1: b{0} should be b{3}\n" + bad +
                              ":13:1: attribute name \"(empty)\", after a value of the wrong size\n" + bad +
                              ":16:1: the closing brace is missing\n");
  EXPECT_EQ(finished.errors, "soif: 4 faults, 2 sound\n");
  EXPECT_EQ(run_soif({"check", good}).status, 0);
}

TEST(SoifCheck, FindsCountsThatTheParserTakes) {
  const std::string text = "@F { u\ntitle{9}:\tOne\nauthor{1}:\tA\n}\n";
  EXPECT_EQ(run_soif({"check", "-q"}, text).out, "the input:2:1: title{9} should be title{3}\n");
  EXPECT_EQ(run_soif({"to", "ndjson"}, text).out,
            R"({"template":"F","url":"u","attributes":{"title":"One\nautho","r":"A"}})"
            "\n");
}

TEST(SoifCheck, OtherVerbsRejectAnObjectOnce) {
  const support::Finished finished = run_soif({"to", "ndjson"}, "@F { u\na{9}:\tone\nb{9}:\ttwo\n}\n");
  EXPECT_EQ(finished.errors, "soif: the input:2:1: a{9} should be a{3}\nsoif: 1 rejected, 0 done\n");
}

TEST(SoifCheck, FindsTextThatBelongsToNoObject) {
  EXPECT_EQ(run_soif({"check", "-q"}, sound + " lost\n" + sound).out,
            "the input:9:2: this text belongs to no object\n");
}

TEST(SoifCheck, WritesFaultsAsJson) {
  const Finished finished = run_soif({"check", "--json"}, "@F { u\na\xFF{9}:\tone\n}\n");
  EXPECT_EQ(finished.out, R"({"input":"the input","line":2,"column":1,"reason":"a?{9} should be a?{3}"})"
                          "\n"
                          R"({"verb":"check","sound":0,"faults":1})"
                          "\n");
  EXPECT_EQ(finished.errors, "");
}

TEST(SoifCheck, AFileThatCannotBeReadChangesNothing) {
  const Finished finished = run_soif({"check", "/nonexistent"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "soif: cannot read /nonexistent: No such file or directory\n");
  EXPECT_EQ(run_soif({"fmt", "/"}).errors, "soif: cannot read /: Is a directory\n");
}

rc::Gen<std::string> texts(const char *characters, size_t longest) {
  return rc::gen::mapcat(rc::gen::inRange<size_t>(0, longest), [=](size_t length) {
    return rc::gen::container<std::string>(length, rc::gen::elementOf(std::string(characters)));
  });
}

// Values without lines that look like attributes.
TEST(SoifFormat, FindsTheRightCountsAgain) {
  support::check_model(300, [] {
    Description description{"F", "u", {}};
    std::string text = "@F { u\n";
    for (int i = *rc::gen::inRange(0, 6); i > 0; --i) {
      Attribute attribute{"a", *texts("xyz {:", 9) + *rc::gen::element("", "\nb {1}:", "\n\nc}") + "."};
      const int count = *rc::gen::inRange(0, 40);
      text += "a{" + std::to_string(count) + "}:\t" + attribute.value + "\n";
      description.attributes.push_back(attribute);
    }
    const std::optional<Mended> mended = mend(text + "}\n");
    RC_ASSERT(mended.has_value());
    RC_ASSERT(mended->description.url == description.url);
    // A wrong count may fit by chance: where another attribute begins.
    if (mended->description.attributes.size() == description.attributes.size())
      RC_ASSERT(mended->description == description);
  });
}

TEST(SoifFormat, MendsNestedCountsInLinearTime) {
  const auto many = [](int heads) {
    std::string text = "@F { u\n";
    for (int i = 0; i < heads; ++i) text += "a{" + std::to_string(8 * heads - 8 * i) + "}:\t\n";
    return text + std::string(static_cast<size_t>(heads), '\n') + "x\n";
  };
  EXPECT_FALSE(mend(many(40'000) + "}\nrest").has_value());
  std::string to_the_end;
  for (size_t size = 2'000'000; size > 16; size -= 16)
    to_the_end += "a{" + std::to_string(10'000'000 + size).substr(1) + "}:\tyz\n\n";
  EXPECT_FALSE(mend("@F { u\n" + to_the_end + "\n}x").has_value());
}

TEST(JsonText, EscapesWhatJsonRequires) {
  EXPECT_EQ(json_string(std::string_view("a\"\\\b\f\n\r\t\x01\0\x7F\xC3\xA9/", 14)),
            "\"a\\\"\\\\\\b\\f\\n\\r\\t\\u0001\\u0000\x7F\xC3\xA9/\"");
}

TEST(JsonText, KnowsUtf8) {
  const struct {
    std::string text;
    bool is_utf8;
  } rows[] = {
      {"", true},
      {"abc\x7F", true},
      {"\xC2\x80\xDF\xBF", true},
      {"\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF", true},
      {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", true},
      {"\x80", false},
      {"\xC1\x80", false},
      {"\xC3", false},
      {"\xC3(", false},
      {"\xE0\x9F\xBF", false},
      {"\xED\xA0\x80", false},
      {"\xE2\x82", false},
      {"\xE2\x82(", false},
      {"\xF0\x8F\xBF\xBF", false},
      {"\xF4\x90\x80\x80", false},
      {"\xF5\x80\x80\x80", false},
      {"\xFF", false},
  };
  for (const auto &row : rows) EXPECT_EQ(is_utf8(row.text), row.is_utf8) << testing::PrintToString(row.text);
}

}  // namespace
