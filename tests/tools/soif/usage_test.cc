// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

const std::string program = support::in_build("bin/soif");

Finished run(std::vector<std::string> words, const std::string &input = "") {
  words.insert(words.begin(), program);
  return support::run(words, input);
}

TEST(SoifUsage, ReportsMistakes) {
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"chek"}, "unknown verb \"chek\" (did you mean \"check\"?); see \"soif --help\""},
      {{"fmt", "a", "b"}, "FILE: At Most 1 required but received 2; see \"soif fmt --help\""},
      {{"fmt", "--rejects", ""}, "--rejects: must not be empty; see \"soif fmt --help\""},
      {{"fmt", "-o", "/x/a", "--rejects", "/x/a"}, "--output and --rejects are the same file: /x/a"},
      {{"from", "oai-dc", "--rejects", "/x/a", "--deletions", "/x/a.new"},
       "new --rejects and --deletions are the same file: /x/a.new"},
      {{"from", "json", "--map", "/x/a", "-o", "/x/a"}, "--output and --map are the same file: /x/a"},
      {{"check", "--outptu"}, "unknown option \"--outptu\"; see \"soif check --help\""},
  };
  for (const auto &[words, text] : rows) {
    const Finished finished = run(words);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    EXPECT_EQ(finished.errors, "soif: " + text + "\n");
  }
}

TEST(SoifUsage, HelpNamesTheManualPage) {
  EXPECT_THAT(run({"--help"}).out, HasSubstr("soif(1) about them all"));
  EXPECT_EQ(run({"help", "fmt"}).out, run({"fmt", "--help"}).out);
}

TEST(SoifUsage, ReadsAndWritesStandardStreams) {
  const std::string object = "@F { u\na{1}:\tx\n}\n";
  const Finished finished = run({"fmt", "-"}, object);
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out, object);
}

TEST(SoifUsage, AnOutputThatCannotBeWrittenIsAnError) {
  const support::TemporaryDirectory directory;
  const std::string file = directory.write("file", "@F { u\na{1}:\tx\n}\n");
  const Finished full = support::run({"/bin/sh", "-c", program + " fmt " + file + " >/dev/full"});
  EXPECT_EQ(full.status, 2);
  EXPECT_EQ(full.errors, "soif: cannot write to standard output: No space left on device\n");
  EXPECT_EQ(run({"fmt", file, "-o", "/nonexistent/file"}).status, 2);
  EXPECT_EQ(run({"fmt", file, "--rejects", "/nonexistent/file"}).status, 2);
}

}  // namespace
