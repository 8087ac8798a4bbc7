// SPDX-License-Identifier: MIT
#include "service/schema.h"

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qxapi/guard.h"
#include "service/schema/mapping.h"
#include "support/diagnostics.h"
#include "support/directories.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector<std::string>;

/// Sdl writes schema descriptions.
class Sdl {
 public:
  explicit Sdl(std::string text = "@SCHEMA { -\n") : text_(std::move(text)) {}

  Sdl &attribute(const std::string &name, const std::string &value) {
    text_ += name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
    return *this;
  }
  /// group starts the next group; map adds a whole one.
  Sdl &group() {
    ++number_;
    return *this;
  }
  Sdl &in_group(const std::string &name, const std::string &value) {
    return attribute(name + "-" + std::to_string(number_), value);
  }
  Sdl &map(const std::string &attribute, const std::string &table, const std::string &column) {
    group().in_group("soif-attribute", attribute);
    return in_group("system-table-name", table).in_group("system-column-name", column);
  }
  std::string text() const { return text_ + "}\n"; }

 private:
  std::string text_;
  int number_ = 0;
};

/// Schema starts each test with an empty translator without a root table.
class Schema : public support::HostTest {
 protected:
  Schema() { schema::_schema_has_root_table = false; }
  void TearDown() override {
    schema::clear();
    HostTest::TearDown();
  }

  int load(const std::string &text) { return schema_translate_init(directory.write("schema.rdm", text).c_str()); }
  int load(const Sdl &sdl) { return load(sdl.text()); }

  /// load_library loads a root table and two others.
  void load_library() {
    Sdl sdl;
    sdl.attribute("schema-name", "Library");
    sdl.map("id", "docs", "id").in_group("data-type", "serial").in_group("is-internal", "1");
    sdl.map("title", "docs", "title").in_group("data-type", "string");
    sdl.map("author", "authors", "name");
    sdl.map("Last_Modified", "docs", "last_modified").in_group("data-type", "date");
    sdl.map("keyword", "words", "name");
    sdl.map("author-id", "authors", "docid").in_group("is-internal", "yes");
    ASSERT_EQ(load(sdl), 0);
  }

  static std::string found(char *(*translate)(const char *, char *) noexcept, const char *wanted) {
    char out[SCHEMA_TEXT_SIZE];
    std::memset(out, 'x', sizeof out);
    const char *result = translate(wanted, out);
    if (result == nullptr) return out[0] == '\0' ? "(null)" : "(null, but not emptied)";
    EXPECT_EQ(result, out);
    return out;
  }
  static std::string column_of(const char *attribute) { return found(schema_translate_soifattribute, attribute); }

  static std::string rdbms(const char *list) {
    char *out = nullptr;
    const HostText text(schema_translate_soif2rdbms(list, &out));
    EXPECT_EQ(text.get(), out);
    return text ? text.get() : "(null)";
  }
  static std::string join(const char *tblcols) {
    const char *clause = schema_translate_alljoin(tblcols);
    return clause != nullptr ? clause : "(null)";
  }
  static Texts tables(const char *tblcols) {
    char **array = nullptr;
    const int32_t count = schema_systables(tblcols, &array);
    const HostPtr<char *> owner(array);
    return {array, array + count};
  }
  static Texts listed(void (*list)(char ***, int32_t *) noexcept) {
    char **array = nullptr;
    int32_t count = -1;
    list(&array, &count);
    const HostPtr<char *> owner(array);
    return {array, array + count};
  }

  support::TemporaryDirectory directory;
  support::Diagnostics diagnostics;
};

TEST_F(Schema, FindsNothingBeforeItIsLoaded) {
  EXPECT_STREQ(schema_name(), "");
  EXPECT_EQ(column_of("title"), "(null)");
  EXPECT_EQ(schema_translate_soifattr2datatype("title"), 0);
  EXPECT_EQ(found(schema_translate_tblcol, "docs.title"), "(null)");
  EXPECT_EQ(found(schema_translate_col, "title"), "(null)");
  EXPECT_EQ(rdbms("title"), "");
  EXPECT_THAT(tables(nullptr), IsEmpty());
  EXPECT_THAT(tables("docs.title"), IsEmpty());
  EXPECT_EQ(join(nullptr), "(null)");
  EXPECT_THAT(listed(schema_soifattrs), IsEmpty());
  EXPECT_THAT(listed(schema_tblcols), IsEmpty());
}

