// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstring>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "qxapi/guard.h"

using namespace rdm;

namespace {

TEST(Memory, ZeroBytesAreABlockToo) {
  const HostPtr<void> block(host_alloc(0));
  EXPECT_NE(block, nullptr);
  host_free(nullptr);
}

TEST(Memory, BlocksAreWritableAndAligned) {
  const HostPtr<char> block(static_cast<char *>(host_alloc(1000)));
  ASSERT_NE(block, nullptr);
  std::memset(block.get(), 'x', 1000);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block.get()) % alignof(max_align_t), 0u);
}

TEST(Memory, ReallocKeepsTheBytes) {
  HostPtr<char> block(static_cast<char *>(host_realloc(nullptr, 4)));
  ASSERT_NE(block, nullptr);
  std::memcpy(block.get(), "abc", 4);
  block.reset(static_cast<char *>(host_realloc(block.release(), 100000)));
  EXPECT_STREQ(block.get(), "abc");
  block.reset(static_cast<char *>(host_realloc(block.release(), 2)));
  EXPECT_EQ(block.get()[1], 'b');
  block.reset(static_cast<char *>(host_realloc(block.release(), 0)));
  EXPECT_NE(block, nullptr);
}

TEST(Memory, StrdupCopies) {
  char text[] = "text";
  const HostText copy(host_strdup(text));
  text[0] = 'n';
  EXPECT_STREQ(copy.get(), "text");
}

}  // namespace
