// SPDX-License-Identifier: MIT
/// The formats json and ndjson, and what all converters share.

#include "tools/soif/formats/json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/os/error.h"
#include "support/files.h"
#include "tools/soif/base64.h"
#include "tools/soif/formats.h"
#include "tools/soif/run_soif.h"

using namespace rdm;
using namespace rdm::soif_tool;

namespace {

using support::Finished;
using testing::ElementsAre;
using testing::IsEmpty;

std::string one_line(const std::vector<Attribute> &attributes, const NameMap &map = {}) {
  return json_of({"F", "u", attributes}, map);
}

std::string with_attributes(const std::string &json) {
  return R"({"template":"F","url":"u","attributes":)" + json + "}";
}

TEST(SoifJson, ShowsDescriptionsForPeople) {
  const struct {
    std::vector<Attribute> attributes;
    const char *json;
  } rows[] = {
      {{}, "{}"},
      {{{"b", "2"}, {"a", "1"}}, R"({"b":"2","a":"1"})"},
      {{{"author-1", "x"}, {"author-2", "y"}, {"title", "z"}}, R"({"author":["x","y"],"title":"z"})"},
      {{{"author-1", "x"}}, R"({"author":["x"]})"},
      {{{"author-2", "x"}}, R"({"author-2":"x"})"},
      {{{"author-01", "x"}}, R"({"author-01":"x"})"},
      {{{"author", "x"}, {"author-1", "y"}}, R"({"author":"x","author-1":"y"})"},
      {{{"a-1", "x"}, {"b", "y"}, {"a-2", "z"}}, R"({"a":["x"],"b":"y","a-2":"z"})"},
      {{{"a", "x"}, {"a", "y"}}, R"([{"name":"a","value":"x"},{"name":"a","value":"y"}])"},
      {{{"a", "\xFF"}}, R"({"a":{"base64":"/w=="}})"},
      {{{"\xFF", "x"}}, R"([{"name":{"base64":"/w=="},"value":"x"}])"},
      {{{"a", std::string("\0\n", 2)}}, R"({"a":"\u0000\n"})"},
  };
  for (const auto &row : rows) EXPECT_EQ(one_line(row.attributes), with_attributes(row.json));
}

TEST(SoifJson, GathersNumberedAttributesIfAsked) {
  const std::string scattered = "@F { u\na-10{1}:\tj\nb{1}:\tx\na-2{1}:\tb\na-1{1}:\ta\nc-2{1}:\ty\n}\n";
  const Finished as_it_is = run_soif({"to", "ndjson"}, scattered),
                 gathered = run_soif({"to", "--gather", "ndjson"}, scattered);
  EXPECT_EQ(as_it_is.out, with_attributes(R"({"a-10":"j","b":"x","a-2":"b","a":["a"],"c-2":"y"})") + "\n");
  EXPECT_EQ(gathered.out, with_attributes(R"({"a":["a","b"],"a-10":"j","b":"x","c-2":"y"})") + "\n");
}

TEST(SoifJson, ReadsWhatOthersWrite) {
  const struct {
    const char *json;
    std::vector<Attribute> attributes;
  } rows[] = {
      {R"({"url":"u","Title":"x","pages":12,"price":1.50,"free":false,"note":null})",
       {{"title", "x"}, {"pages", "12"}, {"price", "1.50"}, {"free", "false"}}},
      {R"({"url":"u","big":18446744073709551615,"low":-3,"tags":["x",7]})",
       {{"big", "18446744073709551615"}, {"low", "-3"}, {"tags-1", "x"}, {"tags-2", "7"}}},
      {R"({"number":9,"url":"u","template":null,"attributes":{"a":[]}})", {}},
      {R"({"url":"u","attributes":{"a":"1","a":"2"}})", {{"a", "1"}, {"a", "2"}}},
  };
  for (const auto &row : rows) {
    const Taken taken = read_in("json", row.json);
    EXPECT_THAT(taken.faults, IsEmpty()) << row.json;
    EXPECT_THAT(taken.descriptions, ElementsAre(Description{"DOCUMENT", "u", row.attributes})) << row.json;
  }
}

TEST(SoifJson, NamesAndKeepsWhatIsNoDescription) {
  const std::pair<const char *, const char *> rows[] = {
      {"7", "1:1: not an object"},
      {"{\"url\":{}}", "1:1: \"url\" is not a text"},
      {"{\"url\":{\"base64\":\"x\"}}", "1:1: \"url\" is not base64"},
      {"{\"a\":{\"b\":1}}", "1:1: \"a\" is not a text"},
      {"{\"a\":[[1]]}", "1:1: \"a\" is not a text"},
      {"{\"attributes\":1}", "1:1: \"attributes\" is neither an object nor a list"},
      {"{\"url\":\"u\",\"url\":\"v\"}", "1:1: \"url\" twice"},
      {"{\"attributes\":{},\"attributes\":{\"a\":\"1\"}}", "1:1: \"attributes\" twice"},
      {"{\"attributes\":[1]}", "1:1: an attribute without \"name\" or \"value\""},
      {"{\"a\":1,}", "1:8: not JSON: syntax error while parsing object key - unexpected '}'; expected string literal"},
      {"{\"a\":\"\xFF\"}",
       "1:7: not JSON: syntax error while parsing value - invalid string: ill-formed UTF-8 byte; "
       "last read: '\"\xFF'"},
      {"{\"a\":1e999}", "1:10: not JSON: number overflow parsing '1e999'"},
      {"{\"a\":[[[[[[[[1]]]]]]]]}", "1:1: nested too deep"},
      {"{\"a\":\n\n  x}",
       "3:3: not JSON: syntax error while parsing value - invalid literal; last read: '\"a\":<U+000A><U+000A>  x'"},
  };
  for (const auto &[json, fault] : rows) {
    const Taken taken = read_in("json", json);
    EXPECT_THAT(taken.descriptions, IsEmpty()) << json;
    EXPECT_THAT(taken.faults, ElementsAre(fault)) << json;
    EXPECT_THAT(taken.bytes, ElementsAre(std::string(json) + "\n")) << json;
  }
}

TEST(SoifJson, ADamagedElementCostsNoOther) {
  const std::string good = R"({"url":"u"})";
  for (const std::string bad : {"{\"url\":\"u}\n", "{\"url\":x}", "{\"url\":1 2}", "nonsense", "{\"a\":1]"}) {
    const Taken taken = read_in("json", "[" + good + ",\n" + bad + ",\n" + good + "]");
    EXPECT_EQ(taken.faults.size(), 1U) << bad << testing::PrintToString(taken.faults);
    EXPECT_EQ(taken.descriptions.size(), 2U) << bad;
  }
  const Taken cut = read_in("json", "[" + good + ",");
  EXPECT_THAT(cut.faults, ElementsAre("1:14: the input ends within the array"));
  const Taken lines = read_in("ndjson", good + "\n{\n\n" + good + "\r\n" + good);
  EXPECT_EQ(lines.descriptions.size(), 3U);
  EXPECT_THAT(lines.bytes, ElementsAre("{\n"));
}

TEST(SoifJson, ReadsArraysSequencesAndAByteOrderMark) {
  const Description u{"DOCUMENT", "u", {}};
  for (const char *text : {"\xEF\xBB\xBF[{\"url\":\"u\"},{\"url\":\"u\"}]", "{\"url\":\"u\"}{\"url\":\"u\"}",
                           " [ {\"url\":\"u\"} ] [ {\"url\":\"u\"} ] "})
    for (const size_t piece : {1, 2, 3, 65536})
      EXPECT_THAT(read_in("json", text, {}, piece).descriptions, ElementsAre(u, u)) << text;
  for (const char *text : {"", "\xEF", "\xEF\xBB", "\xEF\xBB\xBF", "[]", " \n"})
    EXPECT_THAT(read_in("json", text, {}, 1).descriptions, IsEmpty()) << text;
}

TEST(SoifJson, WritesAnArrayWithOneDescriptionInALine) {
  const Description u{"F", "u", {}};
  const std::string line = R"({"template":"F","url":"u","attributes":{}})";
  EXPECT_EQ(written_in("json", {}), "[]\n");
  EXPECT_EQ(written_in("json", {u, u}), "[\n" + line + ",\n" + line + "\n]\n");
  EXPECT_EQ(written_in("ndjson", {u, u}), line + "\n" + line + "\n");
}

TEST(SoifJson, ComesBackAsItWas) {
  support::check_model(300, [] {
    const auto descriptions = *random_descriptions();
    for (const char *format : {"json", "ndjson"}) {
      const Taken taken = read_in(format, written_in(format, descriptions));
      RC_ASSERT(taken.faults.empty());
      RC_ASSERT(taken.descriptions == descriptions);
    }
  });
}

TEST(SoifConversion, SoifComesBackAsItWas) {
  support::check_model(100, [] {
    std::string text;
    for (const Description &description : *random_descriptions()) text += soif_of(description);
    RC_ASSERT(run_soif({"fmt"}, text).out == text);
    RC_ASSERT(run_soif({"from", "ndjson"}, run_soif({"to", "ndjson"}, text).out).out == text);
  });
}

TEST(SoifConversion, RejectsWhatSoifCannotHold) {
  const std::pair<const char *, const char *> rows[] = {
      {R"({"a":"x"})", "no URL"},
      {R"({"url":"a b"})", "the URL contains white space or NUL: a b"},
      {R"({"url":"{a"})", "the URL begins with a brace"},
      {R"({"url":"u","template":""})", "no template"},
      {R"({"url":"u","a b":"x"})", "not the name of an attribute: a b"},
      {R"({"url":"u","":"x"})", "an attribute without a name"},
      {R"({"url":"u","a{":"x"})", "not the name of an attribute: a{"},
  };
  for (const auto &[json, reason] : rows) {
    const Finished finished = run_soif({"from", "json", "-q"}, json);
    EXPECT_EQ(finished.status, 1) << json;
    EXPECT_EQ(finished.out, "") << json;
    EXPECT_EQ(finished.errors, std::string("soif: the input:1:1: ") + reason + "\n");
  }
  const std::string name(4096, 'n');
  EXPECT_EQ(fault_of({"F", name, {}}), "the URL has more than 4095 bytes");
  EXPECT_EQ(fault_of({"F", "u", {{name, ""}}}),
            "the name of an attribute has more than 4095 bytes: " + name.substr(0, 60) + "...");
}

TEST(SoifConversion, KeepsRejectedRecordsForTheNextTime) {
  const support::TemporaryDirectory directory;
  const std::string rejects = directory.path("rejects");
  const Finished finished = run_soif({"from", "json", "--rejects", rejects}, "[{\"url\":\"u\"},{\"url\":\"\"}, {]");
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "@DOCUMENT { u\n}\n");
  EXPECT_EQ(support::read_file(rejects), "{\"url\":\"\"}\n{]\n");
}

TEST(SoifConversion, MapsNamesInBothDirections) {
  const support::TemporaryDirectory directory;
  const std::string map = directory.write("map", "# names\n\n author = Creator\r\ntitle=Titel \n@url = link\n");
  const std::string text = "@F { u\ntitle{1}:\tx\nauthor-1{1}:\ty\nauthor-2{1}:\tz\nother{1}:\to\n}\n";
  const Finished json = run_soif({"to", "ndjson", "--map", map}, text);
  EXPECT_EQ(json.out, R"({"template":"F","link":"u","attributes":{"Titel":"x","Creator":["y","z"],"other":"o"}})"
                      "\n");
  EXPECT_EQ(run_soif({"from", "ndjson", "--map", map}, json.out).out, text);
  EXPECT_EQ(run_soif({"from", "json", "--map", map, "--template", "T"}, R"({"link":"u","Creator-7":1})").out,
            "@T { u\nauthor-7{1}:\t1\n}\n");
}

TEST(SoifConversion, RefusesAMistakenMap) {
  const support::TemporaryDirectory directory;
  const std::pair<const char *, const char *> rows[] = {
      {"a = b\nword", ":2: not \"attribute = name\""},
      {"a b = c", ":1: not the name of an attribute: \"a b\""},
      {"@other = c", ":1: not the name of an attribute: \"@other\""},
      {"a =", ":1: no name for a"},
      {"a = \xFF", ":1: not UTF-8: the name of a"},
      {"a = b\nA = c", ":2: a has a name already"},
      {"a = b\nc = b", ":2: another attribute has the name b"},
  };
  for (const auto &[text, error] : rows) {
    const std::string map = directory.write("map", text);
    const Finished finished = run_soif({"to", "json", "--map", map});
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.errors, "soif: " + map + error + "\n");
  }
  EXPECT_EQ(run_soif({"to", "json", "--map", "/nonexistent"}).errors,
            "soif: cannot read /nonexistent: No such file or directory\n");
}

TEST(SoifConversion, AMapReplacesItsOwnEntries) {
  NameMap map;
  map.add("a", "x");
  map.add("b", "x");
  map.add("b", "y");
  EXPECT_EQ(map.name_of("a"), "a");
  EXPECT_EQ(map.attribute_of("x"), "x");
  EXPECT_EQ(map.name_of("b"), "y");
  EXPECT_TRUE(map.knows("b-2"));
  EXPECT_FALSE(map.knows("a"));
}

TEST(SoifConversion, RefusesARecordWithoutEnd) {
  ByteSource source([](char *, size_t) { return size_t{0}; }, "file");
  source.require_room(largest_record, 7);
  EXPECT_THROW(source.require_room(largest_record + 1, 7), catalog::Failure);
}

TEST(Base64, IsThatOfTheStandard) {
  const std::pair<std::string, const char *> rows[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xFF\xFE\xFD", "//79"},
  };
  for (const auto &[bytes, text] : rows) {
    EXPECT_EQ(base64_of(bytes), text);
    EXPECT_EQ(bytes_of_base64(text), bytes);
  }
  for (const char *text : {"Z", "Zg", "Zg=", "Zg===", "Zh==", "====", "=", "Zg ==", "Zm9v\n", "Zm9=", "-_=="})
    EXPECT_EQ(bytes_of_base64(text), std::nullopt) << text;
}

}  // namespace
