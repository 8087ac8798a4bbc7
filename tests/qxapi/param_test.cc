// SPDX-License-Identifier: MIT
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "qxapi/guard.h"
#include "support/growth.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

class Parameters : public support::HostTest {
 protected:
  void TearDown() override {
    block.reset();
    HostTest::TearDown();
  }

  const char *find(const char *name) const { return host_param_find(name, block.get()); }
  int add(const char *name, const char *value) { return host_param_add(name, value, block.get()); }
  int parse(const char *line) { return host_param_parse(line, block.get()); }

  PblockPtr block{host_param_create(5)};
};

TEST_F(Parameters, FindsAddedPairs) {
  EXPECT_EQ(find("one"), nullptr);
  EXPECT_EQ(host_param_find_entry("one", block.get(), 1), nullptr);
  EXPECT_EQ(add("one", "1"), 0);
  EXPECT_EQ(add("two", ""), 0);
  EXPECT_EQ(add("", "empty"), 0);
  EXPECT_STREQ(find("one"), "1");
  EXPECT_STREQ(find("two"), "");
  EXPECT_STREQ(find(""), "empty");
  host_param *entry = host_param_find_entry("one", block.get(), 0);
  ASSERT_NE(entry, nullptr);
  EXPECT_STREQ(entry->name, "one");
  EXPECT_STREQ(entry->value, "1");
  EXPECT_EQ(host_param_find_entry("one", block.get(), 0), entry) << "it stays unless it is removed";
}

TEST_F(Parameters, NamesAreComparedExactly) {
  add("name", "value");
  for (const char *other : {"Name", "nam", "name ", " name"}) EXPECT_EQ(find(other), nullptr);
}

TEST_F(Parameters, AddCopies) {
  char name[] = "name", value[] = "value";
  add(name, value);
  name[0] = value[0] = 'X';
  EXPECT_STREQ(find("name"), "value");
}

TEST_F(Parameters, FirstAddedOfEqualNamesIsFoundAndRemoved) {
  for (const char *value : {"first", "second"}) add("name", value);
  EXPECT_STREQ(find("name"), "first");
  EXPECT_STREQ(host_param_find_entry("name", block.get(), 0)->value, "first");
  const ParamPtr first(host_param_find_entry("name", block.get(), 1));
  EXPECT_STREQ(first->value, "first");
  EXPECT_EQ(first->next, nullptr);
  EXPECT_STREQ(find("name"), "second");
  const ParamPtr second(host_param_find_entry("name", block.get(), 1));
  EXPECT_STREQ(second->value, "second");
  EXPECT_EQ(find("name"), nullptr);
}

// Regression: an alias file of 40,000 names took 3 s, because each name was searched for among all previous ones.
TEST_F(Parameters, ManyAreFoundAtOnce) {
  const auto use = [](int count) {
    const PblockPtr many(host_param_create(5));
    const auto name = [](int i) { return "name " + std::to_string(i); };
    for (int i = 0; i < count; ++i) {
      ASSERT_EQ(host_param_find(name(i).c_str(), many.get()), nullptr);
      ASSERT_EQ(host_param_add(name(i).c_str(), std::to_string(i).c_str(), many.get()), 0);
    }
    for (int i = 0; i < count; ++i) ASSERT_EQ(std::to_string(i), host_param_find(name(i).c_str(), many.get()));
    for (int i = count; i-- > 0;) {
      const ParamPtr entry(host_param_find_entry(name(i).c_str(), many.get(), 1));
      ASSERT_TRUE(entry) << i;
    }
    EXPECT_EQ(host_param_find(name(0).c_str(), many.get()), nullptr);
  };
  EXPECT_TRUE(support::grows_linearly(use, 3000));
}

TEST_F(Parameters, ManyPairsOfOneNameAreFoundInOrder) {
  const auto use = [](int count) {
    const PblockPtr many(host_param_create(5));
    for (int i = 0; i < count; ++i) ASSERT_EQ(host_param_add("name", std::to_string(i).c_str(), many.get()), 0);
    for (int i = 0; i < count; ++i) {
      const ParamPtr entry(host_param_find_entry("name", many.get(), 1));
      ASSERT_EQ(std::to_string(i), entry->value);
    }
    EXPECT_EQ(host_param_find("name", many.get()), nullptr);
  };
  EXPECT_TRUE(support::grows_linearly(use, 3000));
}

TEST_F(Parameters, AFewShortPairsAreAllocatedWithTheirBlock) {
  const long before = host.allocations;
  block.reset(host_param_create(5));
  for (int i = 0; i < 5; ++i) add(("name " + std::to_string(i)).c_str(), "a value of about the usual length");
  EXPECT_EQ(host.allocations, before + 1);
  for (int i = 0; i < 5; ++i)
    EXPECT_STREQ(find(("name " + std::to_string(i)).c_str()), "a value of about the usual length");
}

TEST_F(Parameters, LongAndFurtherPairsAreFoundInTheSameOrder) {
  const std::string longer(1000, 'x');
  for (const char *value : {"first", longer.c_str(), "second"}) add("name", value);
  for (int i = 0; i < 30; ++i) add("other", "value");
  add("name", "last");
  for (const char *value : {"first", longer.c_str(), "second", "last"})
    EXPECT_STREQ(ParamPtr(host_param_find_entry("name", block.get(), 1))->value, value);
  EXPECT_EQ(find("name"), nullptr);
}

