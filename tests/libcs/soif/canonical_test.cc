// SPDX-License-Identifier: MIT
#include "libcs/soif/canonical.h"

#include <sys/mman.h>

#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "fuzz/print.h"
#include "libcs/guard.h"
#include "support/memory_host.h"
#include "support/model.h"

using namespace rdm;

namespace {

using Accept = std::vector<std::string>;

/// Names is a list of names as the parser takes it.
struct Names {
  explicit Names(Accept accept) : texts(std::move(accept)) {
    for (std::string &text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
  }
  Accept texts;
  std::vector<char *> pointers;
};

/// reprinted returns what parser and printer make of a record; "(none)" if it has no object.
std::string reprinted(const std::string &record, char **accept) {
  SoifReader reader{std::string_view(record)};
  reader.accept(accept);
  const SoifPtr object = reader.next();
  return object ? fuzz::print(object.get()) : "(none)";
}

/// passed returns the pieces of a record, or "(refused)".
std::string passed(const std::string &record, soif::Canonical &canonical) {
  soif::Pieces pieces;
  if (!canonical.printed(record, pieces)) return "(refused)";
  std::string text;
  for (const std::string_view piece : pieces) text += piece;
  EXPECT_EQ(text.size(), pieces.size());
  return text;
}

std::string attribute(const std::string &name, const std::string &value) {
  return name + "{" + std::to_string(value.size()) + "}:\t" + value + "\n";
}

std::string object(const std::string &lines) { return "@DOCUMENT { http://localhost/\n" + lines + "}\n"; }

/// in_order returns the lines of attributes in the order of their buckets.
std::string in_order(std::vector<std::pair<std::string, std::string>> attributes) {
  std::stable_sort(attributes.begin(), attributes.end(), [](const auto &a, const auto &b) {
    return name_hash(a.first) % soif::bucket_count < name_hash(b.first) % soif::bucket_count;
  });
  std::string lines;
  for (const auto &[name, value] : attributes) lines += attribute(name, value);
  return lines;
}

const std::string long_token(4095, 'x'), too_long_token(4096, 'x');
const std::string title = attribute("title", "A title");

class CanonicalTest : public support::HostTest {};

TEST_F(CanonicalTest, RecordsArePassedOnlyIfPrintingGivesTheSameBytes) {
  using std::string_literals::operator""s;
  const std::string lower = in_order({{"a", "1"}, {"b", "2"}});
  const struct {
    const char *what;
    std::string record;
    bool same;
  } rows[] = {
      {"an object", object(title), true},
      {"an object without attributes", object(""), true},
      {"nothing", "", false},
      {"text before it", " " + object(title), false},
      {"text after it", object(title) + "\n", false},
      {"two objects", object(title) + object(title), false},
      {"no at-sign", object(title).substr(1), false},
      {"no template name", "@ { u\n}\n", false},
      {"a template name with a brace", "@A{ { u\n}\n", true},
      {"a template name with a NUL", "@A\0B { u\n}\n"s, false},
      {"a template name with bytes beyond ASCII", "@\xC3\xA4 { u\n}\n", true},
      {"a long template name", "@" + long_token + " { u\n}\n", true},
      {"a template name that is too long", "@" + too_long_token + " { u\n}\n", false},
      {"only a template name", "@A", false},
      {"a tab before the brace", "@A\t{ u\n}\n", false},
      {"no brace", "@A u\n}\n", false},
      {"two braces", "@A { { u\n}\n", false},
      {"two blanks", "@A {  u\n}\n", false},
      {"no blank after the brace", "@A {u\n}\n", false},
      {"no URL", "@A { \n}\n", false},
      {"the end before the URL", "@A { ", false},
      {"a URL with braces inside", "@A { u{}\n}\n", true},
      {"a URL that is a brace", "@A { }\n}\n", true},
      {"a URL with a NUL", "@A { u\0v\n}\n"s, false},
      {"a long URL", "@A { " + long_token + "\n}\n", true},
      {"a URL that is too long", "@A { " + too_long_token + "\n}\n", false},
      {"a blank after the URL", "@A { u \n}\n", false},
      {"a carriage return after the URL", "@A { u\r\n}\n", false},
      {"the end after the URL", "@A { u", false},
      {"no closing brace", "@A { u\n", false},
      {"no newline at the end", "@A { u\n}", false},
      {"an empty line", object("\n" + title), false},
      {"white space before a name", object(" " + title), false},
      {"a name with a capital", object(attribute("tiTle", "x")), false},
      {"a name with a NUL", object(attribute("a\0b"s, "x")), false},
      {"a name with white space inside", object(attribute("a b\nc", "x")), true},
      {"a name with a closing brace inside", object(attribute("a}b", "x")), true},
      {"a name that begins with a closing brace", object(attribute("}b", "x")), false},
      {"an empty name", object(attribute("", "x")), true},
      {"a name beyond ASCII", object(attribute("\xC3\x84", "x")), true},
      {"a name of 29 bytes", object(attribute(std::string(29, 'n'), "x")), true},
      {"a name of 30 bytes", object(attribute(std::string(30, 'n'), "x")), true},
      {"a long name", object(attribute(long_token, "x")), true},
      {"a name that is too long", object(attribute(too_long_token, "x")), false},
      {"a long name with a capital", object(attribute(std::string(40, 'N'), "x")), false},
      {"a name without a size", object("title"), false},
      {"an empty value", object(attribute("title", "")), false},
      {"no digits", object("title{}:\t\n"), false},
      {"a leading zero", object("title{01}:\tx\n"), false},
      {"a sign", object("title{+1}:\tx\n"), false},
      {"a blank before the size", object("title{ 1}:\tx\n"), false},
      {"a blank after the size", object("title{1 }:\tx\n"), false},
      {"another number base", object("title{0x1}:\tx\n"), false},
      {"a size with ten digits", object("title{1000000000}:\tx\n"), false},
      {"a size with thirty digits", object("title{" + std::string(30, '1') + "}:\tx\n"), false},
      {"no colon", object("title{1}\tx\n"), false},
      {"no tab", object("title{1}: x\n"), false},
      {"a size up to the end", "@A { u\ntitle{2}:\txy", false},
      {"a value without a newline", object("title{1}:\tx"), false},
      {"a blank after a value", object("title{1}:\tx \n"), false},
      {"a value that looks like lines", object(attribute("title", "}\n@A { u\n" + title)), true},
      {"a value with NULs", object(attribute("title", std::string(300, '\0'))), true},
      {"a name twice", object(title + title), true},
      {"attributes in the order of their buckets", object(lower), true},
      {"attributes in another order", object(lower.substr(7) + lower.substr(0, 7)), false},
  };
  ASSERT_NE(name_hash("a") % 23, name_hash("b") % 23);
  soif::Canonical canonical;
  for (const auto &row : rows) {
    EXPECT_EQ(passed(row.record, canonical) == row.record, row.same) << row.what;
    EXPECT_EQ(reprinted(row.record, nullptr) == row.record, row.same) << row.what;
  }
}

/// The value is a mapping of pages that nothing touches.
TEST_F(CanonicalTest, ValuesMayBeAsLargeAsTheParserTakesThem) {
  for (const size_t size : {size_t{soif::largest_value}, size_t{soif::largest_value} + 1}) {
    const std::string before = "@D { u\ntitle{" + std::to_string(size) + "}:\t", after = "\n}\n";
    const size_t length = before.size() + size + after.size();
    void *const pages =
        ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    auto *const record = static_cast<char *>(pages);
    before.copy(record, before.size());
    after.copy(record + length - after.size(), after.size());
    soif::Pieces pieces;
    const bool accepted = size == size_t{soif::largest_value};
    EXPECT_EQ(soif::Canonical().printed({record, length}, pieces), accepted);
    if (!accepted) {
      SoifReader reader{std::string_view(record, length)};
      EXPECT_EQ(reader.next(), nullptr);
    }
    ::munmap(pages, length);
  }
}

TEST_F(CanonicalTest, SelectedAttributesAreThePiecesOfTheirLines) {
  const std::string record = object(in_order({{"author", "A"},
                                              {"author-1", "B"},
                                              {"author-22", "C"},
                                              {"authors", "D"},
                                              {"title", "E"},
                                              {"title", "F"},
                                              {"", "G"},
                                              {"-3", "H"}}));
  const Accept lists[] = {
      {},          {"author"}, {"AUTHOR"}, {"Author", "title"}, {"authors"},      {"title"},   {"title", "t"},
      {"nothing"}, {""},       {"{"},      {"author-"},         {"author-1", ""}, {"title-1"}, {long_token}};
  for (const Accept &list : lists) {
    Names names(list);
    soif::Canonical canonical(names.pointers.data());
    for (int again = 0; again < 2; ++again)
      EXPECT_EQ(passed(record, canonical), reprinted(record, names.pointers.data())) << testing::PrintToString(list);
  }
  Names authors({"AUTHOR"});
  soif::Canonical canonical(authors.pointers.data());
  EXPECT_EQ(passed(record, canonical), object(in_order({{"author-1", "B"}, {"author-22", "C"}})))
      << "a capital selects numbered instances alone";
}

TEST_F(CanonicalTest, AnErrorInAnAttributeThatIsNotSelectedRefusesTheRecord) {
  Names names({"title"});
  soif::Canonical canonical(names.pointers.data());
  for (const char *line : {"b{1}: x\n", "b{300000}:\tx\n"}) {
    const std::string record = object(title + line);
    EXPECT_EQ(passed(record, canonical), "(refused)") << line;
    EXPECT_EQ(reprinted(record, names.pointers.data()), "(none)") << line;
  }
}

TEST_F(CanonicalTest, PartsThatTouchAreOnePiece) {
  const std::string record = object(in_order({{"a", "1"}, {"b", "2"}, {"c", "3"}}));
  soif::Pieces pieces;
  ASSERT_TRUE(soif::Canonical().printed(record, pieces));
  EXPECT_EQ(std::distance(pieces.begin(), pieces.end()), 1);
  EXPECT_EQ(*pieces.begin(), record);
  Names names({"{"});
  soif::Canonical none(names.pointers.data());
  ASSERT_TRUE(none.printed(record, pieces));
  EXPECT_EQ(std::distance(pieces.begin(), pieces.end()), 2);
}

TEST_F(CanonicalTest, TooManyPiecesAreRefused) {
  // Two names of one bucket, in turn.
  std::string other = "a";
  for (char c = 'b'; name_hash(other) % 23 != name_hash("x") % 23 || other == "x"; ++c) other = std::string(1, c) + "y";
  Names names({"x"});
  for (const size_t pairs : {soif::Pieces::limit - 1, soif::Pieces::limit}) {
    std::string lines = attribute(other, "v");
    for (size_t i = 0; i < pairs; ++i) lines += attribute("x", "v") + attribute(other, "v");
    soif::Canonical canonical(names.pointers.data());
    const std::string view = passed(object(lines), canonical);
    // The header, each "x", and the end.
    EXPECT_EQ(view == "(refused)", pairs + 2 > soif::Pieces::limit) << pairs;
  }
}

/// Damage changes records at random.
class Damage {
 public:
  std::string object() {
    std::vector<std::pair<std::string, std::string>> attributes;
    for (size_t left = below(8); left > 0; --left)
      attributes.emplace_back(pick(names), std::string(1 + below(30), 'v'));
    std::string text = ::object(in_order(attributes));
    for (size_t left = below(4); left > 0; --left) change(text);
    return text;
  }
  Accept accept() {
    Accept list;
    for (size_t left = below(4); left > 0; --left) list.emplace_back(pick(names));
    return list;
  }
  size_t below(size_t limit) { return random_() % limit; }

