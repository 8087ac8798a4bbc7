// SPDX-License-Identifier: MIT
/// Requests with failed allocations: each allocation of each request fails once.

#include <cstdlib>
#include <cstring>

#include "faults/requests.h"

using namespace rdm;

namespace {

using faults::Answer;
using faults::SampleRequest;

/// Far more than any request allocates.
constexpr long allocation_limit = 20000;

long live_blocks = 0;
long countdown = 0;  // allocations until the failing one; 0 or less: none

void *count_block(void *block) {
  if (block != nullptr) ++live_blocks;
  return block;
}

void *allocate(size_t n) { return --countdown == 0 ? nullptr : count_block(std::malloc(n)); }

void *reallocate(void *p, size_t n) {
  if (--countdown == 0) return nullptr;
  return p == nullptr ? count_block(std::malloc(n)) : std::realloc(p, n);
}

void release(void *p) {
  if (p != nullptr) --live_blocks;
  std::free(p);
}

char *duplicate(const char *text) {
  const size_t size = std::strlen(text) + 1;
  void *copy = allocate(size);
  return copy == nullptr ? nullptr : static_cast<char *>(std::memcpy(copy, text, size));
}

qxapi_host failing_host() {
  qxapi_host host = *qxapi_posix_host();
  host.alloc = allocate;
  host.realloc = reallocate;
  host.free = release;
  host.strdup = duplicate;
  return host;
}

class AllocationFaults : public ::testing::TestWithParam<SampleRequest> {
 protected:
  /// failed_at answers the request while its nth allocation fails. Returns false if it makes fewer.
  bool failed_at(long n, Answer &answer) {
    bool reached = false;
    answer = service_.answer(
        GetParam(), [&] { countdown = n; },
        [&] {
          reached = countdown <= 0;
          countdown = 0;
        });
    return reached;
  }

  faults::Service service_{failing_host(), live_blocks};
};

/// The service opens the catalog in the first round, and has it open in the second.
TEST_P(AllocationFaults, NoAnswerIsWrongAndNothingIsLost) {
  const Answer right = service_.answer(GetParam());
  ASSERT_EQ(right.outcome, hosts::Outcome::answered);
  ASSERT_NE(right.body, "");
  for (const bool changed : {true, false}) {
    Answer answer;
    long n = 1;
    for (; n <= allocation_limit; ++n) {
      if (changed) service_.change_catalog();
      if (!failed_at(n, answer)) break;
      EXPECT_TRUE(faults::is_honest(answer, right)) << "allocation " << n << ": " << answer.body.substr(0, 300);
      EXPECT_EQ(answer.blocks_lost, 0) << "allocation " << n;
    }
    EXPECT_GT(n, 3);
    EXPECT_LT(n, allocation_limit);
    EXPECT_EQ(service_.answer(GetParam()).body, right.body) << "after all failures";
  }
}

INSTANTIATE_TEST_SUITE_P(Requests, AllocationFaults, ::testing::ValuesIn(faults::requests()), faults::name_of);

}  // namespace
