// Writers that are killed: whatever they were doing, the catalog is the one before or the one after.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <random>

#include "catalog_files.h"

namespace {

using support::Finished;

/// A verb that makes one state of a catalog another.
struct Work {
  const char *name;
  std::vector<std::string> words;
  std::string input;
  size_t before, after;  // descriptions
};

std::string described(int from, int to, const std::string &expires) {
  std::string stream;
  for (int i = from; i < to; ++i)
    stream += rd("http://localhost/" + std::to_string(i),
                 {{"body", std::string(1500, 'b')}, {"rd-expires", i % 2 == 0 ? expires : "never"}});
  return stream;
}

/// How often each writer is killed; RDM_CRASH_TRIALS names another number.
int trials() {
  const char *number = std::getenv("RDM_CRASH_TRIALS");
  return number != nullptr ? std::stoi(number) : 20;
}

class Killed : public testing::TestWithParam<Work> {
 protected:
  void start_and_kill(std::chrono::microseconds delay) {
    support::start_and_kill(catalog_.command(GetParam().words), input_, other_.path(".out"), other_.path(".err"),
                            delay);
  }
  void reset() {
    for (const char *suffix : {"", ".url"})
      support::write_file(catalog_.path(suffix), support::read_file(other_.path(suffix)));
  }
  CatalogFiles catalog_, other_;
  std::string input_ = other_.path(".input");
};

TEST_P(Killed, LeavesTheOldCatalogOrTheNew) {
  other_.update(described(0, 300, "1 Jan 2000"));
  support::write_file(input_, GetParam().input);
  std::mt19937 random(5);
  for (int trial = 0; trial < trials(); ++trial) {
    reset();
    start_and_kill(std::chrono::microseconds(random() % 30000));
    const Finished verdict = support::run(catalog_.command({"verify"}));
    ASSERT_EQ(verdict.status, 0) << verdict.errors;
    const size_t count = catalog_.records().size();
    ASSERT_TRUE(count == GetParam().before || count == GetParam().after) << count;
  }
  reset();
  const Finished finished = support::run(catalog_.command(GetParam().words), GetParam().input);
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(catalog_.records().size(), GetParam().after);
  for (const std::string &name : catalog_.files()) EXPECT_EQ(name.find(".new"), std::string::npos) << name;
}

INSTANTIATE_TEST_SUITE_P(
    EachWriter, Killed,
    testing::Values(Work{"Update", {"update"}, described(300, 500, "never"), 300, 500},
                    Work{"Expire", {"expire"}, "", 300, 150},
                    Work{"Delete", {"delete", "-"}, "http://localhost/1\nhttp://localhost/2\n", 300, 298},
                    Work{"Rebuild", {"rebuild"}, "", 300, 300},
                    Work{"Import", {"import", "--replace"}, described(0, 200, "never"), 300, 200}),
    [](const testing::TestParamInfo<Work> &work) { return work.param.name; });

}  // namespace
