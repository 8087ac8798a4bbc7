// SPDX-License-Identifier: MIT
/// The verb edit.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "support/directories.h"
#include "support/environment.h"
#include "tools/soif/run_soif.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::HasSubstr;
using testing::StartsWith;

const std::string url = "http://a/1";

/// SoifEdit is a catalog with one description, and an editor that is a shell command for the file "$1".
class SoifEdit : public testing::Test {
 protected:
  SoifEdit() { catalog_.update("@F { http://a/1\ntitle{3}:\tOne\nauthor{1}:\tA\n}\n"); }

  Finished edit(const std::string &command, std::vector<std::string> more = {}) const {
    const std::string script = scripts_.write("editor", command);
    const support::Environment editor("EDITOR", ("/bin/sh " + script).c_str());
    const support::Environment directory("TMPDIR", temporary_.path().c_str());
    std::vector<std::string> words{"edit", catalog_.path(), url};
    words.insert(words.end(), more.begin(), more.end());
    return run_soif(words);
  }
  std::string record() const { return catalog_.records().begin()->second; }
  /// kept returns the text that was kept, or an empty one.
  std::string kept() const {
    return support::run({"/bin/sh", "-c", "cat " + temporary_.path() + "/soif-*.soif 2>/dev/null"}).out;
  }

  CatalogFiles catalog_;
  support::TemporaryDirectory scripts_, temporary_;
};

TEST_F(SoifEdit, ChangesADescriptionAndCountsItsBytes) {
  const std::string before = CatalogFiles::value(record(), "rd-last-changed");
  const Finished finished = edit("grep -c rd-last-changed $1; sed -i s/One/Another/ $1");
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.errors, "soif: http://a/1 is changed\n");
  EXPECT_EQ(CatalogFiles::value(record(), "title"), "Another");
  EXPECT_EQ(CatalogFiles::value(record(), "author"), "A");
  EXPECT_NE(CatalogFiles::value(record(), "rd-last-changed"), before) << "times of change never repeat";
  EXPECT_THAT(catalog_.files(), testing::Not(testing::Contains("catalog.db.idx")));
  EXPECT_EQ(kept(), "");
}

TEST_F(SoifEdit, ChangesTheIndexIfThereIsOne) {
  catalog_.index();
  const std::vector<uint32_t> before = catalog_.words();
  EXPECT_EQ(edit("sed -i s/One/Another/ $1", {"--json"}).out, "{\"verb\":\"edit\",\"changed\":1}\n");
  EXPECT_NE(catalog_.words(), before);
  EXPECT_EQ(catalog_.run({"verify"}).status, 0);
}

TEST_F(SoifEdit, LeavesAnUnchangedDescriptionAlone) {
  const std::string before = record();
  for (const char *command : {"true", "sed -i 's/title{3}/title{9}/' $1"}) {
    const Finished finished = edit(command);
    EXPECT_EQ(finished.status, 0) << command;
    EXPECT_EQ(finished.errors, "soif: http://a/1 is unchanged\n") << command;
    EXPECT_EQ(record(), before) << command;
  }
  EXPECT_EQ(kept(), "");
}

TEST_F(SoifEdit, KeepsATextThatCannotBeStored) {
  const std::string before = record();
  const std::pair<const char *, const char *> rows[] = {
      {"echo lost >>$1", ":5:1: this text belongs to no object; the text is kept in "},
      {"cat $1 >>$1.2; cat $1 $1.2 >$1.3; mv $1.3 $1", ":5:1: a second description; the text is kept in "},
      {"sed -i s/@F/@RDMHEADER/ $1", ": the header of a message is no description; the text is kept in "},
      {"sed -i s,a/1,a/2, $1", ": the URL has changed to http://a/2; the text is kept in "},
      {"echo >$1", " has no description; the text is kept in "},
      {"echo >$1; exit 3", "/editor ended with status 3; the text is kept in "},
      {"echo >$1; kill -9 $PPID", "/editor was ended by signal 9; the text is kept in "},
  };
  for (const auto &[command, error] : rows) {
    const Finished finished = edit(command);
    EXPECT_EQ(finished.status, 2) << command;
    EXPECT_THAT(finished.errors, HasSubstr(error)) << command;
    EXPECT_THAT(finished.errors, HasSubstr("the text is kept in " + temporary_.path() + "/soif-")) << command;
    EXPECT_NE(kept(), "") << command;
    EXPECT_EQ(record(), before) << command;
    support::run({"/bin/sh", "-c", "rm " + temporary_.path() + "/*"});
  }
}

TEST_F(SoifEdit, DoesNotUndoTheChangeOfAnotherProgram) {
  const std::string other = "@F { http://a/1\ntitle{5}:\tOther\n}\n";
  const std::string file = scripts_.write("other", other);
  const Finished finished = edit("sed -i s/One/Mine/ $1; " + catalog_.shell_command("update") + " " + file);
  EXPECT_EQ(finished.status, 2);
  EXPECT_THAT(finished.errors,
              HasSubstr("another program has changed the description meanwhile; the text is kept in "));
  EXPECT_EQ(CatalogFiles::value(record(), "title"), "Other");
  EXPECT_THAT(kept(), HasSubstr("Mine"));
}

TEST_F(SoifEdit, ReportsWhatIsMissing) {
  EXPECT_EQ(run_soif({"edit", catalog_.path(), "http://none/"}).errors,
            "soif: no description of http://none/ in " + catalog_.path() + "\n");
  EXPECT_EQ(run_soif({"edit", "/nonexistent", url}).status, 2);
  const Finished failed = edit("exit 1");
  EXPECT_EQ(failed.status, 2);
  EXPECT_THAT(failed.errors, HasSubstr("/editor ended with status 1\n"));
  EXPECT_EQ(kept(), "");
  const support::Environment directory("TMPDIR", "/nonexistent");
  EXPECT_THAT(run_soif({"edit", catalog_.path(), url}).errors,
              StartsWith("soif: cannot create a file in /nonexistent: No such file or directory\n"));
}

TEST_F(SoifEdit, FollowsALinkToTheDatabase) {
  const std::string link = scripts_.path("link");
  support::run({"/bin/ln", "-s", catalog_.path(), link});
  const std::string script = scripts_.write("editor", "sed -i s/One/Two/ $1");
  const support::Environment editor("EDITOR", ("/bin/sh " + script).c_str());
  EXPECT_EQ(run_soif({"edit", link, url}).status, 0);
  EXPECT_EQ(CatalogFiles::value(record(), "title"), "Two");
}

}  // namespace
