// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/ip_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using rdmd::IpAddress;
using rdmd::IpRange;

/// shown returns the text of an address read from `text`, or "(none)".
std::string shown(std::string_view text) {
  const auto address = IpAddress::parse(text);
  return address ? address->text() : "(none)";
}

TEST(IpAddresses, AreReadAndShownInTheirUsualForm) {
  const struct {
    std::string_view text, shown;
  } cases[] = {
      {"192.0.2.1", "192.0.2.1"},
      {"255.255.255.255", "255.255.255.255"},
      {"2001:DB8:0:0:0:0:0:1", "2001:db8::1"},
      {"::", "::"},
      {"::ffff:192.0.2.1", "192.0.2.1"},
      {"::ffff:c000:201", "192.0.2.1"},
      {"ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255", "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
      {"", "(none)"},
      {"192.0.2", "(none)"},
      {"192.0.2.01", "(none)"},
      {"192.0.2.256", "(none)"},
      {" 192.0.2.1", "(none)"},
      {"192.0.2.1 ", "(none)"},
      {"192.0.2.1:80", "(none)"},
      {"[::1]", "(none)"},
      {"fe80::1%lo", "(none)"},
      {"localhost", "(none)"},
      {{"192.0.2.1\0", 10}, "(none)"},
      {"0000:0000:0000:0000:0000:0000:0000:0000:0000:0000:0000", "(none)"},
  };
  for (const auto &row : cases) EXPECT_EQ(shown(row.text), row.shown) << row.text;
}

TEST(IpAddresses, AreTakenFromSocketAddresses) {
  sockaddr_in v4{};
  v4.sin_family = AF_INET;
  v4.sin_addr.s_addr = htonl(0x7f000002);
  EXPECT_EQ(IpAddress::of(reinterpret_cast<const sockaddr *>(&v4)), IpAddress::parse("127.0.0.2"));
  sockaddr_in6 v6{};
  v6.sin6_family = AF_INET6;
  ASSERT_EQ(::inet_pton(AF_INET6, "::ffff:127.0.0.2", &v6.sin6_addr), 1);
  EXPECT_EQ(IpAddress::of(reinterpret_cast<const sockaddr *>(&v6)), IpAddress::parse("127.0.0.2"));
  ASSERT_EQ(::inet_pton(AF_INET6, "2001:db8::2", &v6.sin6_addr), 1);
  EXPECT_EQ(IpAddress::of(reinterpret_cast<const sockaddr *>(&v6)), IpAddress::parse("2001:db8::2"));
  sockaddr_un path{};
  path.sun_family = AF_UNIX;
  EXPECT_EQ(IpAddress::of(reinterpret_cast<const sockaddr *>(&path)), std::nullopt);
}

TEST(IpRanges, ContainTheAddressesThatBeginWithTheirBits) {
  const struct {
    std::string_view range, address;
    bool contained;
  } cases[] = {
      {"192.0.2.1", "192.0.2.1", true},
      {"192.0.2.1", "192.0.2.2", false},
      {"192.0.2.1", "::ffff:192.0.2.1", true},
      {"192.0.2.0/24", "192.0.2.255", true},
      {"192.0.2.77/24", "192.0.2.255", true},
      {"192.0.2.0/24", "192.0.3.0", false},
      {"192.0.2.0/25", "192.0.2.127", true},
      {"192.0.2.0/25", "192.0.2.128", false},
      {"192.0.2.0/31", "192.0.2.1", true},
      {"192.0.2.0/31", "192.0.2.2", false},
      {"0.0.0.0/0", "203.0.113.9", true},
      {"0.0.0.0/0", "2001:db8::1", false},
      {"::/0", "2001:db8::1", true},
      {"::/0", "203.0.113.9", true},
      {"::ffff:192.0.2.0/120", "192.0.2.9", true},
      {"::ffff:192.0.2.0/120", "192.0.3.9", false},
      {"2001:db8::/32", "2001:db8:ffff::1", true},
      {"2001:db8::/32", "2001:db9::", false},
      {"2001:db8::/33", "2001:db8:8000::", false},
      {"2001:db8::1/128", "2001:db8::1", true},
      {"2001:db8::1", "2001:db8::2", false},
  };
  for (const auto &row : cases) {
    const auto range = IpRange::parse(row.range);
    ASSERT_TRUE(range) << row.range;
    EXPECT_EQ(range->contains(*IpAddress::parse(row.address)), row.contained) << row.range << " " << row.address;
  }
}

TEST(IpRanges, RefuseOtherText) {
  for (const std::string_view text : {"", "/", "192.0.2.1/", "192.0.2.1/33", "192.0.2.1/-1", "192.0.2.1/+1",
                                      "192.0.2.1/8/8", "192.0.2.1/256", "2001:db8::/129", "host/8", "/8", "192.0.2/24"})
    EXPECT_FALSE(IpRange::parse(text)) << text;
}

}  // namespace
