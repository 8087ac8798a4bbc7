// SPDX-License-Identifier: MIT
#include "tools/minidba/output/report.h"

#include <sstream>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using minidba::Options;

using Figures = std::vector<minidba::Figure>;

TEST(Report, WritesTheNumberForProgramsAndTheDetailsForPeople) {
  const Figures details{{"new", 3}, {"not there", 1}};
  const struct {
    const char *what;
    bool dry_run, quiet, json;
    Figures details;
    std::string out, errors;
  } rows[] = {
      {"usually", false, false, false, details, "4\n", "minidba: 3 new, 1 not there\n"},
      {"dry run", true, false, false, details, "4\n", "minidba: dry run: 3 new, 1 not there\n"},
      {"quiet", true, true, false, details, "4\n", ""},
      {"without details", false, false, false, {}, "4\n", ""},
      {"names in JSON have no blanks", true, false, true, details,
       "{\"verb\":\"update\",\"dry-run\":true,\"accepted\":4,\"new\":3,\"not-there\":1}\n", ""},
  };
  for (const auto &row : rows) {
    Options options;
    options.verb = "update";
    options.dry_run = row.dry_run;
    options.quiet = row.quiet;
    options.json = row.json;
    std::ostringstream out, errors;
    minidba::report(options, {0, out, errors, false, false}, {"accepted", 4}, row.details);
    EXPECT_EQ(out.str(), row.out) << row.what;
    EXPECT_EQ(errors.str(), row.errors) << row.what;
  }
}

}  // namespace
