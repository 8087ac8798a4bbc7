// SPDX-License-Identifier: MIT
#include "tools/minidba/output/report.h"

#include <sstream>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using minidba::Options;

struct Reported {
  std::string out, errors;
};

Reported report(const Options &options) {
  std::ostringstream out, errors;
  minidba::report(options, {0, out, errors, false, false}, {"accepted", 4}, {{"new", 3}, {"unchanged", 1}});
  return {out.str(), errors.str()};
}

TEST(Report, TheNumberGoesToProgramsTheDetailsToPeople) {
  Options options;
  options.verb = "update";
  Reported reported = report(options);
  EXPECT_EQ(reported.out, "4\n");
  EXPECT_EQ(reported.errors, "minidba: 3 new, 1 unchanged\n");
  options.dry_run = true;
  reported = report(options);
  EXPECT_EQ(reported.out, "4\n");
  EXPECT_EQ(reported.errors, "minidba: dry run: 3 new, 1 unchanged\n");
  options.quiet = true;
  reported = report(options);
  EXPECT_EQ(reported.out, "4\n");
  EXPECT_EQ(reported.errors, "");
}

TEST(Report, AsJsonItIsOneObject) {
  Options options;
  options.verb = "update";
  options.json = true;
  const Reported reported = report(options);
  EXPECT_EQ(reported.out, "{\"verb\":\"update\",\"dry-run\":false,\"accepted\":4,\"new\":3,\"unchanged\":1}\n");
  EXPECT_EQ(reported.errors, "");
}

TEST(Report, JsonNamesHaveNoBlanks) {
  Options options;
  options.verb = "delete";
  options.json = options.dry_run = true;
  std::ostringstream out, errors;
  minidba::report(options, {0, out, errors, false, false}, {"deleted", 0}, {{"not there", 2}});
  EXPECT_EQ(out.str(), "{\"verb\":\"delete\",\"dry-run\":true,\"deleted\":0,\"not-there\":2}\n");
}

TEST(Report, WithoutDetailsPeopleAreToldNothing) {
  std::ostringstream out, errors;
  minidba::report(Options(), {0, out, errors, false, false}, {"indexed", 0});
  EXPECT_EQ(out.str(), "0\n");
  EXPECT_EQ(errors.str(), "");
}

}  // namespace