TEST_F(Schema, TakesNameAndMappingFromTheFile) {
  load_library();
  EXPECT_STREQ(schema_name(), "Library");
  EXPECT_EQ(column_of("title"), "docs.title");
  EXPECT_EQ(column_of("author"), "authors.name");
  EXPECT_EQ(column_of("unknown"), "(null)");
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Schema, AnRdmHeaderBeforeTheSchemaIsSkipped) {
  const std::string header = "@rdmHeader { -\nrdm-version{3}:\t1.0\nsoif-attribute-1{1}:\tx\n}\n\n";
  EXPECT_EQ(load(header + Sdl().attribute("schema-name", "Bare").map("title", "docs", "title").text()), 0);
  EXPECT_STREQ(schema_name(), "Bare");
  EXPECT_THAT(listed(schema_tblcols), ElementsAre("docs.title"));
  // One header, and one object of any template after it.
  EXPECT_EQ(load("@RDMHEADER { -\n}\n@RDMHEADER { -\nschema-name{1}:\ta\n}\n@SCHEMA { -\nschema-name{1}:\tb\n}\n"), 0);
  EXPECT_STREQ(schema_name(), "a");
}

TEST_F(Schema, FilesThatCannotBeOpenedAreReported) {
  const std::string missing = directory.path("missing");
  EXPECT_EQ(schema_translate_init(missing.c_str()), -1);
  EXPECT_EQ(schema_translate_init(nullptr), -1);
  EXPECT_EQ(schema_translate_init(""), -1);
  EXPECT_EQ(diagnostics.text(), "ERROR: Cannot initialize schema translator: " + missing +
                                    "\n"
                                    "ERROR: Cannot initialize schema translator: (null)\n"
                                    "ERROR: Cannot initialize schema translator: (empty)\n");
}

TEST_F(Schema, FilesWithoutASchemaAreReported) {
  const std::string path = directory.path("schema.rdm"), line = "ERROR: Invalid SDL? " + path + "\n";
  EXPECT_EQ(load(""), -1);
  EXPECT_EQ(load("no object\n"), -1);
  EXPECT_EQ(load("@RDMHEADER { -\n}\n"), -1);
  EXPECT_EQ(load("@SCHEMA { -\nschema-name{x}: y\n}\n"), -1);
  EXPECT_EQ(schema_translate_init(directory.path().c_str()), -1);
  EXPECT_EQ(diagnostics.text(), line + line + line + line + "ERROR: Invalid SDL? " + directory.path() + "\n");
}

TEST_F(Schema, AFailedLoadLeavesNothingBehind) {
  load_library();
  EXPECT_EQ(schema_translate_init(nullptr), -1);
  EXPECT_STREQ(schema_name(), "");
  EXPECT_EQ(column_of("title"), "(null)");
  EXPECT_THAT(tables(nullptr), IsEmpty());
  load_library();
  EXPECT_EQ(load(""), -1);
  EXPECT_STREQ(schema_name(), "");
  EXPECT_EQ(column_of("title"), "(null)");
}

TEST_F(Schema, ASecondLoadReplacesTheFirst) {
  load_library();
  EXPECT_EQ(load(Sdl().map("subject", "topics", "name")), 0);
  EXPECT_STREQ(schema_name(), "");
  EXPECT_EQ(column_of("title"), "(null)");
  EXPECT_EQ(column_of("subject"), "topics.name");
  EXPECT_THAT(tables(nullptr), ElementsAre("topics"));
  EXPECT_THAT(listed(schema_soifattrs), ElementsAre("subject"));
}

