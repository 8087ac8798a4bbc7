// SPDX-License-Identifier: MIT
#include "catalog/os/run_writer.h"

#include <random>

#include <gtest/gtest.h>

#include "support/files.h"

using namespace rdm;

namespace {

/// Model is a file that a RunWriter writes, and the bytes that it must then have.
class Model {
 public:
  void write(size_t offset, size_t size) {
    char *const piece = writer_.piece(static_cast<int64_t>(offset), size);
    for (size_t i = 0; i < size; ++i) piece[i] = static_cast<char>(random_());
    wanted_.resize(std::max(wanted_.size(), offset + size));
    wanted_.replace(offset, size, piece, size);
  }
  size_t random(size_t limit) { return random_() % limit; }
  void expect_written() {
    writer_.flush();
    EXPECT_TRUE(support::read_file(file_.name()) == wanted_);
  }

 private:
  support::TemporaryDirectory directory_;
  catalog::File file_ = catalog::File::create(directory_.path("file"));
  catalog::RunWriter writer_{file_};
  std::mt19937 random_{20261122};
  std::string wanted_;
};

TEST(RunWriter, WritesTwoSequencesByTurns) {
  Model model;
  size_t first = 0, second = 30 << 20;
  for (int i = 0; i < 700; ++i) {
    const size_t size = 1 + model.random(catalog::RunWriter::largest_piece);
    size_t &at = model.random(8) == 0 ? second : first;
    model.write(at, size);
    at += size;
  }
  model.expect_written();
}

TEST(RunWriter, WritesPiecesAnywhere) {
  Model model;
  for (size_t piece = 0; piece < 256; ++piece) model.write(piece * 37 % 256 * 32'768, 32'768);
  model.write(100, catalog::RunWriter::largest_piece);
  model.expect_written();
}

TEST(RunWriter, WritesNothingLaterThanFlush) {
  Model model;
  model.expect_written();
  model.write(0, 1);
  model.expect_written();
  model.write(1, 1);
  model.write(0, 1);
  model.expect_written();
}

}  // namespace
