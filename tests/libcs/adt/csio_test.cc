// SPDX-License-Identifier: MIT
#include <climits>
#include <string>

#include <gtest/gtest.h>
#include <libcs/adt.h>
#include <libcs/log.h>

#include "csio_buffers.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using support::append;
using support::copy;
using support::pattern;

std::string contents(const CsioPtr &io) { return {reinterpret_cast<const char *>(io->data), io->length}; }

/// The buffer in memory; its file backing is tested in csio_file_test.cc.
class Csio : public support::HostTest {
 protected:
  support::Diagnostics log;
};

TEST_F(Csio, CreatedEmptyInMemory) {
  csio *out = nullptr;
  csio *const created = csio_create(&out);
  const CsioPtr io(created);
  EXPECT_EQ(out, created);
  EXPECT_EQ(io->flags, 0x01u);
  EXPECT_EQ(io->data, nullptr);
  EXPECT_EQ(io->length, 0u);
  EXPECT_EQ(io->position, 0u);
  EXPECT_EQ(io->capacity, 0u);
  EXPECT_EQ(io->max_memory, 0u);
  EXPECT_EQ(io->increment, 4096u);
  EXPECT_EQ(io->filename, nullptr);
  EXPECT_EQ(io->fd, -1);
  EXPECT_EQ(io->remove_file, 0);
  EXPECT_EQ(io->wbuf, nullptr);
  EXPECT_EQ(io->wbuf_len, 0);
  EXPECT_EQ(io->finished, 0);
}

TEST_F(Csio, AppendsAtTheEnd) {
  const CsioPtr io = make_csio();
  const std::string binary("two\0\xFF", 5);
  EXPECT_EQ(append(io, "one"), 3);
  EXPECT_EQ(append(io, binary), 5);
  EXPECT_EQ(contents(io), "one" + binary);
  EXPECT_EQ(io->data[io->length], 0);
}

TEST_F(Csio, AppendingNothingChangesNothing) {
  const CsioPtr io = make_csio();
  append(io, "text");
  for (const int32_t count : {0, -1, INT_MIN}) EXPECT_EQ(csio_append(io.get(), "bytes", count), 0);
  for (const int32_t count : {0, 10}) EXPECT_EQ(csio_append(io.get(), nullptr, count), 0);
  EXPECT_EQ(contents(io), "text");
}

TEST_F(Csio, GrowsOnlyWhenTheBytesAndTheNulDoNotFit) {
  const CsioPtr io = make_csio();
  append(io, "x");
  EXPECT_EQ(io->capacity, 4096u);
  append(io, pattern(4094));
  EXPECT_EQ(io->length, 4095u);
  EXPECT_EQ(io->capacity, 4096u);
  EXPECT_EQ(io->data[4095], 0);
  append(io, "y");
  EXPECT_EQ(io->capacity, 8192u);
  EXPECT_EQ(contents(io), "x" + pattern(4094) + "y");
  EXPECT_EQ(io->data[4096], 0);
}

TEST_F(Csio, GrowsByTheIncrementOrByTheBytesIfThatIsMore) {
  const CsioPtr io = make_csio();
  io->increment = 10;
  append(io, "123");
  EXPECT_EQ(io->capacity, 10u);
  append(io, pattern(10000));
  EXPECT_EQ(io->capacity, 10004u);
  append(io, pattern(5000));
  EXPECT_EQ(io->capacity, 15004u);
  EXPECT_EQ(contents(io), "123" + pattern(10000) + pattern(5000));
}

TEST_F(Csio, IncreaseMakesRoomAhead) {
  const CsioPtr io = make_csio();
  csio_increase(io.get(), 5000);
  EXPECT_EQ(io->capacity, 5000u);
  ASSERT_NE(io->data, nullptr);
  EXPECT_EQ(io->data[0], 0);
  const unsigned char *block = io->data;
  append(io, pattern(4999));
  EXPECT_EQ(io->data, block);
  csio_increase(io.get(), 0);
  EXPECT_EQ(io->capacity, 9096u);
}

TEST_F(Csio, IncreaseByNothingAllocatesNothing) {
  const CsioPtr io = make_csio();
  io->increment = 0;
  for (int i = 0; i < 2; ++i) csio_increase(io.get(), 0);
  EXPECT_EQ(io->capacity, 0u);
  EXPECT_EQ(io->data, nullptr);
  EXPECT_EQ(append(io, "text"), 4);
  EXPECT_EQ(io->capacity, 5u);
  EXPECT_EQ(contents(io), "text");
}

TEST_F(Csio, IncreaseDoesNotWrap) {
  const CsioPtr io = make_csio();
  io->capacity = UINT32_MAX - 10;
  host.fail_allocation = host.allocations + 1;
  csio_increase(io.get(), 1);
  EXPECT_EQ(io->capacity, UINT32_MAX);
}

TEST_F(Csio, BytesWithoutMemoryAreDroppedButCounted) {
  const CsioPtr io = make_csio();
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(append(io, "lost"), 0);
  EXPECT_EQ(io->length, 4u);
  EXPECT_EQ(io->data, nullptr);
  EXPECT_EQ(append(io, "lost too"), 0) << "the capacity was counted as grown";
  EXPECT_EQ(io->length, 12u);
  EXPECT_EQ(copy(io, 100), "");
  EXPECT_EQ(io->position, 0u);
  EXPECT_EQ(log.text(), "");
}

