// SPDX-License-Identifier: MIT
#include "hosts/rdmd/standard_stream.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "support/refused_new.h"

using namespace rdm;

namespace {

using rdmd::StandardStream;

/// stream_ takes the place of a standard stream; it writes to a pipe.
class StandardStreams : public ::testing::Test {
 protected:
  StandardStreams() {
    int ends[2] = {-1, -1};
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reader_ = HostFileGuard(ends[0]);
    writer_ = HostFileGuard(ends[1]);
  }

  /// read_until reads from the pipe until `is_whole` returns true for what has come so far, and returns that.
  template <typename IsWhole>
  std::string read_until(IsWhole is_whole) {
    std::string text;
    char block[65536];
    pollfd readable{reader_.get(), POLLIN, 0};
    EXPECT_TRUE(support::eventually([&] {
      while (::poll(&readable, 1, 0) > 0)
        text.append(block, static_cast<std::size_t>(::read(reader_.get(), block, sizeof block)));
      return is_whole(text);
    }));
    return text;
  }

  std::string read_until_end(std::string_view end) {
    return read_until([end](const std::string &text) { return text.ends_with(end); });
  }

  HostFileGuard reader_, writer_;
  FILE *stream_ = nullptr;
};

TEST_F(StandardStreams, LinesGoThroughWhole) {
  {
    const StandardStream standing_in(stream_, writer_.get());
    std::fputs("a ", stream_);
    std::fflush(stream_);
    std::fputs("line\nanother", stream_);
    std::fputs("\nthe end", stream_);
  }
  EXPECT_EQ(stream_, nullptr);
  EXPECT_EQ(read_until_end("end"), "a line\nanother\nthe end");
}

TEST_F(StandardStreams, WritingNeverBlocksAndDroppedLinesAreReported) {
  // Regression: the service blocked on a full pipe at standard error, where diagnostics go by default.
  const StandardStream standing_in(stream_, writer_.get());
  const std::string line = std::string(999, 'x') + "\n";
  for (int i = 0; i < 2000; ++i) EXPECT_EQ(std::fputs(line.c_str(), stream_) >= 0, true);
  const std::string text = read_until_end(" lines dropped\n");
  const std::size_t whole = text.find("rdmd: ");
  ASSERT_NE(whole, std::string::npos);
  ASSERT_EQ(whole % 1000, 0u);
  EXPECT_EQ(text.substr(whole),
            "rdmd: write standard error: " + std::to_string(2000 - whole / 1000) + " lines dropped\n");
}

TEST_F(StandardStreams, DroppedLinesAreReported) {
  std::atomic<std::size_t> dropped = 0;
  const StandardStream standing_in(stream_, writer_.get(), [&](std::size_t lines) {
    dropped += lines;
    return true;
  });
  const std::string line = std::string(9999, 'x') + "\n";
  for (int i = 0; i < 300; ++i) std::fputs(line.c_str(), stream_);
  read_until([&](const std::string &text) { return text.size() + dropped * line.size() == 300 * line.size(); });
}

TEST_F(StandardStreams, ALineIsLostIfAllocationFails) {
  const StandardStream standing_in(stream_, writer_.get());
  const std::string line = std::string(4999, 'x') + "\n";
  {
    const support::RefusedNew place(line.size(), 2 * line.size());
    std::fputs(line.c_str(), stream_);
    EXPECT_TRUE(place.done());
  }
  std::fputs("the next\n", stream_);
  EXPECT_EQ(read_until_end("next\n"), "the next\n");
}

TEST_F(StandardStreams, ALineWithoutEndDoesNotGrowForever) {
  const StandardStream standing_in(stream_, writer_.get());
  const std::string text(70'000, 'x');
  std::fputs(text.c_str(), stream_);
  std::fflush(stream_);
  EXPECT_EQ(read_until([&](const std::string &got) { return got.size() >= text.size(); }), text);
}

}  // namespace
