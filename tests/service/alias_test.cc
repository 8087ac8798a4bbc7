// SPDX-License-Identifier: MIT
#include "service/alias.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/diagnostics.h"
#include "support/files.h"
#include "support/growth.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using Names = std::vector<std::string>;

/// The two maps of an alias file.
class Alias : public support::HostTest {
 protected:
  void TearDown() override { alias_destroy(a2p, p2a); }

  int init(const std::string &text) { return alias_init(&a2p, &p2a, directory.write("alias.conf", text).c_str()); }

  int parse(std::string line) {
    if (a2p == nullptr) a2p = host_param_create(13), p2a = host_param_create(13);
    return alias_parse(a2p, p2a, line.data());
  }

  std::string parent(const char *alias) const { return text(alias_to_parent(a2p, alias)); }
  std::string next(const char *name) const { return text(parent_to_aliases(p2a, name)); }

  Names chain(const char *name) const {
    Names names;
    while ((name = parent_to_aliases(p2a, name)) != nullptr) names.emplace_back(name);
    return names;
  }

  static std::string text(const char *value) { return value == nullptr ? "(none)" : value; }

  support::TemporaryDirectory directory;
  support::Diagnostics diagnostics;
  pblock *a2p = nullptr;
  pblock *p2a = nullptr;
};

TEST_F(Alias, AParentLeadsToItsAliasesAndTheyToIt) {
  EXPECT_EQ(parse("parent a b"), 0);
  EXPECT_EQ(parse("alone"), 0);
  for (const char *name : {"parent", "a", "b"}) EXPECT_EQ(parent(name), "parent") << name;
  EXPECT_EQ(chain("parent"), (Names{"a", "b"}));
  EXPECT_EQ(parent("alone"), "alone");
  EXPECT_EQ(chain("alone"), Names{});
  for (const char *unknown : {"c", "Parent"}) {
    EXPECT_EQ(parent(unknown), "(none)");
    EXPECT_EQ(next(unknown), "(none)");
  }
  EXPECT_EQ(diagnostics.text(), "");
  // A service without aliases has null maps.
  EXPECT_EQ(alias_to_parent(nullptr, "x"), nullptr);
  EXPECT_EQ(parent_to_aliases(nullptr, "x"), nullptr);
  EXPECT_EQ(alias_iterate(nullptr, "x"), nullptr);
}

TEST_F(Alias, NamesAreSeparatedByBlanksTabsAndNewlines) {
  for (const char *line : {"p a b", " p a b", "\t p\ta \t b\n", "\np\na\nb\n", "p  a   b  "}) {
    EXPECT_EQ(parse(line), 0) << line;
    EXPECT_EQ(chain("p"), (Names{"a", "b"})) << line;
    alias_destroy(a2p, p2a);
    a2p = p2a = nullptr;
  }
}

TEST_F(Alias, OtherCharactersBelongToNames) {
  EXPECT_EQ(parse("p,q \"a b\" c\r #d"), 0);
  EXPECT_EQ(chain("p,q"), (Names{"\"a", "b\"", "c\r", "#d"}));
}

TEST_F(Alias, ALineWithoutNamesAddsNothing) {
  for (const char *line : {"", " ", " \t\n "}) EXPECT_EQ(parse(line), 0) << line;
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Alias, AnAliasIsRefusedAtItsSecondOccurrence) {
  EXPECT_EQ(parse("one a b"), 0);
  EXPECT_EQ(parse("two c a d"), -1);
  EXPECT_EQ(parent("a"), "one");
  EXPECT_EQ(parent("c"), "two");
  EXPECT_EQ(parent("d"), "(none)") << "the rest of the line is dropped";
  EXPECT_EQ(chain("two"), Names{"c"});
  EXPECT_EQ(chain("one"), (Names{"a", "b"}));
  EXPECT_EQ(parse("three e e f"), -1) << "twice in a line";
  EXPECT_EQ(next("three"), "e");
  EXPECT_EQ(next("e"), "(none)");
  EXPECT_EQ(parent("f"), "(none)");
  EXPECT_EQ(parse("four four"), -1) << "a parent is not an alias";
  EXPECT_EQ(parse("five one"), -1);
  EXPECT_EQ(parse("six %s%n %s%n"), -1) << "a name is not a format";
  std::string expected;
  for (const char *name : {"a", "e", "four", "one", "%s%n"})
    expected += std::string("ERROR: alias_copy: uniqueness constraint violated (alias ") + name + ")\n";
  EXPECT_EQ(diagnostics.text(), expected);
}

TEST_F(Alias, AParentOrAnAliasMayHeadALine) {
  EXPECT_EQ(parse("one a"), 0);
  EXPECT_EQ(parse("a b"), 0);
  EXPECT_EQ(parent("a"), "one") << "the alias keeps its parent";
  EXPECT_EQ(parent("b"), "a");
  EXPECT_EQ(chain("one"), (Names{"a", "b"}));
  EXPECT_EQ(parse("one c d"), 0);
  EXPECT_EQ(parent("d"), "one");
  EXPECT_EQ(next("one"), "a") << "of equal names the first added is found";
  EXPECT_EQ(chain("c"), Names{"d"});
}

TEST_F(Alias, IterationVisitsTheChainAndReturnsNull) {
  EXPECT_EQ(parse("one a b c"), 0);
  static Names visited;
  visited.clear();
  qxapi_host table = support::memory_host();
  table.param_find = [](const char *name, const pblock *block) {
    visited.emplace_back(name);
    return support::memory_host().param_find(name, block);
  };
  qxapi_bind(&table);
  EXPECT_EQ(alias_iterate(p2a, "one"), nullptr);
  EXPECT_EQ(visited, (Names{"one", "a", "b", "c"}));
  EXPECT_EQ(alias_iterate(p2a, "unknown"), nullptr);
  EXPECT_EQ(visited, (Names{"one", "a", "b", "c", "unknown"}));
  EXPECT_EQ(alias_iterate(p2a, nullptr), nullptr);
  EXPECT_EQ(visited.size(), 5u);
}

