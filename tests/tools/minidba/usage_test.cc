// SPDX-License-Identifier: MIT
#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "support/directories.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;

const std::string program = support::in_build("bin/minidba");
const std::string verbs =
    "one of update, expire, index, unclassified, get, list, delete, stats, verify, rebuild, export, salvage, import";

Finished shell(const std::string &command) { return support::run({"/bin/sh", "-c", command}); }

class Usage : public testing::Test {
 protected:
  /// expect_failure asserts exit status 2, one line on standard error and nothing on standard output.
  void expect_failure(const std::vector<std::string> &words, const std::string &text) {
    std::vector<std::string> arguments{program};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const Finished finished = support::run(arguments);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    EXPECT_EQ(finished.errors, "minidba: " + text + "\n");
  }
  CatalogFiles catalog_;
};

TEST_F(Usage, ReportsMissingAndUnknownArguments) {
  const std::string db = catalog_.path();
  const std::string see = "; see \"minidba --help\"", see_update = "; see \"minidba update --help\"";
  expect_failure({}, "a verb is required: " + verbs + see);
  expect_failure({"update"}, "--database is required" + see_update);
  expect_failure({"-d", db}, "a verb is required: " + verbs + see);
  expect_failure({"explode"}, "unknown verb \"explode\": not " + verbs + see);
  expect_failure({"-d", db, "explode"}, "unknown verb \"explode\": not " + verbs + see);
  expect_failure({"help", "explode"}, "unknown verb \"explode\": not " + verbs + see);
  expect_failure({"-d", db, "expire", "explode"}, "unexpected argument \"explode\"; see \"minidba expire --help\"");
  expect_failure({"-d", db, "import", "one", "two"},
                 "FILE: At Most 1 required but received 2; see \"minidba import --help\"");
  expect_failure({"-d", db, "--explode", "update"}, "unknown option \"--explode\"" + see_update);
  expect_failure({"-d", db, "-d", db, "update"}, "--database: At Most 1 required but received 2" + see_update);
  expect_failure({"-d", db, "index"}, "--index is required; see \"minidba index --help\"");
  for (const std::string verb : {"get", "delete"})
    expect_failure({"-d", db, verb}, "NUMBER|URL is required; see \"minidba " + verb + " --help\"");
  for (const char *seconds : {"-1", "soon", "1x", "nan"})
    expect_failure({"-d", db, "update", "--wait", seconds},
                   "--wait: not a number of seconds: " + std::string(seconds) + see_update);
  expect_failure({"-d", db, "-i", db, "index"}, "database and index are the same file: " + db);
  EXPECT_TRUE(catalog_.files().empty());
}

TEST_F(Usage, SuggestsCorrectionsOfMistypedWords) {
  const std::string db = catalog_.path();
  expect_failure({"updtae"}, "unknown verb \"updtae\" (did you mean \"update\"?); see \"minidba --help\"");
  expect_failure({"help", "exprot"}, "unknown verb \"exprot\" (did you mean \"export\"?); see \"minidba --help\"");
  expect_failure({"-d", db, "update", "--rejcts=f"},
                 "unknown option \"--rejcts\" (did you mean \"--rejects\"?); see \"minidba update --help\"");
  expect_failure({"--databse", db, "expire"},
                 "unknown option \"--databse\" (did you mean \"--database\"?); see \"minidba expire --help\"");
  expect_failure({"-d", db, "--wait", "0", "expire"},
                 "option \"--wait\" must follow the verb; see \"minidba expire --help\"");
}

// Regression: without DAY, `list --since "$DAY"` listed all; without FILE, `update --rejects "$FILE"` kept no rejected
// object.
TEST_F(Usage, RefusesEmptyOptionValues) {
  catalog_.make_empty();
  const std::string db = catalog_.path();
  const struct {
    std::vector<std::string> words;
    std::string error;
  } rows[] = {
      {{"list", "--since", ""}, "--since: must not be empty; see \"minidba list --help\""},
      {{"list", "--since="}, "--since: 1 required TIME missing; see \"minidba list --help\""},
      {{"update", "--rejects", ""}, "--rejects: must not be empty; see \"minidba update --help\""},
      {{"import", "--rejects", ""}, "--rejects: must not be empty; see \"minidba import --help\""},
      {{"verify", "-i", ""}, "--index: must not be empty; see \"minidba verify --help\""},
      {{"export", ""}, "FILE: must not be empty; see \"minidba export --help\""},
      {{"salvage", ""}, "FILE: must not be empty; see \"minidba salvage --help\""},
      {{"list", "--since", " "},
       "--since: not a time:  ; write 2026-11-01, 2026-11-01T12:00:00Z, \"1 Nov 2026 12:00:00 "
       "GMT\", @1793534400, yesterday or \"3 days ago\""},
  };
  for (const auto &row : rows) {
    std::vector<std::string> words{"-d", db};
    words.insert(words.end(), row.words.begin(), row.words.end());
    expect_failure(words, row.error);
  }
}

