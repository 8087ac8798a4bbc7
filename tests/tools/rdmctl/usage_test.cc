#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/rdmctl/service_files.h"

namespace {

using support::Finished;
using testing::HasSubstr;

Finished run(std::vector<std::string> words) {
  words.insert(words.begin(), program);
  return support::run(words);
}

TEST(Usage, SaysWhatIsMissingOrUnknown) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "a verb is required: one of import"},
      {{"explode"}, "unknown verb \"explode\": not one of import"},
      {{"--explode"}, "The following argument was not expected: --explode"},
      {{"import"}, "--config is required"},
      {{"import", "--config", "c"}, "--csid is required"},
      {{"import", "--config", "c", "--csid", "d"}, "FILE is required"},
      {{"import", "--config", "c", "--csid", "d", "--explode", "f"},
       "The following argument was not expected: --explode"},
  };
  for (const auto &[words, text] : cases) {
    const Finished finished = run(words);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    EXPECT_EQ(finished.errors, "rdmctl: " + text + "\n");
  }
}

TEST(Usage, TellsItsVersionAndItsOptions) {
  EXPECT_EQ(run({"--version"}).status, 0);
  EXPECT_THAT(run({"--help"}).out, HasSubstr("import"));
  const Finished help = run({"import", "--help"});
  EXPECT_EQ(help.status, 0);
  for (const char *word : {"--config", "--csid", "--from", "FILE"}) EXPECT_THAT(help.out, HasSubstr(word));
}

TEST(Usage, AnOutputThatCannotBeWrittenIsAFailure) {
  const Finished finished = support::run({"/bin/sh", "-c", program + " --help > /dev/full"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "rdmctl: cannot write to standard output: No space left on device\n");
}

}  // namespace
