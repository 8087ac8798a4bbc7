// SPDX-License-Identifier: MIT
// The command lines by which the service runs minidba, word for word, through the shell as it does.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "catalog/catalog_files.h"
#include "support/directories.h"

using namespace rdm;

namespace {

class ServiceCommands : public testing::Test {
 protected:
  ServiceCommands() {
    const char *path = std::getenv("PATH");
    before_ = path != nullptr ? path : "";
    testing::internal::CaptureStderr();
    setenv("PATH", (support::in_build("bin") + ":" + before_).c_str(), 1);
  }
  ~ServiceCommands() override {
    setenv("PATH", before_.c_str(), 1);
    testing::internal::GetCapturedStderr();
  }

  /// run fills the paths into a command line, runs it and returns the exit status.
  static int run(std::string command, const std::vector<std::string> &paths) {
    for (const std::string &path : paths) command.replace(command.find("%s"), 2, path);
    return cs_cli_run(command.c_str(), nullptr);
  }
  /// number reads a result file.
  int number() {
    int value = -1;
    FILE *file = std::fopen(result_.c_str(), "r");
    // NOLINTNEXTLINE(cert-err34-c): whether it could is the result
    EXPECT_EQ(std::fscanf(file, "%d", &value), 1);
    std::fclose(file);
    unlink(result_.c_str());
    return value;
  }

  CatalogFiles catalog_;
  const std::string database_ = catalog_.path(), index_ = database_ + ".idx";
  const std::string body_ = catalog_.path(".body"), result_ = catalog_.path(".result");
  const std::string unclassified_ = catalog_.directory() + "/unclassified";
  std::string before_;
};

constexpr char update[] = "minidba -d %s update < %s > %s";
constexpr char expire[] = "minidba -d %s expire > %s";
constexpr char index_command[] = "minidba -d %s -i %s index > %s";
constexpr char unclassified[] = "minidba -d %s -i %s unclassified > %s";

TEST_F(ServiceCommands, MakeTheCatalogOfADelivery) {
  support::write_file(body_, rd("http://localhost/1", {{"classification", "a"}}) +
                                 rd("http://localhost/2", {{"title", "T"}}) +
                                 rd("http://localhost/3", {{"rd-expires", "1 Jan 2000"}}));
  EXPECT_EQ(run(update, {database_, body_, result_}), 0);
  EXPECT_EQ(number(), 3);
  EXPECT_EQ(run(expire, {database_, result_}), 0);
  EXPECT_EQ(number(), 1);
  EXPECT_EQ(run(index_command, {database_, index_, result_}), 0);
  EXPECT_EQ(number(), 2);
  EXPECT_EQ(run(unclassified, {database_, index_, unclassified_}), 0);
  EXPECT_EQ(support::read_file(unclassified_), "http://localhost/2\n");
}

// The update says by its exit status that it took in nothing; the service goes by the number.
TEST_F(ServiceCommands, AnEmptyDeliveryIsZero) {
  catalog_.make_empty();
  support::write_file(body_, "");
  EXPECT_EQ(run(update, {database_, body_, result_}), 1);
  EXPECT_EQ(number(), 0);
  EXPECT_EQ(run(expire, {database_, result_}), 0);
  EXPECT_EQ(number(), 0);
  EXPECT_EQ(run(index_command, {database_, index_, result_}), 0);
  EXPECT_EQ(number(), 0);
  EXPECT_EQ(run(unclassified, {database_, index_, unclassified_}), 0);
  EXPECT_EQ(support::read_file(unclassified_), "");
}

TEST_F(ServiceCommands, WhatFailsLeavesNoNumber) {
  support::write_file(database_, "not a database");
  support::write_file(body_, rd("http://localhost/1", {{"title", "T"}}));
  EXPECT_EQ(run(update, {database_, body_, result_}), 2);
  EXPECT_EQ(support::read_file(result_), "");
  EXPECT_EQ(run(expire, {database_, result_}), 2);
  EXPECT_EQ(support::read_file(result_), "");
}

}  // namespace
