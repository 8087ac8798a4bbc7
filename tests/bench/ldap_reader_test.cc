// SPDX-License-Identifier: MIT
#include "speed/ldap_reader.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm::bench;
using namespace std::string_literals;

namespace {

TEST(LdapSearch, ForAllAttributesOfAllEntries) {
  EXPECT_EQ(encode({}),
            "\x30\x29\x02\x01\x01\x63\x24\x04\x07o=bench\x0a\x01\x02\x0a\x01\x00\x02\x01\x00\x02\x01\x00\x01\x01\x00"
            "\x87\x08rdNumber\x30\x00"s);
}

TEST(LdapSearch, ForOneAttributeFromANumberOn) {
  EXPECT_EQ(encode({700, {"rdtitle"}}),
            "\x30\x39\x02\x01\x01\x63\x34\x04\x07o=bench\x0a\x01\x02\x0a\x01\x00\x02\x01\x00\x02\x01\x00\x01\x01\x00"
            "\xa5\x0f\x04\x08rdNumber\x04\x03"
            "700\x30\x09\x04\x07rdtitle"s);
}

TEST(LdapMessage, TellsItsSizeAndOperation) {
  EXPECT_EQ(parse_message("\x30\x0c\x02\x01\x01\x65\x07"), (LdapMessage{14, ldap_done}));
  EXPECT_EQ(parse_message("\x30\x82\x07\xd0\x02\x02\x01\x00\x64"s), (LdapMessage{2004, ldap_entry}));
}

TEST(LdapMessage, IsNothingBeforeItsOperationIsThere) {
  for (const std::string &bytes : {""s, "\x30"s, "\x30\x82\x07"s, "\x30\x0c\x02\x01\x01"s})
    EXPECT_EQ(parse_message(bytes), std::nullopt) << bytes.size();
}

TEST(LdapMessage, OtherBytesHaveNoSize) {
  EXPECT_EQ(parse_message("HTTP"), LdapMessage{});
  EXPECT_EQ(parse_message("\x30\x89\x01"), LdapMessage{});
}

}  // namespace
