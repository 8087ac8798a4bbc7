// SPDX-License-Identifier: MIT
#include "hosts/common/log_text.h"

#include <gtest/gtest.h>

using namespace rdm;

namespace {

/// What is escaped is in escaped_test.cc.
TEST(LogText, LeavesOutOneNewlineAtTheEnd) {
  EXPECT_EQ(hosts::log_text("", Escaping::quotes), "");
  EXPECT_EQ(hosts::log_text("a \"b\"\n", Escaping::quotes), "a \\\"b\\\"");
  EXPECT_EQ(hosts::log_text("only one\n\n", Escaping::quotes), "only one\\n");
  EXPECT_EQ(hosts::log_text("\xc3\xa9\n", Escaping::non_ascii), "\\xc3\\xa9");
}

}  // namespace