TEST_F(Csio, LostBytesReadAsNulsWhenThereIsMemoryAgain) {
  const CsioPtr io = make_csio();
  append(io, "before");
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(append(io, pattern(5000)), 0);
  EXPECT_EQ(io->data, nullptr);
  const size_t lost = io->length;
  EXPECT_EQ(lost, 5006u);
  EXPECT_EQ(append(io, pattern(6000)), 6000);
  EXPECT_EQ(contents(io), std::string(lost, '\0') + pattern(6000));
  EXPECT_EQ(copy(io, 20000), contents(io));
}

TEST_F(Csio, LengthNeverWraps) {
  const CsioPtr io = make_csio();
  io->length = UINT32_MAX - 5;
  EXPECT_EQ(append(io, "12345"), 0);
  EXPECT_EQ(append(io, std::string(100, 'x')), 0);
  EXPECT_EQ(io->length, UINT32_MAX - 5);
  EXPECT_EQ(io->capacity, 0u);
  EXPECT_EQ(log.text(),
            "ERROR: csio_append: No room for 5 bytes after 4294967290?\n"
            "ERROR: csio_append: No room for 100 bytes after 4294967290?\n");
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(append(io, "1234"), 0);
  EXPECT_EQ(io->length, UINT32_MAX - 1);
  EXPECT_EQ(append(io, "1"), 0);
  EXPECT_EQ(io->length, UINT32_MAX - 1);
}

TEST_F(Csio, FinishClosesForWriting) {
  const CsioPtr io = make_csio();
  append(io, "text");
  EXPECT_EQ(csio_finish(io.get()), 0);
  EXPECT_EQ(csio_finish(io.get()), 0);
  EXPECT_EQ(io->finished, 1);
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(append(io, "more"), 0);
  EXPECT_EQ(csio_append(io.get(), nullptr, 0), 0);
  EXPECT_EQ(contents(io), "text");
  EXPECT_EQ(log.text(),
            "WARNING: CSIO Buffer was already closed to writing?\n"
            "WARNING: CSIO Buffer was already closed to writing?\n");
}

TEST_F(Csio, CopyReadsOnFromThePosition) {
  const CsioPtr io = make_csio();
  append(io, "abcdefgh");
  EXPECT_EQ(copy(io, 3), "abc");
  EXPECT_EQ(io->position, 3u);
  EXPECT_EQ(copy(io, 4), "defg");
  EXPECT_EQ(copy(io, 4), "h");
  EXPECT_EQ(io->position, 8u);
  EXPECT_EQ(copy(io, 4), "");
  append(io, "ij");
  EXPECT_EQ(copy(io, 4), "ij");
}

TEST_F(Csio, CopyNeverReadsPastTheEnd) {
  const CsioPtr io = make_csio();
  EXPECT_EQ(copy(io, 10), "");
  append(io, "text");
  char untouched = '!';
  for (const uint32_t position : {4u, 5u, UINT32_MAX}) {
    io->position = position;
    EXPECT_EQ(csio_copy(io.get(), &untouched, 10), 0);
    EXPECT_EQ(io->position, position);
  }
  io->position = 1;
  for (const int32_t n : {0, -1, INT_MIN}) EXPECT_EQ(csio_copy(io.get(), &untouched, n), 0);
  EXPECT_EQ(untouched, '!');
  EXPECT_EQ(io->position, 1u);
}

TEST_F(Csio, RewindReadsAgain) {
  const CsioPtr io = make_csio();
  append(io, "text");
  copy(io, 10);
  csio_rewind(io.get());
  EXPECT_EQ(copy(io, 10), "text");
  csio_finish(io.get());
  csio_rewind(io.get());
  EXPECT_EQ(copy(io, 10), "text");
  EXPECT_EQ(log.text(), "");
  csio_rewind(nullptr);
  csio_reset(nullptr);
  csio_destroy(nullptr);
}

TEST_F(Csio, ResetEmptiesAndOpens) {
  const CsioPtr io = make_csio(9000);
  io->increment = 100;
  append(io, "text");
  copy(io, 2);
  csio_finish(io.get());
  csio_reset(io.get());
  EXPECT_EQ(io->flags, 0x01u);
  EXPECT_EQ(io->data, nullptr);
  EXPECT_EQ(io->capacity, 0u);
  EXPECT_EQ(io->length, 0u);
  EXPECT_EQ(io->position, 0u);
  EXPECT_EQ(io->finished, 0);
  EXPECT_EQ(io->max_memory, 9000u);
  EXPECT_EQ(io->increment, 100u);
  EXPECT_EQ(append(io, "again"), 5);
  EXPECT_EQ(contents(io), "again");
}

TEST_F(Csio, ReleasingTheDescriptorOfMemoryDoesNothing) {
  const CsioPtr io = make_csio();
  append(io, "text");
  EXPECT_EQ(csio_releasefd(io.get()), 0);
  EXPECT_EQ(append(io, " goes on"), 8);
  EXPECT_EQ(contents(io), "text goes on");
}

TEST_F(Csio, StaysInMemoryUpToItsCeiling) {
  const CsioPtr io = make_csio(8192);
  append(io, pattern(8191));
  EXPECT_EQ(io->flags, 0x01u);
  EXPECT_EQ(io->capacity, 8192u);
  EXPECT_EQ(contents(io), pattern(8191));
}

TEST_F(Csio, BufferWithoutBackingHoldsNothing) {
  const CsioPtr io = make_csio();
  io->flags = 0;
  EXPECT_EQ(append(io, "text"), 0);
  EXPECT_EQ(io->length, 0u);
  io->length = 4;
  EXPECT_EQ(copy(io, 4), "");
}

}  // namespace