TEST_F(Alias, CopyAddsEqualNamesUnlessTheyMustBeUnique) {
  parse("");
  EXPECT_EQ(alias_copy(a2p, "name", "first", 1), 0);
  EXPECT_EQ(alias_copy(a2p, "name", "second", 0), 0);
  EXPECT_EQ(parent("name"), "first");
  EXPECT_EQ(alias_copy(a2p, "name", "third", 1), -1);
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(alias_copy(a2p, "other", std::string(5000, 'x').c_str(), 0), -1);
  EXPECT_EQ(diagnostics.text(),
            "ERROR: alias_copy: uniqueness constraint violated (alias name)\n"
            "ERROR: alias_copy: pblock insert failed\n");
}

// Regression: a read error was taken for the end of the file, and not reported.
TEST_F(Alias, AFileThatCannotBeReadGivesNoMapsAndIsReported) {
  const std::string file = directory.write("alias.conf", "one a\n"), missing = directory.path("missing");
  const struct {
    std::string path;
    long refused;  // allocation, 0 for none
    std::string report;
  } rows[] = {{missing, 0, "alias_init: Can't open " + missing + ": No such file or directory"},
              {directory.path(), 0, "alias_init: Can't read " + directory.path() + ": Is a directory"},
              {file, 1, "alias_init: pblock_create failed"},
              {file, 2, "alias_init: pblock_create failed"},
              {file, 3, "alias_init: Can't buffer " + file}};
  for (const auto &row : rows) {
    const support::Diagnostics log;
    a2p = p2a = reinterpret_cast<pblock *>(this);
    host.fail_allocation = row.refused != 0 ? host.allocations + row.refused : 0;
    EXPECT_EQ(alias_init(&a2p, &p2a, row.path.c_str()), -1);
    EXPECT_EQ(a2p, nullptr);
    EXPECT_EQ(p2a, nullptr);
    EXPECT_EQ(log.text(), "ERROR: " + row.report + "\n");
  }
}

TEST_F(Alias, FileHoldsALinePerParentAndComments) {
  EXPECT_EQ(init("# p x\n"
                 "\n"
                 "one a b\r\n"
                 "#two c\n"
                 "  two\tc\n"
                 " # d\n"
                 "   \n"
                 "three"),
            0);
  EXPECT_EQ(chain("one"), (Names{"a", "b"}));
  EXPECT_EQ(chain("two"), Names{"c"});
  EXPECT_EQ(parent("three"), "three");
  EXPECT_EQ(parent("p"), "(none)");
  EXPECT_EQ(parent("d"), "#") << "a comment begins in the first column";
  EXPECT_EQ(diagnostics.text(), "");
}

TEST_F(Alias, AMalformedLineOfAFileLosesOnlyItsRest) {
  EXPECT_EQ(init(""), 0) << "a file may be empty";
  alias_destroy(a2p, p2a);
  EXPECT_EQ(init("one a\ntwo b a c\nthree d\n"), 0);
  EXPECT_EQ(chain("one"), Names{"a"});
  EXPECT_EQ(chain("two"), Names{"b"});
  EXPECT_EQ(chain("three"), Names{"d"});
  EXPECT_EQ(parent("c"), "(none)");
  EXPECT_EQ(diagnostics.text(), "ERROR: alias_copy: uniqueness constraint violated (alias a)\n");
}

// Regression: a file of 40,000 aliases took 3.3 s, because each was searched for among all previous ones.
TEST_F(Alias, AFileTakesTheTimeOfItsSize) {
  const auto load = [this](int count) {
    std::string lines;
    for (int i = 0; i < count; ++i) lines += (i % 10 == 0 ? "\nparent" : " name") + std::to_string(i);
    EXPECT_EQ(init(lines), 0);
    EXPECT_EQ(next("parent0"), "name1");
    EXPECT_EQ(parent(("name" + std::to_string(count - 1)).c_str()), "parent" + std::to_string(count - 10));
    alias_destroy(a2p, p2a);
    a2p = p2a = nullptr;
  };
  EXPECT_TRUE(support::grows_linearly(load, 2000));
}

TEST_F(Alias, PassesItsSizesToTheHost) {
  static std::vector<int> slots, sizes;
  qxapi_host table = support::memory_host();
  table.param_create = [](int n) {
    slots.push_back(n);
    return support::memory_host().param_create(n);
  };
  table.buffer_open = [](host_fd fd, int size) {
    sizes.push_back(size);
    return support::memory_host().buffer_open(fd, size);
  };
  qxapi_bind(&table);
  EXPECT_EQ(init("one a\n"), 0);
  EXPECT_EQ(slots, (std::vector<int>{13, 13}));
  EXPECT_EQ(sizes, std::vector<int>{8192});
}

TEST_F(Alias, LinesAreCutAtTheirLimit) {
  const std::string longest = "p " + std::string(8191 - 2, 'a');
  EXPECT_EQ(init(longest + "bc\nq d\n"), 0);
  EXPECT_EQ(next("p"), std::string(8191 - 2, 'a'));
  EXPECT_EQ(next("q"), "d");
}

TEST_F(Alias, DestroyIgnoresMapsThatAreNot) {
  alias_destroy(nullptr, nullptr);
  alias_destroy(host_param_create(13), nullptr);
  alias_destroy(nullptr, host_param_create(13));
  EXPECT_EQ(host.live_blocks, 0) << "the other map is released all the same";
}

}  // namespace
