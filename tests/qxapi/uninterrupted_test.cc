// SPDX-License-Identifier: MIT
#include "qxapi/uninterrupted.h"

#include <gtest/gtest.h>

using namespace rdm;

namespace {

TEST(Uninterrupted, CallsAgainAfterASignalAlone) {
  int calls = 0;
  EXPECT_EQ(uninterrupted([&] { return errno = EINTR, ++calls < 3 ? -1 : calls; }), 3);
  calls = 0;
  EXPECT_EQ(uninterrupted([&] { return errno = EIO, ++calls, -1L; }), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(calls, 1);
}

}  // namespace
