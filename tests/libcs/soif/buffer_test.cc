// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/soif.h>

#include "libcs/guard.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using namespace std::string_literals;

class Buffer : public support::HostTest {
 protected:
  static SoifBufferPtr make(int32_t size) {
    SOIFBuffer *buffer = nullptr;
    const char *data = soif_buffer_create(size, &buffer);
    EXPECT_EQ(data, buffer->data);
    return SoifBufferPtr(buffer);
  }
  static std::string text(const SoifBufferPtr &b) { return {b->data, static_cast<size_t>(b->length) + 1}; }
};

TEST_F(Buffer, StartsEmptyWithTheSizeGiven) {
  const SoifBufferPtr buffer = make(4096);
  EXPECT_EQ(buffer->size, 4096);
  EXPECT_EQ(buffer->initial_size, 4096);
  EXPECT_EQ(buffer->length, 0);
  EXPECT_EQ(buffer->reserved, 0);
}

TEST_F(Buffer, AppendingWithinTheSizeDoesNotGrow) {
  const SoifBufferPtr buffer = make(8);
  const char *data = buffer->data;
  EXPECT_EQ(soif_buffer_append(buffer.get(), "abc", 3), 0);
  EXPECT_EQ(soif_buffer_append(buffer.get(), "defg", 4), 0);
  EXPECT_EQ(buffer->data, data);
  EXPECT_EQ(buffer->size, 8);
  EXPECT_EQ(buffer->length, 7);
  EXPECT_EQ(text(buffer), "abcdefg\0"s);
}

TEST_F(Buffer, GrowsByExactlyTheAppendedSize) {
  const SoifBufferPtr buffer = make(8);
  soif_buffer_append(buffer.get(), "abc", 3);
  EXPECT_EQ(soif_buffer_append(buffer.get(), "defgh", 5), 0);
  EXPECT_EQ(buffer->size, 13);
  EXPECT_EQ(buffer->initial_size, 8);
  EXPECT_EQ(buffer->length, 8);
  EXPECT_EQ(text(buffer), "abcdefgh\0"s);
}

TEST_F(Buffer, ASingleByteIsStoredLikeAnyOther) {
  const SoifBufferPtr buffer = make(1);
  for (char c : "xy\0z"s) EXPECT_EQ(soif_buffer_append(buffer.get(), &c, 1), 0);
  EXPECT_EQ(text(buffer), "xy\0z\0"s);
  EXPECT_EQ(buffer->size, 5);
}

TEST_F(Buffer, AppendingNothingChangesNothing) {
  const SoifBufferPtr buffer = make(4);
  EXPECT_EQ(soif_buffer_append(buffer.get(), "abc", 0), 0);
  EXPECT_EQ(soif_buffer_append(buffer.get(), "abc", -3), 0);
  EXPECT_EQ(soif_buffer_append(buffer.get(), nullptr, 0), 0);
  EXPECT_EQ(buffer->length, 0);
  EXPECT_EQ(buffer->size, 4);
}

TEST_F(Buffer, IsUsableWithASizeOfZeroOrLess) {
  for (int32_t size : {0, -1, INT32_MIN}) {
    const SoifBufferPtr buffer = make(size);
    EXPECT_EQ(buffer->size, 0);
    EXPECT_EQ(soif_buffer_append(buffer.get(), "a", 1), 0);
    EXPECT_EQ(text(buffer), "a\0"s);
    EXPECT_EQ(soif_buffer_append(buffer.get(), "bcdef", 5), 0);
    EXPECT_EQ(text(buffer), "abcdef\0"s);
    EXPECT_EQ(buffer->size, 6);
  }
}

TEST_F(Buffer, IncreasingKeepsTheText) {
  const SoifBufferPtr buffer = make(4);
  soif_buffer_append(buffer.get(), "abc", 3);
  EXPECT_EQ(soif_buffer_increase(buffer.get(), 100000), buffer->data);
  EXPECT_EQ(buffer->size, 100004);
  EXPECT_EQ(text(buffer), "abc\0"s);
  EXPECT_EQ(soif_buffer_increase(buffer.get(), 0), buffer->data);
  EXPECT_EQ(buffer->size, 100004);
}

TEST_F(Buffer, IncreasingPastTheLimitOrBackwardsIsRefused) {
  const SoifBufferPtr buffer = make(4);
  EXPECT_EQ(soif_buffer_increase(buffer.get(), INT32_MAX - 3), nullptr);
  EXPECT_EQ(soif_buffer_increase(buffer.get(), -1), nullptr);
  EXPECT_EQ(buffer->size, 4);
}

/// The sizes passed to alloc and realloc.
std::vector<size_t> asked;

void *recording_alloc(size_t n) {
  asked.push_back(n);
  return support::memory_host().alloc(n);
}
void *recording_realloc(void *p, size_t n) {
  asked.push_back(n);
  return support::memory_host().realloc(p, n);
}
void *recording_realloc_of_nothing(void *p, size_t n) {
  asked.push_back(n);
  return p;  // the test does not write to it
}

class BufferBlock : public Buffer {
 protected:
  BufferBlock() {
    asked.clear();
    recording.alloc = recording_alloc;
    recording.realloc = recording_realloc;
    qxapi_bind(&recording);
  }
  qxapi_host recording = support::memory_host();
};

TEST_F(BufferBlock, IsAsLargeAsTheSizeAndHasAByteForTheNulIfThatBeganAtZero) {
  const struct {
    int32_t size;
    std::vector<std::string> appended;
    std::vector<size_t> asked;
  } rows[] = {{8, {"abcdefg", "h", "ijklm"}, {sizeof(SOIFBuffer), 8, 9, 14}},
              {0, {"abc", "d"}, {sizeof(SOIFBuffer), 1, 4, 5}}};
  for (const auto &row : rows) {
    asked.clear();
    const SoifBufferPtr buffer = make(row.size);
    std::string whole;
    for (const std::string &piece : row.appended) {
      soif_buffer_append(buffer.get(), piece.data(), static_cast<int32_t>(piece.size()));
      whole += piece;
    }
    EXPECT_EQ(asked, row.asked);
    EXPECT_EQ(text(buffer), whole + '\0');
  }
}

TEST_F(BufferBlock, GrowsUpToTheLimit) {
  const SoifBufferPtr buffer = make(4);
  recording.realloc = recording_realloc_of_nothing;
  qxapi_bind(&recording);
  EXPECT_EQ(soif_buffer_increase(buffer.get(), INT32_MAX - 4), buffer->data);
  EXPECT_EQ(buffer->size, INT32_MAX);
  EXPECT_EQ(asked.back(), size_t{INT32_MAX});
  EXPECT_EQ(soif_buffer_increase(buffer.get(), 1), nullptr);
}

TEST_F(Buffer, DestroyIgnoresNull) { soif_buffer_destroy(nullptr); }

}  // namespace