TEST_F(Usage, OptionsStandBeforeOrAfterTheVerb) {
  const Finished finished =
      support::run({program, "update", "--json", "-d", catalog_.path()}, rd("http://localhost/1", {{"title", "One"}}));
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(catalog_.files().front(), "catalog.db");
}

TEST_F(Usage, AnOutputThatCannotBeWrittenIsAnError) {
  catalog_.make_empty();
  const std::string index = " -d " + catalog_.path() + " -i " + catalog_.path(".idx") + " index";
  const struct {
    std::string command, errors;
  } rows[] = {
      {program + index + " >/dev/full", "minidba: cannot write to standard output: No space left on device\n"},
      {program + index + " >&-", "minidba: cannot write to standard output: Bad file descriptor\n"},
      {program + " --help >/dev/full", "minidba: cannot write to standard output: No space left on device\n"},
  };
  for (const auto &row : rows) {
    const Finished finished = shell(row.command);
    EXPECT_EQ(finished.errors, row.errors) << row.command;
    if (row.command.find('|') == std::string::npos) {
      EXPECT_EQ(finished.status, 2) << row.command;
    }
  }
}

// "minidba list | head" writes no message about the closed pipe, but the exit status is not 0.
TEST_F(Usage, AClosedPipeEndsTheProgramWithoutAMessage) {
  std::string stream;
  for (int i = 0; i < 2000; ++i)
    stream += rd("http://localhost/" + std::to_string(i), {{"body", std::string(200, 'b')}});
  ASSERT_EQ(catalog_.update(stream).out, "2000\n");
  const std::string database = program + " -d " + catalog_.path() + " ", pipe = catalog_.path(".pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  // A pipe for writing, whose only reader is closed.
  const std::string closed = "exec 3<>" + pipe + " 4>" + pipe + " 3>&-; ";
  for (const std::string &verb :
       std::vector<std::string>{"list", "export", "get 1", "-i " + catalog_.path(".idx") + " index"})
    EXPECT_EQ(shell(closed + database + verb + " >&4; echo $? >&2").errors, "141\n") << verb;
  const Finished first = shell(database + "list | head -n 1");
  EXPECT_EQ(first.out, "@DOCUMENT { http://localhost/0\n");
  EXPECT_EQ(first.errors, "");
}

TEST_F(Usage, NoFileOfTheCatalogTakesThePlaceOfAClosedStream) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
  const auto before = catalog_.records();
  const Finished finished = shell(catalog_.shell_command("update") + " <&- >&- 2>&-");
  EXPECT_EQ(finished.status, 2) << "an input that is closed cannot be read";
  EXPECT_EQ(catalog_.records(), before);
}

TEST_F(Usage, NamesTheLockThatItCannotCreate) {
  expect_failure({"-d", "/nonexistent/catalog.db", "update"},
                 "cannot lock /nonexistent/catalog.db.lock: No such file or directory");
}

TEST_F(Usage, NamesTheFileThatIsNotADatabase) {
  for (const std::string &text : {std::string(), std::string("not a database"), std::string(70000, '\0')}) {
    support::write_file(catalog_.path(), text);
    for (const char *verb : {"update", "expire", "index"})
      expect_failure({"-d", catalog_.path(), "-i", catalog_.path(".idx"), verb},
                     "not a sound hash database: " + catalog_.path());
    EXPECT_EQ(support::read_file(catalog_.path()), text);
  }
}

TEST_F(Usage, HelpAndVersionSucceed) {
  for (const std::vector<std::string> &words : {std::vector<std::string>{"--help"},
                                                {"-h"},
                                                {"--version"},
                                                {"update", "--help"},
                                                {"index", "-h"},
                                                {"help"},
                                                {"help", "update"}}) {
    std::vector<std::string> arguments{program};
    arguments.insert(arguments.end(), words.begin(), words.end());
    const Finished finished = support::run(arguments);
    EXPECT_EQ(finished.status, 0) << words[0];
    EXPECT_NE(finished.out, "") << words[0];
    EXPECT_EQ(finished.errors, "") << words[0];
  }
}

TEST_F(Usage, TheVerbHelpShowsTheSame) {
  EXPECT_EQ(support::run({program, "help"}).out, support::run({program, "--help"}).out);
  EXPECT_EQ(support::run({program, "help", "delete"}).out, support::run({program, "delete", "--help"}).out);
}

TEST_F(Usage, TheHelpOfAVerbNamesItsOptionsAndTheCommonOnes) {
  const std::string help = support::run({program, "index", "--help"}).out;
  for (const char *text : {"Usage: minidba -d FILE index [OPTIONS]", "write the index", "--dry-run",
                           "-d,--database FILE", "-i,--index FILE", "--json", "--quiet"})
    EXPECT_THAT(help, HasSubstr(text));
}

}  // namespace
