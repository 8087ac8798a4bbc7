// SPDX-License-Identifier: MIT
#include "speed/answer_head.h"

#include <gtest/gtest.h>

using namespace rdm::bench;

namespace {

TEST(AnswerHead, IsNothingUntilItsEndIsThere) {
  EXPECT_EQ(parse_head(""), std::nullopt);
  EXPECT_EQ(parse_head("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n"), std::nullopt);
}

TEST(AnswerHead, HasStatusAndSizes) {
  EXPECT_EQ(parse_head("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody"), (AnswerHead{200, 38, 4}));
  EXPECT_EQ(parse_head("HTTP/1.1 404 Not Found\r\nDate: now\r\ncontent-length: 0\r\nServer: s\r\n\r\n"),
            (AnswerHead{404, 67, 0}));
}

TEST(AnswerHead, WithoutALengthHasNoStatus) {
  EXPECT_EQ(parse_head("HTTP/1.1 200 OK\r\n\r\nContent-Length: 4\r\n\r\n"), (AnswerHead{0, 19, 0}));
}

}  // namespace
