// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/proxies.h"

#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using rdmd::Client;
using rdmd::client_of;
using rdmd::IpAddress;
using rdmd::Proxies;

Client client(std::string_view address) { return client_of(IpAddress::parse(address).value()); }

Client unix_client() {
  sockaddr address{};
  address.sa_family = AF_UNIX;
  return client_of(&address);
}

TEST(TrustedProxies, AreAddressesRangesAndClientsOfUnixSockets) {
  const Proxies proxies({"127.0.0.1", "10.0.0.0/8", "2001:db8::/32"});
  for (const char *address : {"127.0.0.1", "::ffff:127.0.0.1", "10.255.0.1", "2001:db8:1::1"})
    EXPECT_TRUE(proxies.trusts(client(address))) << address;
  for (const char *address : {"127.0.0.2", "11.0.0.1", "2001:db9::1", "::1"})
    EXPECT_FALSE(proxies.trusts(client(address))) << address;
  EXPECT_FALSE(proxies.trusts(unix_client()));
  EXPECT_TRUE(Proxies({"unix"}).trusts(unix_client()));
  EXPECT_FALSE(Proxies({"unix", "::/0"}).trusts(Client{})) << "an unknown address is not trusted";
  EXPECT_FALSE(Proxies({}).trusts(client("127.0.0.1")));
}

TEST(TrustedProxies, RefuseOtherText) {
  for (const char *text : {"", "localhost", "unix:", "10.0.0.0/33", "10.0.0.0/8 ", "::/129"}) {
    EXPECT_FALSE(Proxies::is_valid(text)) << text;
    EXPECT_THROW(Proxies({text}), std::invalid_argument) << text;
  }
  for (const char *text : {"unix", "10.0.0.0/32", "::"}) EXPECT_TRUE(Proxies::is_valid(text)) << text;
}

TEST(TrustedProxies, NameTheRightmostAddressThatIsNotTrusted) {
  const Proxies proxies({"127.0.0.1", "10.0.0.0/8"});
  const std::pair<const char *, const char *> cases[] = {
      {"192.0.2.1", "192.0.2.1"},
      {"203.0.113.9, 192.0.2.1", "192.0.2.1"},
      {"203.0.113.9, 192.0.2.1, 10.1.2.3", "192.0.2.1"},
      {"203.0.113.9,192.0.2.1 ,\t10.1.2.3,10.1.2.4", "192.0.2.1"},
      {"10.1.2.3, 10.1.2.4", "10.1.2.3"},
      {"2001:db8::1", "2001:db8::1"},
      {"[2001:db8::1]", "2001:db8::1"},
      {"[2001:db8::1]:4711", "2001:db8::1"},
      {"192.0.2.1:4711", "192.0.2.1"},
      {"::ffff:192.0.2.1", "192.0.2.1"},
      {"192.0.2.1, 127.0.0.1:80", "192.0.2.1"},
      {"", "127.0.0.1"},
      {" ", "127.0.0.1"},
      {"unknown", "127.0.0.1"},
      {"192.0.2.1, unknown", "127.0.0.1"},
      {"192.0.2.1,", "127.0.0.1"},
      {"192.0.2.1, , 10.1.2.3", "10.1.2.3"},
      {"192.0.2.1, unknown, 10.1.2.3", "10.1.2.3"},
      {"192.0.2.1:", "127.0.0.1"},
      {"192.0.2.1:99999", "127.0.0.1"},
      {"192.0.2.1 10.1.2.3", "127.0.0.1"},
      {"[192.0.2.1]", "127.0.0.1"},
      {"[2001:db8::1", "127.0.0.1"},
      {"[2001:db8::1]x", "127.0.0.1"},
      {"[]", "127.0.0.1"},
      {"\"192.0.2.1\"", "127.0.0.1"},
      {"192.0.2.1\r\n", "127.0.0.1"},
  };
  for (const auto &[value, named] : cases) {
    const Client found = proxies.forwarded(client("127.0.0.1"), value);
    EXPECT_EQ(found.text, named) << value;
    EXPECT_EQ(found.key, client(named).key) << value;
  }
}

TEST(TrustedProxies, AnEmptyListLeavesTheClientOfAUnixSocket) {
  EXPECT_EQ(Proxies({"unix"}).forwarded(unix_client(), "").text, "unix:");
  EXPECT_EQ(Proxies({"unix"}).forwarded(unix_client(), "192.0.2.1").text, "192.0.2.1");
}

}  // namespace
