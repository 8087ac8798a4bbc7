// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/gzip.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "support/environment.h"
#include "support/file_limit.h"
#include "support/files.h"
#include "support/gunzip.h"
#include "support/refused_new.h"
#include "support/slices.h"

using namespace rdm;

namespace {

using hosts::Piece;

/// noise returns hexadecimal digits, which shrink to about half.
std::string noise(std::size_t size) {
  std::mt19937 random(1);
  std::string text(size, ' ');
  for (char &c : text) c = "0123456789abcdef"[random() % 16];
  return text;
}

Piece bytes_of(const std::string &text) { return {text, nullptr, 0, static_cast<std::int64_t>(text.size())}; }

std::string content(const std::vector<Piece> &pieces) {
  std::string all;
  for (const Piece &piece : pieces) {
    std::string part = piece.bytes;
    if (piece.file) {
      part.resize(static_cast<std::size_t>(piece.length));
      EXPECT_EQ(::pread(piece.file->get(), part.data(), part.size(), piece.offset), piece.length);
    }
    all += part;
  }
  return all;
}

class Gzip : public ::testing::Test {
 protected:
  Piece file_of(const std::string &text, std::int64_t offset, std::int64_t length) {
    const std::string path = directory_.write("file", text);
    return {{}, std::make_shared<const HostFileGuard>(::open(path.c_str(), O_RDONLY | O_CLOEXEC)), offset, length};
  }

  support::TemporaryDirectory directory_;
  support::Environment tmpdir_{"TMPDIR", directory_.path().c_str()};
};

TEST_F(Gzip, JoinsBytesAndRangesOfFiles) {
  const std::string header = noise(3'000), file = noise(500'000);
  const auto compressed = rdmd::gzip({bytes_of(header), file_of(file, 1'000, 400'000), bytes_of(header)});
  ASSERT_TRUE(compressed);
  EXPECT_EQ(support::gunzip(content(*compressed)), header + file.substr(1'000, 400'000) + header);
}

TEST_F(Gzip, TakesTheRecordsOfSlices) {
  const std::string header = noise(3'000), text = noise(100'000);
  const support::SliceFiles files(directory_.path("records"), text, support::scattered(1000, text.size()));
  const Piece records{{}, nullptr, 0, files.all().length, hosts::RecordSlice::of(files.all())};
  const auto compressed = rdmd::gzip({bytes_of(header), records, bytes_of(header)});
  ASSERT_TRUE(compressed);
  EXPECT_EQ(support::gunzip(content(*compressed)), header + support::bytes_of(files.all()) + header);
  ASSERT_EQ(::truncate(files.path().c_str(), 5'000), 0);
  EXPECT_FALSE(rdmd::gzip({records})) << "a file that has changed";
}

TEST_F(Gzip, KeepsAShortResultInMemoryAndTheRestOfALongOneInAFile) {
  const auto small = rdmd::gzip({bytes_of(noise(100'000))});
  ASSERT_TRUE(small);
  ASSERT_EQ(small->size(), 1U);
  EXPECT_FALSE(small->front().file);
  const std::string text = noise(1'000'000);
  const auto large = rdmd::gzip({bytes_of(text)});
  ASSERT_TRUE(large);
  ASSERT_EQ(large->size(), 2U);
  EXPECT_EQ(large->front().bytes.size(), hosts::OutputQueue::default_memory);
  EXPECT_TRUE(large->back().file);
  EXPECT_EQ(support::gunzip(content(*large)), text);
}

TEST_F(Gzip, MakesTheSameBytesOfTheSameText) {
  const auto once = rdmd::gzip({bytes_of(noise(100'000))}), again = rdmd::gzip({bytes_of(noise(100'000))});
  ASSERT_TRUE(once && again);
  EXPECT_EQ(content(*once), content(*again));
}

TEST_F(Gzip, RefusesWhatDoesNotBecomeSmaller) {
  const auto compressed = rdmd::gzip({bytes_of(noise(10'000))});
  ASSERT_TRUE(compressed);
  EXPECT_FALSE(rdmd::gzip(*compressed));
}

TEST_F(Gzip, RefusesAFileThatIsTooShort) { EXPECT_FALSE(rdmd::gzip({file_of(std::string(5'000, 'x'), 0, 5'001)})); }

TEST_F(Gzip, RefusesWhenTheDiskIsFull) {
  const support::FileLimit full(10'000);
  EXPECT_FALSE(rdmd::gzip({bytes_of(noise(1'000'000))}));
  EXPECT_TRUE(rdmd::gzip({bytes_of(noise(100'000))})) << "this one needs no file";
}

TEST_F(Gzip, RefusesWithoutMemory) {
  const std::vector<Piece> pieces{bytes_of(noise(100'000))};
  const support::RefusedNew refused(50'000, 100'000);
  EXPECT_FALSE(rdmd::gzip(pieces));
  EXPECT_TRUE(refused.done());
}

}  // namespace
