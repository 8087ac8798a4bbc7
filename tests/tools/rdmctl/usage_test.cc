// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/rdmctl/service_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

Finished run(std::vector<std::string> words) {
  words.insert(words.begin(), program);
  return support::run(words);
}

const std::string verbs =
    "import, publish, imports, diff, backup, restore, catalogs, check, preview, harvesters, translate, taxonomy, "
    "describe";

TEST(Usage, ReportsMissingAndUnknownArguments) {
  const std::pair<std::vector<std::string>, std::string> cases[] = {
      {{}, "a verb is required: one of " + verbs + "; see \"rdmctl --help\""},
      {{"explode"}, "unknown verb \"explode\": not one of " + verbs + "; see \"rdmctl --help\""},
      {{"a\x1b[2J\nb"}, "unknown verb \"a\\x1b[2J\\nb\": not one of " + verbs + "; see \"rdmctl --help\""},
      {{"imprt"}, "unknown verb \"imprt\" (did you mean \"import\"?); see \"rdmctl --help\""},
      {{"help", "imprt"}, "unknown verb \"imprt\" (did you mean \"import\"?); see \"rdmctl --help\""},
      {{"--explode"}, "unknown option \"--explode\"; see \"rdmctl --help\""},
      {{"import"}, "--config is required; see \"rdmctl import --help\""},
      {{"--config", "c", "import"}, "--csid is required; see \"rdmctl import --help\""},
      {{"check"}, "--config is required; see \"rdmctl check --help\""},
      {{"check", "--config", "c", "--json", "--monitor"}, "--monitor excludes --json; see \"rdmctl check --help\""},
      {{"--config", "c", "preview"}, "CSID is required; see \"rdmctl preview --help\""},
      {{"taxonomy", "find", "t"}, "TEXT is required; see \"rdmctl taxonomy --help\""},
      {{"taxonomy", "show", "t", "x"}, "unexpected argument \"x\"; see \"rdmctl taxonomy --help\""},
      {{"publish"}, "CSID|DATABASE is required; see \"rdmctl publish --help\""},
      {{"publish", "d"}, "FILE or --spool is required; see \"rdmctl publish --help\""},
      {{"publish", "d", "f", "--max-delete", "5"}, "--max-delete requires --full-feed; see \"rdmctl publish --help\""},
      {{"publish", "d", "f", "--spool", "s"}, "FILE excludes --spool; see \"rdmctl publish --help\""},
      {{"publish", "d", "f", "--strict"}, "--strict requires --validate; see \"rdmctl publish --help\""},
      {{"publish", "d", "f", "--wait", "-1"}, "--wait: not a number of seconds: -1; see \"rdmctl publish --help\""},
      {{"imports", "d", "--last", "0"}, "--last: Value 0 not in range 1 to 1000000000; see \"rdmctl imports --help\""},
      {{"import", "--config", "c"}, "--csid is required; see \"rdmctl import --help\""},
      {{"import", "--config", "c", "--csid", "d"}, "FILE is required; see \"rdmctl import --help\""},
      {{"import", "--cnofig", "c", "--csid", "d", "f"},
       "unknown option \"--cnofig\" (did you mean \"--config\"?); see \"rdmctl import --help\""},
      {{"import", "--config", "c", "--csid", "d", "--explode", "f"},
       "unknown option \"--explode\"; see \"rdmctl import --help\""},
  };
  for (const auto &[words, text] : cases) {
    const Finished finished = run(words);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    EXPECT_EQ(finished.errors, "rdmctl: " + text + "\n");
  }
}

TEST(Usage, TellsItsVersionAndItsOptions) {
  const Finished version = run({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_THAT(version.out, testing::MatchesRegex("rdmctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_EQ(run({"help", "import"}).out, run({"import", "--help"}).out);
  EXPECT_THAT(run({"--help"}).out, HasSubstr("import"));
  const Finished help = run({"import", "--help"});
  EXPECT_EQ(help.status, 0);
  for (const char *word : {"--config", "--csid", "--from", "FILE"}) EXPECT_THAT(help.out, HasSubstr(word));
}

}  // namespace
