// SPDX-License-Identifier: MIT
/// From records and documents to mirrors of their catalogs, as the example does it.
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/process.h"

using namespace rdm;

namespace {

TEST(MirrorExample, EndsWithMirrorsThatEqualTheirCatalogs) {
  const support::Finished finished = support::run({support::in_source("examples/mirror.sh"), support::in_build("bin")});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out,
            "1000 new, 0 changed, 0 unchanged, 0 deleted, 0 expired, 0 rejected\n"
            "10 new, 0 changed, 0 unchanged, 0 deleted, 0 expired, 0 rejected\n"
            "harvested: 1000\n"
            "0 new, 0 changed, 950 unchanged, 50 deleted, 0 expired, 0 rejected\n"
            "1 new, 0 changed, 0 unchanged, 0 deleted, 0 expired, 0 rejected\n"
            "each mirror equals its catalog\n");
}

}  // namespace