 private:
  static constexpr const char *names[] = {"a", "b", "author", "author-1", "AUTHOR", "author-22", "title", "x-", ""};
  template <typename T, size_t n>
  const T &pick(const T (&list)[n]) {
    return list[below(n)];
  }
  char byte() { return below(4) == 0 ? static_cast<char>(random_()) : pick("@{}:\t\n 019+-aA\r\x80"); }

  void change(std::string &text) {
    const size_t at = below(text.size() + 1), length = below(12);
    switch (below(6)) {
      case 0:
        if (at < text.size()) text[at] = byte();
        break;
      case 1:
        text.insert(at, 1, byte());
        break;
      case 2:
        text.erase(at, length);
        break;
      case 3:
        text.insert(below(text.size() + 1), text.substr(at, length));
        break;
      case 4:
        text.resize(at);
        break;
      default:
        if (at < text.size() && ascii::is_digit(text[at])) text[at] = static_cast<char>('0' + below(10));
    }
  }

  std::mt19937 random_{20261122};
};

TEST_F(CanonicalTest, DamagedRecordsArePassedIfAndOnlyIfPrintingGivesTheSameBytes) {
  Damage damage;
  int same = 0;
  soif::Canonical whole;
  for (int i = support::model_cases(30000); i > 0; --i) {
    const std::string record = damage.object();
    const bool is_same = reprinted(record, nullptr) == record;
    same += is_same ? 1 : 0;
    ASSERT_EQ(passed(record, whole), is_same ? record : "(refused)") << testing::PrintToString(record);
    Names names(damage.accept());
    soif::Canonical selection(names.pointers.data());
    const std::string view = passed(record, selection);
    ASSERT_EQ(view != "(refused)", is_same) << testing::PrintToString(record);
    ASSERT_TRUE(!is_same || view == reprinted(record, names.pointers.data())) << testing::PrintToString(record);
  }
  EXPECT_GT(same, 0);
}

}  // namespace
