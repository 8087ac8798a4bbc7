// SPDX-License-Identifier: MIT
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/cs.h>

namespace {

struct Parts {
  int result;
  std::string host;
  int port;
  std::string name;
  bool operator==(const Parts &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Parts &parts) {
  return out << parts.result << " [" << parts.host << "] " << parts.port << " [" << parts.name << "]";
}

/// parse passes two buffers of exactly the size that the header demands.
Parts parse(const char *csid) {
  const size_t room = csid == nullptr ? 1 : std::strlen(csid) + 1;
  std::vector<char> name(room, '?'), host(room, '?');
  int port = -7;
  const int result = csid_parse(csid, name.data(), host.data(), &port);
  return {result, host.data(), port, name.data()};
}

TEST(CsidUrl, IsTakenApartIntoHostPortAndName) {
  const struct {
    const char *csid;
    Parts parts;
  } rows[] = {
      {"x-catalog://host:6666/name", {0, "host", 6666, "name"}},
      {"x-catalogs://host:6666/name", {0, "host", 6666, "name"}},
      {"x-catalog://www.example.com:80/a/b?c=d:e", {0, "www.example.com", 80, "a/b?c=d:e"}},
      {"x-catalog://h:1/n", {0, "h", 1, "n"}},
      {"x-catalog://host:0/name", {0, "host", 0, "name"}},
      {"x-catalog://host:65535/name", {0, "host", 65535, "name"}},
  };
  for (const auto &row : rows) EXPECT_EQ(parse(row.csid), row.parts) << row.csid;
}

TEST(CsidUrl, ReadsThePartsAsScanfDoes) {
  const struct {
    const char *csid;
    Parts parts;
  } rows[] = {
      {"x-catalog://a host\n/x:80/name", {0, "a host\n/x", 80, "name"}},  // a host may hold anything but a colon
      {"x-catalog://host: \t80/name", {0, "host", 80, "name"}},
      {"x-catalog://host:+80/name", {0, "host", 80, "name"}},
      {"x-catalog://host:-80/name", {0, "host", -80, "name"}},
      {"x-catalog://host:0080/name", {0, "host", 80, "name"}},
      {"x-catalog://host:99999/name", {0, "host", 99999, "name"}},
      {"x-catalog://host:2147483647/name", {0, "host", INT_MAX, "name"}},
      {"x-catalog://host:-2147483648/name", {0, "host", INT_MIN, "name"}},
      {"x-catalog://host:80/ \n name", {0, "host", 80, "name"}},
      {"x-catalog://host:80/name and more", {0, "host", 80, "name"}},
      {"x-catalog://host:80/name\t", {0, "host", 80, "name"}},
      {"x-catalog://x-catalogs://host:80/name", {1, "", 0, ""}},
  };
  for (const auto &row : rows) EXPECT_EQ(parse(row.csid), row.parts) << row.csid;
}

TEST(CsidUrl, WithAPartMissingLeavesNothing) {
  const char *const rows[] = {"",
                              "x",
                              "unknown",
                              "x-catalog:",
                              "x-catalog://",
                              "x-catalog://host",
                              "x-catalog://host:",
                              "x-catalog://host/name",
                              "x-catalog://host:80",
                              "x-catalog://host:80/",
                              "x-catalog://host:80/ ",
                              "x-catalog://:80/name",
                              "x-catalog://host:/name",
                              "x-catalog://host:port/name",
                              "x-catalog://host:80 /name",
                              "x-catalog://host:80x/name",
                              "x-catalog://host:+-80/name",
                              "x-catalog://host:++80/name",
                              "x-catalog://host:+/name",
                              "x-catalog://host:2147483648/name",
                              "x-catalog://host:99999999999999999999/name",
                              " x-catalog://host:80/name",
                              "X-Catalog://host:80/name",
                              "x-catalogz://host:80/name",
                              "x-catalogss://host:80/name",
                              "http://host:80/name"};
  const Parts nothing{1, "", 0, ""};
  for (const char *csid : rows) EXPECT_EQ(parse(csid), nothing) << csid;
  EXPECT_EQ(parse(nullptr), nothing);
}

}  // namespace
