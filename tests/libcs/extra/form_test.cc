// SPDX-License-Identifier: MIT
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "qxapi/guard.h"
#include "qxapi/records.h"
#include "support/growth.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

class Form : public support::HostTest {
 protected:
  /// decode passes a buffer of exactly the size that the header demands.
  int decode(const std::string &text) {
    std::vector<char> room(text.begin(), text.end());
    room.push_back('?');
    return pblock_form2pblock(room.data(), static_cast<int32_t>(text.size()), block.get());
  }

  std::string value(const char *name) const {
    const char *found = host_param_find(name, block.get());
    return found == nullptr ? "(none)" : found;
  }

  int count(const char *name) {
    int entries = 0;
    while (const ParamPtr entry{host_param_find_entry(name, block.get(), 1)}) ++entries;
    return entries;
  }

  PblockPtr block{host_param_create(7)};
};

TEST_F(Form, DecodesItsFields) {
  const struct {
    const char *text;
    Pairs pairs;
  } rows[] = {
      {"a=1", {{"a", "1"}}},
      {"a=1&b=2", {{"a", "1"}, {"b", "2"}}},
      {"a=1&b=x+y%21&a=2", {{"a", "1,2"}, {"b", "x y!"}}},
      {"hello&&=v", {{"1", "hello"}, {"2", ""}, {"", "v"}}},
      {"a=", {{"a", ""}}},
      {"a=b=c", {{"a", "b=c"}}},
      {"==", {{"", "="}}},
      {"a=1&", {{"a", "1"}, {"1", ""}}},
      {"&a=1", {{"1", ""}, {"a", "1"}}},
      {"&", {{"1", ""}, {"2", ""}}},
      {"", {{"1", ""}}},
      {"x+y%3d&z", {{"1", "x y="}, {"2", "z"}}},
      {"a+b=c+d", {{"a b", "c d"}}},
      {"%61%26=%26%3D", {{"a&", "&="}}},
      {"a=%2B+%2b", {{"a", "+ +"}}},
      {"a=%zz%4&b=100%", {{"a", "%zz%4"}, {"b", "100%"}}},
      {"a=1&A=2", {{"a", "1"}, {"A", "2"}}},
      {"a=1&%61=2&a=3", {{"a", "1,2,3"}}},
      {"a=&a=&a=", {{"a", ",,"}}},
      {"a=1,2&a=3", {{"a", "1,2,3"}}},
      {"x&1=y", {{"1", "x,y"}}},
      {"=1&=2", {{"", "1,2"}}},
      {"a=%00hidden", {{"a", ""}}},
  };
  for (const auto &row : rows) {
    block.reset(host_param_create(7));
    EXPECT_EQ(decode(row.text), 0) << row.text;
    for (const auto &[name, text] : row.pairs) {
      EXPECT_EQ(value(name.c_str()), text) << row.text;
      EXPECT_EQ(count(name.c_str()), 1) << row.text << ": " << name;
    }
    EXPECT_EQ(block->first, nullptr) << row.text << ": nothing else is added";
  }
}

TEST_F(Form, EndsAtItsLength) {
  char text[] = "a=1&b=2&c=3";
  EXPECT_EQ(pblock_form2pblock(text, 5, block.get()), 0);
  EXPECT_EQ(value("a"), "1");
  EXPECT_EQ(value("b"), "(none)");
  EXPECT_EQ(value("1"), "b");
  EXPECT_EQ(value("c"), "(none)");
}

TEST_F(Form, ANulEndsItsFieldOnly) {
  EXPECT_EQ(decode(std::string("a=1\0x&b=2", 9)), 0);
  EXPECT_EQ(value("a"), "1");
  EXPECT_EQ(value("b"), "2");
}

TEST_F(Form, JoinsWithAParameterThatTheBlockHad) {
  host_param_add("a", "old", block.get());
  EXPECT_EQ(decode("a=new"), 0);
  EXPECT_EQ(value("a"), "old,new");
  EXPECT_EQ(count("a"), 1);
}

TEST_F(Form, CountsUnnamedFields) {
  std::string text;
  for (int i = 1; i < 12; ++i) text += "v" + std::to_string(i) + "&";
  EXPECT_EQ(decode(text + "v12"), 0);
  EXPECT_EQ(value("1"), "v1");
  EXPECT_EQ(value("12"), "v12");
}

// Regression: a GET with 8,100 "&" took 107 ms, because each field was searched for among all previous ones.
TEST_F(Form, TakesTheTimeOfItsLength) {
  const auto decode_fields = [](int count) {
    const PblockPtr fields(host_param_create(7));
    std::string text(static_cast<size_t>(count) - 1, '&');
    EXPECT_EQ(pblock_form2pblock(text.data(), count - 1, fields.get()), 0);
    EXPECT_STREQ(host_param_find(std::to_string(count).c_str(), fields.get()), "");
  };
  EXPECT_TRUE(support::grows_linearly(decode_fields, 2000));
}

