// SPDX-License-Identifier: MIT
#include "libcs/soif/field_reader.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "libcs/guard.h"
#include "libcs/soif/objects.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using namespace std::string_literals;

/// Read is what a reader found in a text: whether there was an object, its template, the values ("(none)" for null),
/// and the bytes left.
struct Read {
  bool is_read;
  std::string template_name, title, author;
  size_t left;
  bool operator==(const Read &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Read &read) {
  return out << read.is_read << " \"" << read.template_name << "\" title=" << read.title << " author=" << read.author
             << " left=" << read.left;
}

std::string text_of(const char *value) { return value != nullptr ? value : "(none)"; }

/// in_place reads all objects of a text with a FieldReader, as_objects with soif_parse.
std::vector<Read> in_place(const std::string &text) {
  std::string copy = text;
  soif::FieldReader reader(copy.data(), copy.size());
  soif::Field fields[] = {{"title"}, {"author"}};
  std::vector<Read> all;
  while (reader.left() > 0) {
    const bool is_read = reader.next(fields);
    if (is_read)
      all.push_back({true, std::string(reader.template_name()), text_of(fields[0].value), text_of(fields[1].value),
                     reader.left()});
    else
      all.push_back({false, "", "", "", reader.left()});
  }
  return all;
}

std::vector<Read> as_objects(const std::string &text) {
  SoifReader reader(text);
  std::vector<Read> all;
  while (!reader.at_end()) {
    const SoifPtr object = reader.next();
    const size_t left = text.size() - static_cast<size_t>(reader.position());
    if (object)
      all.push_back({true, object->template_name, text_of(soif_findval(object.get(), "title")),
                     text_of(soif_findval(object.get(), "author")), left});
    else
      all.push_back({false, "", "", "", left});
  }
  return all;
}

class FieldReaders : public support::HostTest {};

TEST_F(FieldReaders, FindWhatAnObjectWouldHold) {
  const std::string texts[] = {
      "@FILE { /a\ntitle{5}:\tHello\n}\n",
      "@FILE { /a\nauthor{1}:\tb\ntitle{5}:\tHello\n}\nbetween @OTHER { /b\nauthor{2}:\tme\n}\n",
      "@FILE { /a\nTitle{1}:\t1\ntitle{1}:\t2\nTITLE{1}:\t3\n}\n",  // the first of a name, in any letter case
      "@FILE { /a\ntitle-1{1}:\t1\nsubtitle{1}:\t2\n}\n",           // other names
      "@FILE { /a\ntitle\0x{1}:\t1\n}\n"s,                          // a name ends at its NUL
      "@FILE { /a\ntitle{0}:\t\nauthor{}:\t\n}\n",                  // empty values
      "@FILE { /a\ntitle{3}:\tabcauthor{2}:\tde}\n",                // nothing between attributes
      "@FILE { /a\ntitle{3}:\tabc{2}:\tdeauthor{1}:\tf}\n",         // an empty name
      "@FILE { /a\ntitle{5}:\ta\0b\nc\n}\n"s,                       // bytes of a value
      "@ { /a\n}\n@FILE\n}\n@FILE",                                 // names that are missing
      "@FILE { /a\ntitle{5}:\tHello",                               // the text ends with a value
      "@FILE { /a\ntitle{5}:\tHel",                                 // the text ends within a value
      "@FILE { /a\nother{9}:\tHel",
      "@FILE { /a\ntitle{5}:Hello\n}\n@FILE { /b\nauthor{1}:\tx\n}\n",  // a syntax error, and an object after it
      "@FILE { /a\ntitle{70000}:\tHello\n}\n",                          // sizes that no text can have
      "@FILE { /a\nother{70000}:\tHello\n}\n",
      "@FILE { /a\ntitle{-1}:\tHello\n}\n",
      "",
      "no object",
      "@",
      "@A { b",
  };
  for (const std::string &text : texts) EXPECT_EQ(in_place(text), as_objects(text)) << text;
}

TEST_F(FieldReaders, AllocateNothingUnlessAValueGoesPastTheEnd) {
  const std::string original = "@FILE { /a\ntitle{5}:\tHello\nauthor{9}:\tme";
  std::string text = original;
  soif::Field fields[] = {{"title"}, {"author"}};
  soif::FieldReader whole(text.data(), text.find("author"));
  const long before = host.allocations;
  EXPECT_TRUE(whole.next(fields));
  EXPECT_EQ(fields[0].value, text.data() + text.find("Hello"));
  EXPECT_EQ(host.allocations, before);
  EXPECT_FALSE(whole.next(fields));
  EXPECT_EQ(fields[0].value, nullptr);

  text = original;
  host.fail_allocation = host.allocations + 1;
  soif::FieldReader cut(text.data(), text.size());
  EXPECT_FALSE(cut.next(fields));
}

}  // namespace
