// SPDX-License-Identifier: MIT
#include "libcs/soif/grammar.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(SoifGrammar, WhiteSpaceIsTheClassSpace) {
  for (int c = 0; c < 256; ++c) {
    const auto in = [c](std::string_view set) { return set.find(static_cast<char>(c)) != std::string_view::npos; };
    EXPECT_EQ(soif::is_space(c), in(soif::white_space)) << c;
    EXPECT_EQ(soif::is_before_url(c), in(soif::white_space_and_braces)) << c;
  }
}

/// head_of returns "NAME SIZE LENGTH", or "none".
std::string head_of(std::string_view text, std::string_view not_in_name = "{} \n") {
  const auto head = soif::written_head(text, not_in_name, 8);
  if (!head) return "none";
  return std::string(head->name) + ' ' + std::to_string(head->size) + ' ' + std::to_string(head->length);
}

TEST(SoifGrammar, AHeadAsWrittenHasANameAndDigits) {
  const struct {
    const char *text, *head;
  } cases[] = {
      {"name{5}:\tvalue", "name 5 9"},
      {"name{0}:\t", "name 0 9"},
      {"a{18446744073709551615}:\t", "a 18446744073709551615 25"},
      {"na@me{05}:\t", "na@me 5 11"},
      {"nam\te{5}:\t", "nam\te 5 10"},
      {"", "none"},
      {"{5}:\t", "none"},
      {"name", "none"},
      {"na me{5}:\t", "none"},
      {"na}me{5}:\t", "none"},
      {"name{}:\t", "none"},
      {"name{ 5}:\t", "none"},
      {"name{-5}:\t", "none"},
      {"name{+5}:\t", "none"},
      {"name{5 }:\t", "none"},
      {"name{5}:", "none"},
      {"name{5}: ", "none"},
      {"name{5", "none"},
      {"a{18446744073709551616}:\t", "none"},
      {"longname{5}:\t", "none"},
      {"longnam{5}:\t", "longnam 5 12"},
  };
  for (const auto &row : cases) EXPECT_EQ(head_of(row.text), row.head) << row.text;
  EXPECT_EQ(head_of("nam\te{5}:\t", "{} \t"), "none");
}

}  // namespace