TEST_F(Parameters, ARemovedPairIsItsCallersAndOutlivesTheBlock) {
  add("name", "value");
  add("other", "stays");
  const ParamPtr entry(host_param_find_entry("name", block.get(), 1));
  block.reset();
  EXPECT_STREQ(entry->name, "name");
  // The caller may keep a text.
  const HostText kept(std::exchange(entry->value, nullptr));
  EXPECT_STREQ(kept.get(), "value");
}

TEST_F(Parameters, WithoutMemoryAPairIsNotLent) {
  add("name", "value");
  for (const int remove : {0, 1})
    for (long refused = 1; refused <= 3; ++refused) {
      host.fail_allocation = host.allocations + refused;
      EXPECT_EQ(host_param_find_entry("name", block.get(), remove), nullptr);
      EXPECT_STREQ(find("name"), "value");
    }
  ASSERT_NE(host_param_find_entry("name", block.get(), 0), nullptr);
  host.fail_allocation = host.allocations + 1;
  EXPECT_NE(ParamPtr(host_param_find_entry("name", block.get(), 1)), nullptr) << "a pair that was lent needs no memory";
  host.fail_allocation = 0;
}

TEST_F(Parameters, AnyNumberOfSlotsIsAccepted) {
  for (const int slots : {INT_MIN, -1, 0, 1, 1000, INT_MAX}) {
    block.reset(host_param_create(slots));
    ASSERT_TRUE(block);
    EXPECT_EQ(add("name", "value"), 0);
    EXPECT_STREQ(find("name"), "value");
    EXPECT_LE(host.largest_allocation, 4096u);
  }
}

/// Blocks without and with an index.
TEST_F(Parameters, APairThatStaysCanBeChanged) {
  for (const int count : {3, 50}) {
    block.reset(host_param_create(5));
    for (int i = 0; i < count; ++i) add(("name " + std::to_string(i)).c_str(), "value");
    host_param *entry = host_param_find_entry("name 1", block.get(), 0);
    for (char **text : {&entry->name, &entry->value}) {
      host_free(*text);
      *text = host_strdup("changed");
    }
    EXPECT_STREQ(find("changed"), "changed");
    EXPECT_EQ(find("name 1"), nullptr);
    add("changed", "behind");
    EXPECT_EQ(host_param_find_entry("changed", block.get(), 0), entry);
    EXPECT_EQ(host_param_find_entry("name 1", block.get(), 0), nullptr);
  }
}

TEST_F(Parameters, WithoutMemoryForAnIndexPairsAreFoundAllTheSame) {
  for (int i = 0; i < 8; ++i) add(std::to_string(i).c_str(), "value");
  for (int i = 8; i < 20; ++i) {
    host.fail_allocation = host.allocations + 4;
    EXPECT_EQ(add(std::to_string(i).c_str(), "value"), 0);
  }
  for (int i = 0; i < 20; ++i) EXPECT_STREQ(find(std::to_string(i).c_str()), "value") << i;
}

TEST_F(Parameters, FreeingNullIsIgnored) {
  const long before = host.live_blocks;
  host_param_free(nullptr);
  host_param_free_entry(nullptr);
  EXPECT_EQ(host.live_blocks, before);
}

struct ParseCase {
  const char *line;
  Pairs pairs;
};

/// How a line is divided is in config_line_test.cc.
TEST_F(Parameters, ParseAddsThePairsOfALine) {
  const ParseCase cases[] = {
      {"", {}},
      {"a=1 b=2\tc=\r\n", {{"a", "1"}, {"b", "2"}, {"c", ""}}},
      {"a=1 a=2", {{"a", "1"}, {"a", "2"}}},
      {R"(a="say \"hi\"" b=two\ words c=end\)", {{"a", "say \"hi\""}, {"b", "two words"}, {"c", "end\\"}}},
      // An unterminated quote ends with the line.
      {"a=\"no end b=2", {{"a", "no end b=2"}}},
      // Words without "=" or without a name are ignored.
      {"word a=1 other", {{"a", "1"}}},
      {"=value a=1", {{"a", "1"}}},
      {"a = b", {}},
  };
  for (const ParseCase &test : cases) {
    block.reset(host_param_create(5));
    EXPECT_EQ(parse(test.line), static_cast<int>(test.pairs.size())) << test.line;
    for (const auto &[name, value] : test.pairs) {
      const ParamPtr entry(host_param_find_entry(name.c_str(), block.get(), 1));
      ASSERT_NE(entry, nullptr) << test.line;
      EXPECT_EQ(entry->value, value) << test.line;
    }
  }
}

TEST_F(Parameters, ParseAddsToTheBlock) {
  EXPECT_EQ(parse("a=1"), 1);
  EXPECT_EQ(parse("a=2 b=2"), 2);
  EXPECT_STREQ(find("a"), "1");
  EXPECT_STREQ(find("b"), "2");
}

}  // namespace
