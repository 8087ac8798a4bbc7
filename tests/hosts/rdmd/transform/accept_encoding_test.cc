// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/accept_encoding.h"

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(AcceptEncoding, SaysWhetherTheClientPrefersGzip) {
  const struct {
    const char *field;
    bool accepts;
  } cases[] = {
      {"gzip", true},
      {"GZip", true},
      {"x-gzip", true},
      {"deflate, gzip, br", true},
      {"gzip;q=1.000", true},
      {"gzip;q=0.001", true},
      {"\tgzip ; Q=0.5 ", true},
      {"*", true},
      {"*;q=0.1", true},
      {"identity;q=0.5, gzip;q=0.5", true},
      {"identity;q=0, gzip;q=0.1", true},
      {"identity;q=0, *", true},
      {",, gzip,,", true},
      {"*;q=0, gzip", true},
      {"deflate, br, , gzip;q=0.8", true},  // two fields, joined

      {"", false},
      {",", false},
      {";", false},
      {"identity", false},
      {"identity;q=0", false},
      {"gzip;q=0", false},
      {"gzip;q=0.000", false},
      {"gzip;q=0, *", false},
      {"*;q=0", false},
      {"identity, gzip;q=0.5", false},
      {"identity, *;q=0.999", false},
      {"gzip2", false},
      {"not-gzip", false},
      {"deflate", false},
      {"gzip;q=0, gzip", false},

      {"gzip;q=", false},
      {"gzip;q=2", false},
      {"gzip;q=1.001", false},
      {"gzip;q=0.5555", false},
      {"gzip;q=-1", false},
      {"gzip;q=0x1", false},
      {"gzip;q=.5", false},
      {"gzip;q=10", false},
      {"gzip;q=nan", false},
      {"gzip;level=1", false},
      {"gzip;", false},
      {"gzip;q=1;q=1", false},
      {"gzip;q=1, gzip;q=0", true},
      {"gzip;q=x, gzip", true},
      {"gzip gzip", false},
      {"\"gzip\"", false},
  };
  for (const auto &row : cases) EXPECT_EQ(rdmd::accepts_gzip(row.field), row.accepts) << row.field;
}

}  // namespace
