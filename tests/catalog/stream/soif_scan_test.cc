// SPDX-License-Identifier: MIT
#include "catalog/stream/soif_scan.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

using namespace rdm;

namespace {

using catalog::SoifScan;

/// CountingFile is a stream over bytes. It counts the bytes that are read.
class CountingFile {
 public:
  explicit CountingFile(std::string bytes)
      : bytes_(std::move(bytes)), file_(::fopencookie(this, "r", {read, nullptr, seek, nullptr})) {}
  CountingFile(const CountingFile &) = delete;
  CountingFile &operator=(const CountingFile &) = delete;
  ~CountingFile() { std::fclose(file_); }

  FILE *stream() const { return file_; }
  int64_t size() const { return static_cast<int64_t>(bytes_.size()); }
  int64_t read_bytes() const { return read_bytes_; }

 private:
  static ssize_t read(void *cookie, char *to, size_t count) {
    auto *self = static_cast<CountingFile *>(cookie);
    const size_t got = self->bytes_.copy(to, count, static_cast<size_t>(self->position_));
    self->position_ += static_cast<int64_t>(got);
    self->read_bytes_ += static_cast<int64_t>(got);
    return static_cast<ssize_t>(got);
  }
  static int seek(void *cookie, off64_t *offset, int whence) {
    auto *self = static_cast<CountingFile *>(cookie);
    const int64_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? self->position_ : self->size();
    self->position_ = *offset += from;
    return 0;
  }

  std::string bytes_;
  int64_t position_ = 0, read_bytes_ = 0;
  FILE *file_;
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
  CountingFile file(stream);
  SoifScan scan(file.stream(), file.size());
  int64_t first = 0;
  for (size_t at = 0; at < stream.size() - rest.size(); at = stream.find('@', at + 1)) {
    EXPECT_EQ(scan.fault_of(static_cast<int64_t>(at)), fault);
    if (at == 0) first = file.read_bytes();
  }
  EXPECT_GE(first, static_cast<int64_t>(rest.size()));
  EXPECT_LT(file.read_bytes(), 2 * first);
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
  CountingFile file(stream + sound);
  SoifScan scan(file.stream(), file.size());
  EXPECT_NE(scan.fault_of(0), "");
  EXPECT_NE(scan.fault_of(static_cast<int64_t>(stream.find('@', 1))), "");
  EXPECT_EQ(scan.fault_of(static_cast<int64_t>(stream.size())), "");
}

}  // namespace