TEST_F(Schema, TheRootTableIsTheFirstEverLoadedWithAColumnCalledId) {
  load(Sdl().map("a", "upper", "ID").map("b", "one", "id").map("c", "two", "id"));
  EXPECT_EQ(join(nullptr), " AND one.id = upper.docid  AND one.id = two.docid ");
  load(Sdl().map("key", "books", "id").map("author", "authors", "name"));
  EXPECT_EQ(join("authors.name"), " AND one.id = authors.docid ");
  EXPECT_EQ(join(nullptr), " AND one.id = books.docid  AND one.id = authors.docid ");
  schema::_schema_has_root_table = false;
  load(Sdl().map("a", "", "id").map("b", "docs", "id"));
  EXPECT_EQ(join(nullptr), " AND .id = docs.docid ") << "its name may be empty";
}

TEST_F(Schema, TerminationReleasesNothing) {
  load_library();
  schema_translate_terminate();
  EXPECT_EQ(column_of("title"), "docs.title");
}

TEST_F(Schema, LongNamesOfSchemasAreCut) {
  load(Sdl().attribute("schema-name", std::string(127, 'n')));
  EXPECT_EQ(schema_name(), std::string(127, 'n'));
  load(Sdl().attribute("schema-name", std::string(128, 'm')));
  EXPECT_EQ(schema_name(), std::string(127, 'm'));
  load(Sdl().attribute("schema-name", std::string(5000, '%')));
  EXPECT_EQ(schema_name(), std::string(127, '%'));
}

TEST_F(Schema, AGroupWithoutTableOrColumnLeavesItsPlaceToTheNext) {
  Sdl sdl;
  sdl.map("one", "t", "one");
  sdl.group().in_group("soif-attribute", "two").in_group("system-column-name", "two");
  sdl.map("three", "t", "three");
  sdl.group().in_group("soif-attribute", "four").in_group("system-table-name", "t");
  sdl.group().in_group("soif-attribute", "five");
  sdl.map("six", "t", "six");
  EXPECT_EQ(load(sdl), 0);
  EXPECT_STREQ(schema::tc2soif[1].soif_attribute, "three");
  EXPECT_THAT(listed(schema_soifattrs), ElementsAre("one", "three", "six"));
  EXPECT_THAT(listed(schema_tblcols), ElementsAre("t.one", "t.three", "t.six"));
  EXPECT_EQ(diagnostics.text(),
            "WARNING: No System-Table-Name associated with SOIF-Attribute two?\n"
            "WARNING: No System-Column-Name associated with SOIF-Attribute four?\n"
            "WARNING: No System-Table-Name associated with SOIF-Attribute five?\n");
}

TEST_F(Schema, GroupsAreReadUpToTheFirstThatIsMissing) {
  Sdl sdl;
  sdl.map("one", "t", "one").map("two", "t", "two").map("three", "t", "three").group().map("five", "t", "five");
  load(sdl);
  EXPECT_THAT(listed(schema_soifattrs), ElementsAre("one", "two", "three"));
}

TEST_F(Schema, HoldsTwoHundredAndFiftySixEntriesAndTables) {
  Sdl sdl;
  for (int i = 1; i <= 300; ++i) {
    const std::string n = std::to_string(i);
    sdl.map("a" + n, "t" + n, "c");
  }
  EXPECT_EQ(load(sdl), 0);
  EXPECT_EQ(listed(schema_soifattrs).size(), 256u);
  EXPECT_EQ(tables(nullptr).size(), 256u);
  EXPECT_EQ(column_of("a256"), "t256.c");
  EXPECT_EQ(column_of("a257"), "(null)");
}

TEST_F(Schema, NamesThatDoNotFitTheOutTextsAreLeftOut) {
  const std::string longest(1023, 'a'), too_long(1024, 'b'), table(1000, 't');
  Sdl sdl;
  sdl.map(longest, table, std::string(22, 'c')).map(too_long, "t", "c").map("wide", table, std::string(23, 'd'));
  sdl.map("last", "t", "last");
  EXPECT_EQ(load(sdl), 0);
  EXPECT_EQ(column_of(longest.c_str()), table + "." + std::string(22, 'c'));
  EXPECT_EQ(found(schema_translate_col, std::string(22, 'c').c_str()), longest);
  EXPECT_THAT(listed(schema_soifattrs), ElementsAre(longest, "last"));
  EXPECT_EQ(diagnostics.text(), "WARNING: Names too long for SOIF-Attribute " + std::string(64, 'b') +
                                    "?\n"
                                    "WARNING: Names too long for SOIF-Attribute wide?\n");
}

