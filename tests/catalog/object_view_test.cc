// SPDX-License-Identifier: MIT
#include "catalog/object_view.h"

#include <random>

#include <gtest/gtest.h>

#include "catalog/record.h"
#include "libcs/guard.h"

using namespace rdm;
using namespace std::string_literals;
using namespace rdm::catalog;

namespace {

constexpr char changed[] = "rd-last-changed";

std::string attribute_of(const std::string &name, const std::string &value) {
  return attribute_head(name, value.size()) + value + '\n';
}

/// expect_like_parser compares the view of a text with the object that the parser makes of it.
void expect_like_parser(const std::string &text) {
  std::optional<ObjectView> view = ObjectView::read(text);
  const SoifPtr object = parse(text);
  ASSERT_EQ(view.has_value(), object != nullptr) << text;
  if (!object) return;
  EXPECT_EQ(view->template_name(), object->template_name) << text;
  EXPECT_EQ(view->url(), object->url) << text;
  for (const char *name : {changed, "title", "a", ""}) {
    const char *const value = soif_findval(object.get(), name);
    EXPECT_EQ(view->find(name), value != nullptr ? std::optional<std::string_view>(value) : std::nullopt) << text;
  }
  EXPECT_EQ(change_time(*view), change_time(object.get())) << text;
  EXPECT_EQ(view->print(), print(object.get())) << text;
  view->erase(changed);
  while (soif_delete(object.get(), changed) == 0) {
  }
  EXPECT_EQ(view->find(changed), std::nullopt);
  EXPECT_EQ(view->print(), print(object.get())) << text;
  view->append(changed, "now");
  soif_insert(object.get(), changed, "now", 3);
  size_t place = 0;
  const std::string printed = view->print(&place);
  EXPECT_EQ(printed, print(object.get())) << text;
  EXPECT_EQ(printed.substr(place, 4), "now\n") << text;
}

TEST(ObjectView, IsTheObjectThatTheParserMakes) {
  const std::string date = date_of(86400), sound = "@DOCUMENT { http://localhost/\n" + attribute_of("title", "1") +
                                                   attribute_of("RD-last-changed", date) + attribute_of("a", "") +
                                                   attribute_of("title", "2") + attribute_of("TITLE", "3\0004"s);
  std::string many;
  for (int i = 0; i < 100; ++i) many += attribute_of("name-" + std::to_string(i % 40), std::to_string(i));
  for (const std::string &text :
       {std::string(), std::string("no object"), sound + "}\n", "text @" + sound, sound + many + "}\n" + sound,
        sound.substr(0, sound.find(date) + 5), std::string("@D { {}\n}\n"), std::string("@ { x\n}\n"), "@D { \0x\n}\n"s,
        "@D\0E { x\na\0b{1}:\t1\n}\n"s, sound + "{1}:\t1\n}\n", sound + "a{65000}:\t" + date,
        sound + "a{66000}:\t" + date, sound + "a{-1}:\t", sound + "a{268435457}:\t",
        sound + std::string(5000, 'a') + "{1}:\t1\n"})
    expect_like_parser(text);
}

TEST(ObjectView, IsReadToItsBrace) {
  const std::string sound = "@D { x\n" + attribute_of("a", "}");
  const auto end_of = [](const std::string &text) {
    size_t end = 0;
    return ObjectView::read_closed(text, end) ? static_cast<int>(end) : -1;
  };
  EXPECT_EQ(end_of(sound + "}"), static_cast<int>(sound.size()) + 1);
  EXPECT_EQ(end_of(sound + "}\n" + sound), static_cast<int>(sound.size()) + 1);
  EXPECT_EQ(end_of("@D { x\n}"), 8);
  EXPECT_EQ(end_of(sound + "a{0}:\t}"), static_cast<int>(sound.size()) + 7);
  for (const std::string &open :
       {std::string(), "@D { x"s, "@D { x\n"s, "@D { x} "s, sound, sound.substr(0, sound.size() - 1),
        sound + "a{3}:\t1}", sound + "a{1}:\t}", sound + "a{1}:}", sound + "a{-1}:\t}"})
    EXPECT_EQ(end_of(open), -1) << open;
}

TEST(ObjectView, OfDamagedTextsIsTheObjectThatTheParserMakes) {
  std::mt19937 random(20261122);
  const std::string sound = "@DOCUMENT { http://localhost/\n" + attribute_of("title", "1 } 2") +
                            attribute_of("a", "1") + attribute_of(changed, date_of(86400)) +
                            attribute_of("body", std::string(20, '\n')) + "}\n";
  constexpr char bytes[] = "@{}: \t\n09aA\0\xFF-";
  for (int i = 0; i < 20'000; ++i) {
    std::string text = sound;
    for (size_t left = random() % 4; left > 0; --left) text[random() % text.size()] = bytes[random() % sizeof bytes];
    if (random() % 4 == 0) text.erase(random() % text.size(), 1 + random() % 10);
    if (random() % 4 == 0) text.insert(random() % text.size(), sound, random() % 20, random() % 60);
    if (random() % 8 == 0) text.resize(random() % text.size());
    expect_like_parser(text);
  }
}

TEST(ObjectView, KeepsItsTextWhenItIsMoved) {
  ObjectView first = *ObjectView::read_owned("@D { x\na{1}:\t1\nb{3}:\t2");
  const ObjectView second = std::move(first);
  EXPECT_EQ(second.print(), "@D { x\na{1}:\t1\nb{3}:\t2\xFF\xFF\n}\n");
}

}  // namespace
