// SPDX-License-Identifier: MIT
#include "tools/rdmgather/about.h"

#include <gtest/gtest.h>

#include "tools/rdmgather/document_url.h"
#include "tools/rdmgather/plain_text.h"

using namespace rdm;
using namespace rdm::gather;

namespace rdm::gather {

std::ostream &operator<<(std::ostream &out, const About &about) {
  return out << about.title << " / " << about.author << " / " << about.description;
}

}  // namespace rdm::gather

namespace {

struct AboutRow {
  std::string bytes;
  About about;
};

TEST(PlainText, IsUtf8OnOneLine) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {" \t\r\n", ""},
      {" a \r\n b\x01\x7f"
       "c ",
       "a b c"},
      {"caf\xC3\xA9", "caf\xC3\xA9"},
      {"caf\xE9 x", "caf\xEF\xBF\xBD x"},
      {"\xC3", "\xEF\xBF\xBD"},
      {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"\xF0\x9F\x98\x80\x80", "\xF0\x9F\x98\x80\xEF\xBF\xBD"},
  };
  for (const auto &[bytes, text] : rows) EXPECT_EQ(plain_text(bytes, 100), text) << bytes;
}

TEST(PlainText, EndsWithAWholeWordOrCharacter) {
  EXPECT_EQ(plain_text("one two three", 13), "one two three");
  EXPECT_EQ(plain_text("one two three", 12), "one two");
  EXPECT_EQ(plain_text("one two three", 7), "one two");
  EXPECT_EQ(plain_text("\xC3\xA9\xC3\xA9", 3), "\xC3\xA9");
  EXPECT_EQ(plain_text(std::string(1000, 'x'), longest_description), std::string(400, 'x'));
}

TEST(PlainText, TheBeginningOfAFileMayCutACharacter) {
  EXPECT_EQ(without_cut_character("a\xC3"), "a");
  EXPECT_EQ(without_cut_character("a\xF0\x9F\x98"), "a");
  EXPECT_EQ(without_cut_character("a\xC3\xA9"), "a\xC3\xA9");
  EXPECT_EQ(without_cut_character("a"), "a");
  EXPECT_EQ(without_cut_character(""), "");
}

TEST(Html, SaysTitleAuthorAndDescription) {
  const AboutRow rows[] = {
      {"<html><head><title> A &amp; B\ncaf&eacute; </title><META NAME=Author content='Ada'>"
       "<meta name=\"description\" content=\"About &lt;it&gt;\"></head><body>text</body>",
       {"A & B caf\xC3\xA9", "Ada", "About <it>"}},
      {"<title>T</title><style>p{}</style><body><p>First par<i>agra</i>ph.<p>Second<br>line.<script>no()</script>",
       {"T", "", "First paragraph. Second line."}},
      {"<h1>A head<b>ing</b></h1>text", {"A heading", "", "A heading text"}},
      {"<title>first</title><svg><title>second</title></svg>", {"first", "", ""}},
      {"<meta name='dc.creator' content='C'><title>t</title>", {"t", "C", ""}},
      {"", {}},
      {"no tags", {"", "", "no tags"}},
  };
  for (const AboutRow &row : rows) EXPECT_EQ(about_html(row.bytes), row.about) << row.bytes;
}

TEST(Html, IsReadInItsEncoding) {
  EXPECT_EQ(about_html("<meta charset=iso-8859-1><title>caf\xE9</title>").title, "caf\xC3\xA9");
  EXPECT_EQ(about_html("<title>caf\xE9</title>").title, "caf\xC3\xA9");
  EXPECT_EQ(about_html("<title>caf\xC3\xA9</title>").title, "caf\xC3\xA9");
  EXPECT_EQ(about_html("<meta charset=windows-1251><title>\xE4\xE0</title>").title, "\xD0\xB4\xD0\xB0");
}

TEST(Html, NestedDeeplyEndsTheReading) {
  std::string deep = "<title>T</title>";
  for (int i = 0; i < 100'000; ++i) deep += "<b>";
  EXPECT_EQ(about_html(deep + "text"), (About{"T", "", ""}));
}

TEST(Markdown, FirstHeadingIsTheTitle) {
  const AboutRow rows[] = {
      {"# Title #\n\nText\nmore.\n## Next\nrest\n", {"Title", "", "Text more. rest"}},
      {"intro\n\nTitle of C#\n===\ntext", {"Title of C#", "", "text"}},
      {"```\n# code\n```\n### Real\ntext", {"Real", "", "text"}},
      {"#no heading\ntext", {"#no heading", "", "#no heading text"}},
      {"####### seven\n", {"####### seven", "", "####### seven"}},
      {"---\ntitle: \"T: U\"\nauthor: Ada\ndescription: 'D'\n---\n# H\ntext", {"T: U", "Ada", "D"}},
      {"---\nnot closed", {"---", "", "--- not closed"}},
      {"\xEF\xBB\xBF# T\r\nx\r\n", {"T", "", "x"}},
      {"#\n# T\n", {"T", "", ""}},
      {"", {}},
      {std::string("# T\0", 4), {}},
  };
  for (const AboutRow &row : rows) EXPECT_EQ(about_markdown(row.bytes), row.about) << row.bytes;
}

TEST(Text, FirstLineIsTheTitle) {
  const AboutRow rows[] = {
      {"\n\n Title\n=====\nbody\nmore\n", {"Title", "", "body more"}},
      {"Title\nbody", {"Title", "", "body"}},
      {"\x01\nTitle", {"Title", "", ""}},
      {"caf\xE9\n\xFF", {"caf\xEF\xBF\xBD", "", "\xEF\xBF\xBD"}},
      {std::string("a\0", 2), {}},
      {"", {}},
  };
  for (const AboutRow &row : rows) EXPECT_EQ(about_text(row.bytes), row.about) << row.bytes;
}

TEST(DocumentUrl, EscapesNames) {
  EXPECT_EQ(encoded_path("a/b-c_d.~1"), "a/b-c_d.~1");
  EXPECT_EQ(encoded_path("a b%\n\xC3\xA9?#&+"), "a%20b%25%0A%C3%A9%3F%23%26%2B");
  EXPECT_EQ(with_slash("http://h"), "http://h/");
  EXPECT_EQ(with_slash("http://h/"), "http://h/");
}

TEST(DocumentUrl, RefusesABaseThatIsNone) {
  for (const char *url : {"http://h", "https://h:1/p/", "x-y+z.1://h/"}) EXPECT_EQ(fault_of_base(url), "") << url;
  for (const char *url :
       {"", "h/p", "://h", "1x://h", "http://h/ x", "http://h/\xC3\xA9", "http://h/?q", "http://h/#f"})
    EXPECT_NE(fault_of_base(url), "") << url;
}

}  // namespace