TEST_F(Schema, DataTypesAreCodes) {
  const struct {
    const char *text;
    int32_t code;
  } types[] = {{"int", 1}, {"serial", 2}, {"date", 3},  {"string", 4},    {"float", 5}, {"blob", 6},
               {"INT", 1}, {"Float", 5},  {" date", 3}, {"\t\n blob", 6}, {"int ", 0},  {"integer", 0},
               {"", 0},    {" ", 0},      {"text", 0},  {"in", 0}};
  for (const auto &type : types) {
    ASSERT_EQ(load(Sdl().map("a", "t", "c").in_group("data-type", type.text)), 0);
    EXPECT_EQ(schema_translate_soifattr2datatype("a"), type.code) << type.text;
  }
  ASSERT_EQ(load(Sdl().map("a", "t", "c")), 0);
  EXPECT_EQ(schema_translate_soifattr2datatype("a"), 4);
  EXPECT_EQ(schema_translate_soifattr2datatype("b"), 0);
  EXPECT_EQ(schema_translate_soifattr2datatype(nullptr), 0);
}

TEST_F(Schema, InternalAttributesAreNotListed) {
  Sdl sdl;
  for (const char *flag : {"0", "1", "-1", " 2x", "x", "", "99999999999999999999"})
    sdl.map(std::string("flag ") + flag, "t", std::string("c") + flag).in_group("is-internal", flag);
  sdl.map("none", "t", "none");
  load(sdl);
  EXPECT_THAT(listed(schema_soifattrs), ElementsAre("flag 0", "flag x", "flag ", "none"));
  EXPECT_THAT(listed(schema_tblcols), ElementsAre("t.c0", "t.cx", "t.c", "t.none"));
  EXPECT_EQ(column_of("flag 1"), "t.c1");
  const int32_t flags[] = {0, 1, 1, 1, 0, 0, 1, 0};
  for (size_t i = 0; i < std::size(flags); ++i) EXPECT_EQ(schema::tc2soif[i].is_internal, flags[i]) << i;
}

struct MatchCase {
  const char *stored, *wanted;
  bool matches;
};

constexpr MatchCase match_cases[] = {
    {"title", "title", true},
    {"title", "TITLE", true},
    {"TiTlE", "title", true},
    {"Last_Modified", "last-modified", true},
    {"last_modified", "last_modified", true},
    {"last-modified", "last_modified", false},
    {"last-modified", "last-modified", true},
    {"a_b_c", "a-b_c", true},
    {"title", "titles", false},
    {"title", "titl", false},
    {"title", "", false},
    {"", "", true},
    {"", "a", false},
};

TEST_F(Schema, AttributesMatchInAnyCaseAndWithHyphensForUnderscores) {
  for (const MatchCase &c : match_cases) {
    ASSERT_EQ(load(Sdl().map(c.stored, "t", "c")), 0);
    EXPECT_EQ(column_of(c.wanted), c.matches ? "t.c" : "(null)") << c.wanted << " of " << c.stored;
  }
  EXPECT_EQ(column_of(nullptr), "(null)");
}

TEST_F(Schema, ColumnsMatchInTheSameWay) {
  for (const MatchCase &c : match_cases) {
    ASSERT_EQ(load(Sdl().map("a", "t", c.stored)), 0);
    const std::string tblcol = std::string("T.") + c.wanted;
    EXPECT_EQ(found(schema_translate_tblcol, tblcol.c_str()), c.matches ? "a" : "(null)") << tblcol;
    EXPECT_EQ(found(schema_translate_col, c.wanted), c.matches ? "a" : "(null)") << c.wanted << " of " << c.stored;
  }
  EXPECT_EQ(found(schema_translate_tblcol, nullptr), "(null)");
  EXPECT_EQ(found(schema_translate_col, nullptr), "(null)");
}

