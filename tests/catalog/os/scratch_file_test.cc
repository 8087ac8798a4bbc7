// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

#include "catalog/os/file.h"
#include "support/files.h"

using namespace rdm;

namespace {

TEST(ScratchFile, ReturnsBytesFromMemoryAndFileAsTheyWereAppended) {
  const support::TemporaryDirectory directory;
  catalog::ScratchFile scratch(directory.path("catalog"));
  std::mt19937 random(20260901);
  std::string all;
  const auto append = [&](size_t size) {
    std::string bytes(size, '\0');
    for (char &byte : bytes) byte = static_cast<char>(random());
    EXPECT_EQ(scratch.append(bytes), static_cast<int64_t>(all.size()));
    all += bytes;
  };
  for (const size_t size : {10u, 0u, 2u << 20, 1u, (2u << 20) + 1, 700'000u, 700'000u, 700'000u, 700'000u, 20u}) {
    append(size);
    ASSERT_EQ(scratch.size(), static_cast<int64_t>(all.size()));
    for (int i = 0; i < 200; ++i) {
      const size_t offset = random() % all.size(),
                   count = random() % std::min<size_t>(all.size() - offset + 1, 100'000);
      std::string bytes(count, '\0');
      scratch.read(static_cast<int64_t>(offset), bytes.data(), count);
      ASSERT_TRUE(bytes == all.substr(offset, count)) << offset << ", " << count;
    }
  }
  std::string bytes(all.size(), '\0');
  EXPECT_EQ(::pread(scratch.descriptor(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(all.size()));
  EXPECT_TRUE(bytes == all);
}

}  // namespace
