// SPDX-License-Identifier: MIT
#include "catalog/record.h"

#include <random>

#include <gtest/gtest.h>

using namespace rdm;
using namespace std::string_literals;
using namespace rdm::catalog;

namespace {

std::string attribute(const std::string &name, const std::string &value) {
  return attribute_head(name, value.size()) + value + '\n';
}

std::string object_of(const std::string &attributes) { return "@DOCUMENT { http://localhost/\n" + attributes + "}\n"; }

TEST(UndatedRecord, HasOnePlaceholderAtItsOffset) {
  const std::string line = attribute("rd-last-changed", date_of(0));
  for (const std::string &attributes :
       {std::string(), attribute("rd-last-changed", "1") + attribute("a", "1") + attribute("RD-Last-Changed", "2"),
        attribute("a", line) + attribute("b", '\n' + line) + attribute("z", date_of(0)) + line +
            attribute("c", line)}) {
    ObjectView object = *ObjectView::read_owned(object_of(attributes));
    Undated undated = print_undated(object);
    EXPECT_EQ(undated.record.substr(undated.date_offset, date_size), date_of(0));
    undated.record.replace(undated.date_offset, date_size, date_of(86400));
    const SoifPtr dated = parse(undated.record);
    EXPECT_EQ(change_time(dated.get()), 86400) << undated.record;
    EXPECT_EQ(soif_delete(dated.get(), "rd-last-changed"), 0);
    EXPECT_NE(soif_delete(dated.get(), "rd-last-changed"), 0);
  }
}

TEST(UndatedRecord, IsAVersionOfRecordsThatDifferInTheirTimeAlone) {
  const std::string a = attribute("a", "1"), b = attribute("b", "2"),
                    date = attribute("rd-last-changed", date_of(86400));
  ObjectView object = *ObjectView::read_owned(object_of(a + b));
  const Undated undated = print_undated(object);
  std::string record = undated.record;
  EXPECT_TRUE(is_version_of(record, undated));
  record.replace(undated.date_offset, date_size, date_of(86400));
  EXPECT_TRUE(is_version_of(record, undated));
  EXPECT_TRUE(is_version_of(object_of(a + b), undated));
  EXPECT_TRUE(is_version_of(object_of(b + a + date), undated));
  EXPECT_TRUE(is_version_of(object_of(a + attribute("rd-last-changed", "unknown") + b), undated));
  EXPECT_FALSE(is_version_of(object_of(a + date), undated));
  EXPECT_FALSE(is_version_of(object_of(a + attribute("b", "3") + date), undated));
  record[record.find("2\n")] = '3';
  EXPECT_FALSE(is_version_of(record, undated));
  EXPECT_FALSE(is_version_of("no object", undated));
}

/// expect_outline compares the outline of a text with the object that the parser makes of it.
void expect_outline(const std::string &text) {
  const std::optional<Outline> outline = outline_of(text);
  const SoifPtr object = parse(text);
  ASSERT_EQ(outline.has_value(), object != nullptr) << text;
  if (!object) return;
  EXPECT_EQ(outline->url, object->url) << text;
  EXPECT_EQ(outline->change_time, change_time(object.get())) << text;
}

TEST(Outline, IsThatOfTheObjectThatTheParserMakes) {
  const std::string date = date_of(86400),
                    record = object_of(attribute("title", "1") + attribute("RD-last-changed", date) +
                                       attribute("rd-last-changed", date_of(172800)));
  for (const std::string &text :
       {std::string(), record, "@" + record, record.substr(0, record.find(date) + 5), std::string("@D { {}\n}\n"),
        object_of("rd-last-changed{268435457}:\t"), object_of("rd-last-changed{65000}:\t" + date),
        object_of("rd-last-changed{66000}:\t" + date), object_of("rd-last-changed{-1}:\t"),
        object_of(std::string(5000, 'a') + "{1}:\t1\n"), "@D { x\0y\nrd-last-changed\0z{1}:\t7\n}\n"s,
        "@D { \0x\n}\n"s})
    expect_outline(text);
}

TEST(Outline, OfDamagedRecordsIsThatOfTheParser) {
  std::mt19937 random(20260713);
  const std::string sound = object_of(attribute("title", "1 } 2") + attribute("rd-last-changed", date_of(86400)) +
                                      attribute("body", std::string(20, '\n')));
  constexpr char bytes[] = "@{}: \t\n09a\0\xFF-";
  for (int i = 0; i < 20'000; ++i) {
    std::string text = sound;
    for (size_t left = random() % 4; left > 0; --left) text[random() % text.size()] = bytes[random() % sizeof bytes];
    if (random() % 4 == 0) text.erase(random() % text.size(), 1 + random() % 10);
    if (random() % 4 == 0) text.insert(random() % text.size(), sound, random() % 20, random() % 20);
    if (random() % 8 == 0) text.resize(random() % text.size());
    expect_outline(text);
  }
}

TEST(LastTime, IsThatOfEachText) {
  LastTime times;
  EXPECT_EQ(times.of(""), 0);
  for (const time_t time : {86'400, 86'400, 172'800, 86'400}) EXPECT_EQ(times.of(date_of(time)), time);
  EXPECT_EQ(times.of("never"), 0);
  EXPECT_EQ(times.of(date_of(86'400)), 86'400);
}

}  // namespace