TEST_F(Schema, TheFirstEntryThatMatchesCounts) {
  load(Sdl().map("a", "t1", "c").map("A", "t2", "c").map("b", "t1", "c"));
  EXPECT_EQ(column_of("A"), "t1.c");
  EXPECT_EQ(found(schema_translate_col, "c"), "a");
  EXPECT_EQ(found(schema_translate_tblcol, "t2.c"), "A");
  EXPECT_EQ(found(schema_translate_tblcol, "t1.c"), "a");
}

TEST_F(Schema, AColumnFollowsTheFirstDot) {
  load(Sdl().map("a", "owner.t", "c"));
  EXPECT_EQ(column_of("a"), "owner.t.c");
  EXPECT_EQ(found(schema_translate_col, "t.c"), "a");
  EXPECT_EQ(found(schema_translate_col, "c"), "(null)");
  EXPECT_THAT(tables(nullptr), ElementsAre("owner"));
}

TEST_F(Schema, ListsOfAttributesBecomeListsOfColumns) {
  load_library();
  const struct {
    const char *list, *expected;
  } cases[] = {{nullptr, ""},
               {"", ""},
               {",", ""},
               {"title", "docs.title"},
               {"title,author", "docs.title,authors.name"},
               {"author,title", "authors.name,docs.title"},
               {",title,,author,", "docs.title,authors.name"},
               {"title,title,author,title", "docs.title,authors.name"},
               {"title,Title", "docs.title,docs.title"},
               {"last-modified", "docs.last_modified"},
               {"id", "docs.id"}};
  for (const auto &c : cases) EXPECT_EQ(rdbms(c.list), c.expected) << (c.list != nullptr ? c.list : "(null)");
  EXPECT_EQ(diagnostics.raw(), "");
}

TEST_F(Schema, UnknownAttributesOfAListAreLeftOutWithAWarning) {
  load_library();
  EXPECT_EQ(rdbms("nope,title,nope, author,%s,a\nb"), "docs.title");
  EXPECT_EQ(diagnostics.text(),
            "WARNING: Unknown SOIF-Attribute: 'nope'\n"
            "WARNING: Unknown SOIF-Attribute: ' author'\n"
            "WARNING: Unknown SOIF-Attribute: '%s'\n"
            "WARNING: Unknown SOIF-Attribute: 'a\\nb'\n");
}

TEST_F(Schema, ListsAreLimited) {
  load_library();
  const std::string longest = "title" + std::string(8186, ',');
  EXPECT_EQ(rdbms(longest.c_str()), "docs.title");
  EXPECT_EQ(rdbms((longest + ",").c_str()), "(null)");
  EXPECT_EQ(diagnostics.text(), "ERROR: List of SOIF-Attributes too long: 8192 bytes\n");
}

TEST_F(Schema, ListsOfColumnsAreLimited) {
  const std::string table(800, 't');
  Sdl sdl;
  std::string list;
  for (int i = 0; i < 10; ++i) {
    const std::string name(1, static_cast<char>('a' + i));
    sdl.map(name, table, std::string(16, 'c') + name);  // 818 bytes and a comma
    list += name + ",";
  }
  ASSERT_EQ(load(sdl.map("fits", "", "").map("exceeds", "t", "")), 0);  // "." and "t.", after 8190 bytes
  EXPECT_EQ(rdbms((list + "fits").c_str()).size(), 8191u);
  EXPECT_EQ(diagnostics.raw(), "");
  EXPECT_EQ(rdbms((list + "exceeds").c_str()), "(null)");
  EXPECT_EQ(diagnostics.text(), "ERROR: List of columns too long for SOIF-Attributes: '" + list + "exceeds'\n");
}

TEST_F(Schema, TablesOfAListAreInTheOrderOfTheSchema) {
  load_library();
  EXPECT_THAT(tables(nullptr), ElementsAre("docs", "authors", "words"));
  EXPECT_THAT(tables("words.name,docs.title,words.other"), ElementsAre("docs", "words"));
  EXPECT_THAT(tables("authors"), ElementsAre("authors"));
  EXPECT_THAT(tables(",authors.name,,"), ElementsAre("authors"));
  EXPECT_THAT(tables("nope.name,title, docs.title,DOCS.title,doc.title"), IsEmpty());
  EXPECT_THAT(tables(""), IsEmpty());
  std::string many;
  for (int i = 0; i < 10000; ++i) many += "words.name,";
  EXPECT_THAT(tables(many.c_str()), ElementsAre("words"));
}

