// SPDX-License-Identifier: MIT
// A killed writer leaves the catalog as it was before or as it is after.
#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "tools/minidba/catalog_state.h"
#include "tools/minidba/killing.h"

using namespace rdm;

namespace {

using support::Finished;

/// Work is a verb that changes a catalog or a file beside it.
struct Work {
  const char *name;
  std::vector<std::string> words;
  std::string input;
};

void PrintTo(const Work &work, std::ostream *out) { *out << work.name; }

std::string described(int from, int to, const std::string &expires) {
  std::string stream;
  for (int i = from; i < to; ++i)
    stream += rd("http://localhost/" + std::to_string(i),
                 {{"body", std::string(1500, 'b')}, {"rd-expires", i % 2 == 0 ? expires : "never"}});
  return stream;
}

/// Killed begins with a catalog whose index and exported file are older.
class Killed : public testing::TestWithParam<Work> {
 protected:
  void SetUp() override {
    ASSERT_EQ(original_.update(described(0, 200, "1 Jan 2000")).status, 0);
    ASSERT_EQ(original_.index().status, 0);
    ASSERT_EQ(original_.run({"export", exported(original_)}).status, 0);
    ASSERT_EQ(original_.update(described(0, 300, "1 Jan 2000")).status, 0);
    support::write_file(input_, GetParam().input);
    before_ = state_of(original_);
    reset();
    changes_ = count_changes(command(), input_, output_);
    after_ = state_of(catalog_);
  }

  static std::string exported(const CatalogFiles &catalog) { return catalog.directory() + "/exported"; }

  std::vector<std::string> command() const {
    std::vector<std::string> command = catalog_.command({"-i", catalog_.path(".idx")});
    command.insert(command.end(), GetParam().words.begin(), GetParam().words.end());
    if (command.back() == "export") command.push_back(exported(catalog_));
    return command;
  }

  void reset() const {
    for (const char *suffix : {"", ".url", ".idx"})
      support::write_file(catalog_.path(suffix), support::read_file(original_.path(suffix)));
    support::write_file(exported(catalog_), support::read_file(exported(original_)));
  }

  /// leftovers returns the number of temporary files that a killed writer has left.
  size_t leftovers() const {
    size_t count = 0;
    for (const std::string &name : catalog_.files())
      if (name.find(".new") != std::string::npos || name.find(".scratch-") != std::string::npos) ++count;
    return count;
  }

  /// expect_sound verifies the catalog without its index, which may be older.
  void expect_sound() const {
    std::filesystem::remove(catalog_.path(".idx"));
    const Finished verdict = support::run(catalog_.command({"verify"}));
    EXPECT_EQ(verdict.status, 0) << verdict.errors;
  }

  CatalogFiles catalog_, original_;
  std::string input_ = original_.path(".input"), output_ = original_.path(".output");
  CatalogState before_, after_;
  long changes_ = 0;
};

TEST_P(Killed, LeavesTheOldCatalogOrTheNew) {
  ASSERT_GT(changes_, 5);
  size_t left = 0;
  for (long trial = 0; trial < crash_trials(); ++trial) {
    const long change = change_of_trial(trial, changes_);
    SCOPED_TRACE("before change " + std::to_string(change) + " of " + std::to_string(changes_));
    reset();
    ASSERT_EQ(kill_before_change(change, command(), input_, output_), 128 + SIGKILL);
    left += leftovers();
    EXPECT_TRUE(is_either(state_of(catalog_), before_, after_));
    expect_sound();
  }
  EXPECT_GT(left, 0u) << "none was killed at work";
  reset();
  const Finished finished = support::run(command(), GetParam().input);
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(state_of(catalog_), after_);
  EXPECT_EQ(leftovers(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    EachWriter, Killed,
    testing::Values(Work{"Update", {"update"}, described(300, 500, "never")}, Work{"Expire", {"expire"}, ""},
                    Work{"Delete", {"delete", "-"}, "http://localhost/1\nhttp://localhost/2\n"},
                    Work{"Index", {"index"}, ""}, Work{"Rebuild", {"rebuild"}, ""}, Work{"Export", {"export"}, ""},
                    Work{"Import", {"import", "--replace", "--no-header"}, described(0, 200, "never")}),
    [](const testing::TestParamInfo<Work> &work) { return work.param.name; });

}  // namespace
