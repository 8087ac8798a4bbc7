// SPDX-License-Identifier: MIT
/// A reader of catalogs that was written from rdm-catalog(5) alone.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

using Words = std::vector<std::string>;

class CatalogPage : public ::testing::Test {
 protected:
  void minidba(const Words &arguments, const std::string &input = "") {
    Words command = {support::in_build("bin/minidba"), "-q", "-d", database_, "-i", database_ + ".idx"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const support::Finished finished = support::run(command, input);
    EXPECT_EQ(finished.status, 0) << finished.errors;
  }

  /// read returns what the reader prints.
  std::string read() {
    const support::Finished finished =
        support::run({PYTHON, "-B", support::in_source("tests/doc/read_catalog.py"), database_, database_ + ".idx"});
    EXPECT_EQ(finished.status, 0) << finished.errors;
    return finished.out;
  }

 private:
  support::TemporaryDirectory directory_;
  const std::string database_ = directory_.path("catalog.db");
};

std::string description(int number, size_t size) {
  return "@FILE { http://localhost/" + std::to_string(number) + "\nbody{" + std::to_string(size) + "}:\t" +
         std::string(size, 'x') + "\n}\n";
}

TEST_F(CatalogPage, SufficesToReadShortAndLongRecords) {
  std::string descriptions;
  for (int number = 0; number < 300; ++number)
    descriptions +=
        description(number, std::vector<size_t>{10, 100, 4000, 4090, 8191, 33000, 131072}[number % 7] + number);
  minidba({"update"}, descriptions);
  minidba({"index"});
  EXPECT_EQ(read(), "300 records, 300 as in the index\n");
}

TEST_F(CatalogPage, SufficesToReadAFileThatWasEdited) {
  std::string descriptions;
  for (int number = 0; number < 2000; ++number) descriptions += description(number, 100);
  minidba({"update"}, descriptions);
  minidba({"update"}, description(7, 60000) + description(2001, 300));
  minidba({"delete", "http://localhost/8"});
  minidba({"index"});
  EXPECT_EQ(read(), "2000 records, 2000 as in the index\n");
}

}  // namespace
