// SPDX-License-Identifier: MIT
#include "tools/minidba/output/progress.h"

#include <sstream>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using minidba::Progress;

class ProgressLine : public testing::Test {
 protected:
  minidba::Console console(bool progress = true) { return {0, out_, errors_, progress, false}; }
  /// shown returns what was written since its last call.
  std::string shown() {
    std::string text = errors_.str();
    errors_.str("");
    return text;
  }
  Progress::Clock clock() {
    return [this] { return now_; };
  }
  double now_ = 100;
  std::ostringstream out_, errors_;
};

TEST_F(ProgressLine, StartsWithTheSecondSecond) {
  const auto screen = console();
  Progress progress(screen, "indexing", 0, clock());
  progress.advance(10, 2500);
  now_ += 0.9;
  progress.advance(10, 2500);
  EXPECT_EQ(shown(), "");
  now_ += 1.1;
  progress.advance(10, 15000);
  EXPECT_EQ(shown(), "\rminidba: indexing: 30 records, 20.0 kB, 10.0 kB/s\x1b[K");
}

TEST_F(ProgressLine, TellsTheTimeLeftWhenTheTotalIsKnown) {
  const auto screen = console();
  Progress progress(screen, "reading", 400'000'000, clock());
  now_ += 4;
  progress.advance(50'000, 100'000'000);
  EXPECT_EQ(shown(), "\rminidba: reading: 50000 records, 100.0 MB, 25.0 MB/s, 0:12 left\x1b[K");
  now_ += 96;
  progress.advance(0, 100'000'000);
  EXPECT_EQ(shown(), "\rminidba: reading: 50000 records, 200.0 MB, 2.0 MB/s, 1:40 left\x1b[K");
  now_ += 1;
  progress.advance(0, 300'000'000);
  EXPECT_EQ(shown(), "\rminidba: reading: 50000 records, 500.0 MB, 5.0 MB/s\x1b[K") << "there was more than expected";
}

TEST_F(ProgressLine, OmitsACountOfZeroRecords) {
  const auto screen = console();
  Progress progress(screen, "reading the input", 0, clock());
  now_ += 2;
  progress.advance(0, 4000);
  EXPECT_EQ(shown(), "\rminidba: reading the input: 4.0 kB, 2.0 kB/s\x1b[K");
}

TEST_F(ProgressLine, IsRenewedFiveTimesASecondAtMost) {
  const auto screen = console();
  Progress progress(screen, "reading", 0, clock());
  now_ += 2;
  progress.advance(1, 500);
  EXPECT_EQ(shown(), "\rminidba: reading: 1 record, 500 B, 250 B/s\x1b[K");
  for (int i = 0; i < 100; ++i) progress.advance(1, 500);
  EXPECT_EQ(shown(), "");
  now_ += 0.25;
  progress.advance(0, 0);
  EXPECT_NE(shown(), "");
}

TEST_F(ProgressLine, IsClearedForOtherTextAndAtTheEnd) {
  const auto screen = console();
  {
    Progress progress(screen, "reading", 0, clock());
    progress.clear();
    EXPECT_EQ(shown(), "") << "there was no line";
    now_ += 2;
    progress.advance(1, 500);
    shown();
    progress.clear();
    EXPECT_EQ(shown(), "\r\x1b[K");
    now_ += 1;
    progress.advance(1, 500);
    shown();
  }
  EXPECT_EQ(shown(), "\r\x1b[K");
}

TEST_F(ProgressLine, IsNotForProgramsAndFiles) {
  const auto file = console(false);
  {
    Progress progress(file, "reading", 1000, clock());
    now_ += 5;
    progress.advance(1, 500);
  }
  EXPECT_EQ(shown(), "");
}

}  // namespace
