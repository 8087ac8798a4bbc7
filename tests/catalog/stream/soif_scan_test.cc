// SPDX-License-Identifier: MIT
#include "catalog/stream/soif_scan.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using catalog::InputWindow;
using catalog::SoifScan;

/// CountingWindow is a window over bytes. It counts the bytes that are read.
class CountingWindow {
 public:
  explicit CountingWindow(std::string bytes)
      : bytes_(std::move(bytes)), window_([this](int64_t offset, char *to, size_t count) {
          const size_t got = bytes_.copy(to, count, std::min(static_cast<size_t>(offset), bytes_.size()));
          read_bytes_ += static_cast<int64_t>(got);
          return got;
        }) {}

  InputWindow &window() { return window_; }
  int64_t size() const { return static_cast<int64_t>(bytes_.size()); }
  int64_t read_bytes() const { return read_bytes_; }

 private:
  std::string bytes_;
  int64_t read_bytes_ = 0;
  InputWindow window_;
};

/// leading_to returns a stream of objects whose values all end where `rest` begins.
std::string leading_to(const std::string &rest, size_t objects) {
  constexpr char start[] = "@D { x\nb{00000000}:\t";
  constexpr size_t size = sizeof start;
  std::string stream;
  for (size_t i = 0; i < objects; ++i) {
    char line[size + 1];
    std::snprintf(line, sizeof line, "@D { x\nb{%08zu}:\t\n", (objects - i - 1) * size + 1);
    stream += line;
  }
  return stream + rest;
}

/// expect_read_once asserts what is wrong with every object, and that all others together cost less than the first.
void expect_read_once(const std::string &rest, const std::string &fault) {
  constexpr size_t objects = 200;
  const std::string stream = leading_to(rest, objects);
  CountingWindow counted(stream);
  SoifScan scan(counted.window(), counted.size());
  int64_t first = 0;
  for (size_t at = 0; at < stream.size() - rest.size(); at = stream.find('@', at + 1)) {
    EXPECT_EQ(scan.fault_of(static_cast<int64_t>(at)), fault);
    if (at == 0) first = counted.read_bytes();
  }
  EXPECT_GE(first, static_cast<int64_t>(rest.size()));
  EXPECT_LT(counted.read_bytes(), 2 * first);
}

std::string repeated(const std::string &text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) all += text;
  return all;
}

TEST(SoifScan, ARestOfBlanksIsReadOnce) { expect_read_once(std::string(4'000'000, ' '), "not closed"); }

TEST(SoifScan, ARestOfAttributesIsReadOnce) {
  expect_read_once(repeated("name{0}:\t\n", 50'000), "not closed");
  expect_read_once(repeated("a{0}:\t\n", 50'000) + "a b{0}:\t",
                   "attribute name \"a b\", after a value of the wrong size");
}

TEST(SoifScan, AnObjectAfterADeadEndIsSound) {
  const std::string rest = std::string(10'000, ' ') + "a b{0}:\t\n",
                    sound = "@D { y" + std::string(10'000, ' ') + "}\n";
  const std::string stream = leading_to(rest, 2);
  CountingWindow counted(stream + sound);
  SoifScan scan(counted.window(), counted.size());
  EXPECT_NE(scan.fault_of(0), "");
  EXPECT_NE(scan.fault_of(static_cast<int64_t>(stream.find('@', 1))), "");
  EXPECT_EQ(scan.fault_of(static_cast<int64_t>(stream.size())), "");
}

}  // namespace
