// SPDX-License-Identifier: MIT
/// Messages after failed system calls: they tell whether the catalog is the old one or the new one.
#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "faults/io_fault.h"
#include "support/directories.h"

using namespace rdm;

namespace {

using faults::IoFault;
using support::Finished;

const std::string two = rd("http://localhost/2", {{"title", "Two"}});
const std::string malformed = "@D { http://localhost/3\ntitle{3}:Two\n}\n";

class Messages : public testing::Test {
 protected:
  Messages() {
    catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
    catalog_.index();
  }

  /// expect_failure makes the nth call of a class fail in a verb, and asserts its last line.
  void expect_failure(const IoFault &fault, const std::vector<std::string> &words, const std::string &text,
                      const std::string &input = "") const {
    const Finished finished = faults::run_with(fault, {"minidba", catalog_.command(words), input});
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    const size_t last = finished.errors.rfind("minidba: ");
    ASSERT_NE(last, std::string::npos);
    EXPECT_EQ(finished.errors.substr(last), "minidba: " + text + "\n");
  }
  void expect_descriptions(size_t count) const {
    EXPECT_EQ(catalog_.records().size(), count);
    EXPECT_EQ(support::run(catalog_.command({"list", "--format", "tsv"})).status, 0);
  }

  CatalogFiles catalog_;
  const std::string database_ = catalog_.path(), map_ = catalog_.path(".url"), rejects_ = catalog_.path(".rejects");
};

TEST_F(Messages, AFailureBeforeTheReplacementChangesNothing) {
  expect_failure({"rename", 1, EIO}, {"update"}, "cannot replace " + database_ + ": Input/output error", two);
  expect_failure({"sync", 1, EIO}, {"update"}, "fsync " + database_ + ".new: Input/output error", two);
  expect_failure({"sync", 2, EIO}, {"update"}, "fsync " + map_ + ".new: Input/output error", two);
  expect_failure({"chmod", 1, EPERM}, {"update"},
                 "cannot set the permissions of " + database_ + ".new: Operation not permitted", two);
  expect_descriptions(1);
}

TEST_F(Messages, AFailureReportsThatTheDatabaseIsReplaced) {
  const std::string directory = catalog_.directory();
  expect_failure({"sync", 3, EIO}, {"update"},
                 database_ + " is replaced, but fsync " + directory + ": Input/output error", two);
  expect_descriptions(2);
}

TEST_F(Messages, AFailureReportsThatOnlyTheDatabaseIsReplaced) {
  expect_failure({"rename", 2, EIO}, {"update"},
                 database_ + " is replaced, but cannot replace " + map_ + ": Input/output error", two);
  expect_descriptions(2);
  EXPECT_EQ(catalog_.update(two).errors, "minidba: 0 new, 0 changed, 1 unchanged, 0 rejected\n");
  EXPECT_THAT(catalog_.run({"stats"}).status, 0);
}

TEST_F(Messages, AFailureToWriteRejectsIsReportedAfterTheUpdate) {
  expect_failure({"rename", 3, EIO}, {"update", "--rejects", rejects_},
                 "the descriptions were taken in, but cannot replace " + rejects_ + ": Input/output error",
                 two + malformed);
  expect_descriptions(2);
  EXPECT_FALSE(support::file_exists(rejects_));
}

TEST_F(Messages, AFailureReportsThatTheIndexIsReplaced) {
  const std::string index = catalog_.path(".idx");
  expect_failure({"rename", 1, EIO}, {"-i", index, "index"}, "cannot replace " + index + ": Input/output error");
  expect_failure({"sync", 2, EIO}, {"-i", index, "index"},
                 index + " is replaced, but fsync " + catalog_.directory() + ": Input/output error");
}

TEST_F(Messages, AFileThatCannotBeVerifiedReplacesNothing) {
  const faults::Call call{"minidba", catalog_.command({"rebuild"}), ""};
  long failures = 0;
  for (long n = 1, calls = faults::count_calls(call)["read"]; n <= calls; ++n) {
    const Finished finished = faults::run_with({"read", n, EIO}, call);
    if (finished.errors == "minidba: cannot verify " + database_ + ".new: it does not contain what was written\n")
      ++failures;
    expect_descriptions(1);
  }
  EXPECT_GT(failures, 0);
}

TEST_F(Messages, ADirectoryWithoutRoomForTemporaryFilesIsNamed) {
  const std::string program = support::in_build("bin/minidba");
  const Finished finished = support::run({program, "-d", "/nonexistent/catalog.db", "update", "--dry-run"}, two);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: cannot create a temporary file in /nonexistent: No such file or directory\n");
}

}  // namespace