TEST_F(Schema, TablesWithoutAListComeWithAllTheirPlaces) {
  load_library();
  char **array = nullptr;
  EXPECT_EQ(schema_systables(nullptr, &array), 3);
  const HostPtr<char *> owner(array);
  for (int i = 3; i < 256; ++i) EXPECT_EQ(array[i], nullptr);
}

TEST_F(Schema, JoinsTieTablesToTheRootTable) {
  load_library();
  EXPECT_EQ(join(nullptr), " AND docs.id = authors.docid  AND docs.id = words.docid ");
  EXPECT_EQ(join("words.name"), " AND docs.id = words.docid ");
  EXPECT_EQ(join("words.name,docs.title,authors.name"), join(nullptr));
  EXPECT_EQ(join("docs.title"), "");
  EXPECT_EQ(join("nope.name"), "(null)");
  EXPECT_EQ(join(""), "(null)");
}

TEST_F(Schema, JoinsStandInOneBuffer) {
  load_library();
  char *const first = schema_translate_alljoin("words.name");
  EXPECT_EQ(schema_translate_alljoin("authors.name"), first);
  EXPECT_STREQ(first, " AND docs.id = authors.docid ");
}

TEST_F(Schema, JoinsAreLimited) {
  constexpr size_t around_a_table = std::string_view(" AND docs.id = .docid ").size(), longest = 8191;
  Sdl fits;
  fits.map("id", "docs", "id");
  for (char c = 'a'; c < 'h'; ++c) fits.map("a", std::string(1000, c), "c");
  const size_t left = longest - 7 * (1000 + around_a_table) - around_a_table;
  Sdl too_long = fits;
  ASSERT_EQ(load(fits.map("a", std::string(left, 'y'), "c")), 0);
  EXPECT_EQ(join(nullptr).size(), longest);
  EXPECT_EQ(diagnostics.raw(), "");
  ASSERT_EQ(load(too_long.map("a", std::string(left + 1, 'z'), "c")), 0);
  EXPECT_EQ(join(nullptr), "(null)");
  EXPECT_EQ(diagnostics.text(), "ERROR: Join of 9 tables too long\n");
}

TEST_F(Schema, LoadingWithoutMemoryIsReported) {
  Sdl sdl;
  sdl.map("a", "t", "c");
  ASSERT_EQ(load(sdl), 0);
  host.fail_allocation = host.allocations;  // the last one, of the system table
  host.allocations = 0;
  EXPECT_EQ(load(sdl), -1);
  EXPECT_EQ(diagnostics.text(), "ERROR: Cannot keep schema: " + directory.path("schema.rdm") + ": Out of memory\n");
  EXPECT_EQ(column_of("a"), "(null)");
  EXPECT_THAT(tables(nullptr), IsEmpty());
}

TEST_F(Schema, TheExampleSchemasLoad) {
  EXPECT_EQ(schema_translate_init(support::in_source("examples/classics/schema.rdm").c_str()), 0);
  EXPECT_STREQ(schema_name(), "Classics");
  EXPECT_EQ(column_of("first-published"), "books.first_published");
  EXPECT_EQ(schema_translate_soifattr2datatype("first-published"), SCHEMA_INT);
  EXPECT_EQ(diagnostics.raw(), "");
}

using SchemaDeathTest = Schema;

TEST_F(SchemaDeathTest, AJoinWithoutARootTableEndsTheProcess) {
  ASSERT_EQ(load(Sdl().map("title", "docs", "title")), 0);
  EXPECT_DEATH(schema_translate_alljoin("docs.title"),
               "^schema:[0-9]+: assertion failed: the schema has a root table\n$");
  EXPECT_EQ(join("nope.title"), "(null)");
}

}  // namespace
