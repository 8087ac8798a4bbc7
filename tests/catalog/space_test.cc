// SPDX-License-Identifier: MIT
/// Full disks, simulated by a limit on the size of files.
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;

class Space : public testing::Test {
 protected:
  void SetUp() override {
    std::string stream;
    for (int i = 0; i < 600; ++i) stream += description(i, "old");
    ASSERT_EQ(catalog_.update(stream).status, 0);
    before_ = support::read_file(catalog_.path());
    map_before_ = support::read_file(catalog_.path(".url"));
  }
  static std::string description(int i, const std::string &title) {
    return rd("http://localhost/" + std::to_string(i), {{"title", title}, {"body", std::string(2000, 'b')}});
  }

  /// run_limited runs a verb with a limit on the size of files.
  Finished run_limited(const std::vector<std::string> &words, size_t bytes, const std::string &input = "") {
    std::vector<std::string> all{"/bin/sh", "-c",
                                 "trap '' XFSZ; ulimit -f " + std::to_string(bytes / 512) + "; exec \"$@\"", "sh"};
    for (const std::string &word : catalog_.command(words)) all.push_back(word);
    return support::run(all, input);
  }
  void expect_as_before(const Finished &finished) {
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "minidba: cannot write " + catalog_.path(".new") + ": File too large\n");
    EXPECT_TRUE(support::read_file(catalog_.path()) == before_);
    EXPECT_TRUE(support::read_file(catalog_.path(".url")) == map_before_);
    EXPECT_FALSE(support::file_exists(catalog_.path(".new")));
    EXPECT_FALSE(support::file_exists(catalog_.path(".url.new")));
    EXPECT_EQ(support::run(catalog_.command({"verify"})).status, 0);
  }

  CatalogFiles catalog_;
  std::string before_, map_before_;
};

TEST_F(Space, AnUpdateThatCannotCopyTheFileChangesNothing) {
  expect_as_before(run_limited({"update"}, before_.size() / 2, description(1, "new")));
}

TEST_F(Space, AnUpdateThatCannotWriteItsPagesChangesNothing) {
  const std::string large = rd("http://localhost/large", {{"body", std::string(500'000, 'x')}});
  expect_as_before(run_limited({"update"}, before_.size(), large));
}

TEST_F(Space, ARebuildThatCannotWriteChangesNothing) { expect_as_before(run_limited({"rebuild"}, before_.size() / 2)); }

}  // namespace
