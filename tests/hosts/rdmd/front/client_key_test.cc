// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/client_key.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <unordered_set>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using rdmd::ClientKey;

ClientKey key(std::string_view text) { return ClientKey::parse(text).value(); }

TEST(ClientKeys, TellIpv4ClientsApartByAddressAndIpv6ClientsByNetwork) {
  const struct {
    std::string_view one, other;
    bool same;
  } cases[] = {
      {"192.0.2.1", "192.0.2.1", true},
      {"192.0.2.1", "192.0.2.2", false},
      {"192.0.2.1", "193.0.2.1", false},
      {"192.0.2.1", "::ffff:192.0.2.1", true},
      {"2001:db8:1:2::1", "2001:db8:1:2:ffff:ffff:ffff:ffff", true},
      {"2001:db8:1:2::1", "2001:db8:1:3::1", false},
      {"::1", "::2", true},
      // The same 64 bits as of ::ffff:192.0.2.1.
      {"192.0.2.1", "0:ffff:c000:201::", false},
  };
  for (const auto &row : cases) {
    EXPECT_EQ(key(row.one) == key(row.other), row.same) << row.one << " " << row.other;
    EXPECT_EQ(key(row.one).hash() == key(row.other).hash(), row.same) << row.one << " " << row.other;
  }
}

TEST(ClientKeys, AreTakenFromSocketAddresses) {
  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  v4.sin_addr.s_addr = htonl(0x7f000002);
  EXPECT_EQ(ClientKey::of(reinterpret_cast<const sockaddr *>(&v4)), key("127.0.0.2"));
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  ASSERT_EQ(::inet_pton(AF_INET6, "2001:db8::2", &v6.sin6_addr), 1);
  EXPECT_EQ(ClientKey::of(reinterpret_cast<const sockaddr *>(&v6)), key("2001:db8::1"));
}

TEST(ClientKeys, ClientsOfUnixSocketsHaveOneInCommon) {
  sockaddr_un path{};
  path.sun_family = AF_UNIX;
  EXPECT_EQ(ClientKey::of(reinterpret_cast<const sockaddr *>(&path)), ClientKey());
  EXPECT_TRUE(ClientKey().is_local());
  EXPECT_FALSE(key("::").is_local());
  EXPECT_NE(key("::"), ClientKey());
  EXPECT_NE(key("0.0.0.0"), ClientKey());
  EXPECT_EQ(ClientKey::parse("unix"), std::nullopt);
}

TEST(ClientKeys, AreFoundInAHashTable) {
  std::unordered_set<ClientKey> keys{key("192.0.2.1"), key("::ffff:192.0.2.1"), key("2001:db8::1"), ClientKey()};
  EXPECT_EQ(keys.size(), 3U);
  EXPECT_TRUE(keys.contains(key("2001:db8::2")));
}

}  // namespace
