// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/client.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using rdmd::Client;
using rdmd::client_of;

TEST(Clients, AreShownByTheirAddress) {
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  const std::pair<const char *, const char *> cases[] = {{"2001:DB8::1", "2001:db8::1"},
                                                         {"::ffff:192.0.2.1", "192.0.2.1"}};
  for (const auto &[address, text] : cases) {
    ASSERT_EQ(::inet_pton(AF_INET6, address, &v6.sin6_addr), 1);
    const Client client = client_of(reinterpret_cast<const sockaddr *>(&v6));
    EXPECT_EQ(client.text, text);
    EXPECT_EQ(client.address, rdmd::IpAddress::parse(text));
    EXPECT_EQ(client.key, rdmd::ClientKey::parse(text));
  }
}

TEST(Clients, WithoutAnIpAddressHaveTheCommonKey) {
  for (const auto &[family, text] : {std::pair(AF_UNIX, "unix:"), std::pair(AF_UNSPEC, "-")}) {
    sockaddr address{};
    address.sa_family = static_cast<sa_family_t>(family);
    const Client client = client_of(&address);
    EXPECT_EQ(client.text, text);
    EXPECT_TRUE(client.key.is_local());
    EXPECT_FALSE(client.address);
  }
}

}  // namespace