TEST_F(Form, ReturnsTheResultOfTheLastAddition) {
  host.fail_allocation = host.allocations + 1;
  const std::string refused = "a=" + std::string(5000, 'x');
  EXPECT_EQ(decode(refused), -1);
  EXPECT_EQ(value("a"), "(none)");
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(decode(refused + "&b=2"), 0);
  EXPECT_EQ(value("b"), "2");
}

TEST_F(Form, AFailureToJoinKeepsTheOldValue) {
  for (long refused = 1; refused <= 4; ++refused) {
    block.reset(host_param_create(7));
    host_param_add("a", "old", block.get());
    host.fail_allocation = host.allocations + refused;
    EXPECT_EQ(decode("a=new"), -1) << refused;
    EXPECT_EQ(value("a"), "old") << refused;
    EXPECT_EQ(count("a"), 1) << refused;
  }
}

TEST(Plus2Space, ReplacesEveryPlusAndReturnsTheEnd) {
  const struct {
    const char *text, *spaced;
  } rows[] = {{"", ""}, {"+", " "}, {"a+b", "a b"}, {"++a++", "  a  "}, {"a b%2B", "a b%2B"}};
  for (const auto &row : rows) {
    std::string text = row.text;
    EXPECT_EQ(plus2space(text.data()), text.data() + text.size());
    EXPECT_EQ(text, row.spaced);
  }
}

TEST(PairsOnLines, EndAfterEachValue) {
  const struct {
    const char *text, *lines;
  } rows[] = {
      {R"(a="1" b="2")", "a=\"1\"\nb=\"2\""},
      {R"(a="1" b="2" )", "a=\"1\"\nb=\"2\"\n"},
      {R"(a="1"  b="2")", "a=\"1\"\n b=\"2\""},
      {R"(a="1"b="2")", "a=\"1\"\n=\"2\""},
      {R"(a="x y" b="= ")", "a=\"x y\"\nb=\"= \""},
      {R"(a="")", "a=\"\""},
      {R"(a="" b="")", "a=\"\"\nb=\"\""},
      {R"(a="1"""b="2" c)", "a=\"1\"\n\"b=\"2\"\nc"},
      {"", ""},
      {"a", "a"},
      {"a=", "a="},
      {"a=1 b=2", "a=1 b=2"},
      {R"(a="not closed b=2)", R"(a="not closed b=2)"},
      {R"(a=x"1" b="2" c)", "a=x\"1\" b=\"2\"\nc"},
      {R"(a=="1" b="2" c)", "a==\"1\" b=\"2\"\nc"},
      // A backslash escapes the next character.
      {R"(a="1\" 2" b="3" c)", "a=\"1\\\" 2\"\nb=\"3\"\nc"},
      {R"(a="1\\" b="2" c)", "a=\"1\\\\\"\nb=\"2\"\nc"},
      {R"(a\="1" b="2" c)", "a\\=\"1\" b=\"2\"\nc"},
      {R"(a=\"1" b="2" c)", "a=\\\"1\" b=\"2\"\nc"},
      {R"(a="1"\  b="2" c)", "a=\"1\"\\ \nb=\"2\"\nc"},
      // At the end of the text, a backslash escapes nothing.
      {"\\", "\\"},
      {R"(a\)", R"(a\)"},
      {R"(a=\)", R"(a=\)"},
      {R"(a="1\)", R"(a="1\)"},
      {R"(a="1"\)", R"(a="1"\)"},
  };
  for (const auto &row : rows) {
    const std::string behind = "=\"2\" c";  // not part of the text
    std::string text = row.text + std::string(1, '\0') + behind;
    EXPECT_EQ(pblock_pblock2str_add_nl(text.data()), text.data());
    EXPECT_EQ(text, row.lines + std::string(1, '\0') + behind) << row.text;
  }
}

using RemoveParameter = Form;

TEST_F(RemoveParameter, RemovesTheFirstOfItsName) {
  for (const char *text : {"1", "2"}) host_param_add("a", text, block.get());
  host_param_add("b", "3", block.get());
  pblock_remove_n_free("a", block.get());
  EXPECT_EQ(value("a"), "2");
  EXPECT_EQ(value("b"), "3");
  pblock_remove_n_free("a", block.get());
  EXPECT_EQ(value("a"), "(none)");
}

TEST_F(RemoveParameter, IgnoresNamesThatAreNot) {
  host_param_add("a", "1", block.get());
  pblock_remove_n_free("b", block.get());
  pblock_remove_n_free("A", block.get());
  pblock_remove_n_free(nullptr, block.get());
  EXPECT_EQ(value("a"), "1");
}

}  // namespace
