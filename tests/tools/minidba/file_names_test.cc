// SPDX-License-Identifier: MIT
/// Files that a command line names.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::ElementsAre;

const std::string stream = rd("http://localhost/1", {{"title", "One"}});

class FileNames : public testing::Test {
 protected:
  FileNames() { catalog_.update(stream); }

  void expect_refused(const std::vector<std::string> &words, const std::string &text) {
    const auto before = catalog_.files();
    const Finished finished = support::run(catalog_.command(words), stream);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    EXPECT_EQ(finished.errors, "minidba: " + text + "\n");
    EXPECT_EQ(catalog_.files(), before) << text;
    EXPECT_EQ(support::run(catalog_.command({"verify"})).status, 0) << text;
  }

  CatalogFiles catalog_;
};

TEST_F(FileNames, NoneIsThatOfAFileThatBelongsToTheDatabase) {
  const struct {
    const char *suffix, *purpose;
  } rows[] = {{".url", "URL map"}, {".lock", "lock"}, {".new", "new database"}, {".url.new", "new URL map"}};
  for (const auto &[suffix, purpose] : rows) {
    const std::string file = catalog_.path(suffix);
    expect_refused({"-i", file, "index"}, std::string(purpose) + " and index are the same file: " + file);
    expect_refused({"export", file}, std::string(purpose) + " and export are the same file: " + file);
    expect_refused({"update", "--rejects", file}, std::string(purpose) + " and rejects are the same file: " + file);
  }
  const std::string index = catalog_.path(".idx");
  expect_refused({"export", index}, "index and export are the same file: " + index);
  expect_refused({"export", index + ".new"}, "new index and export are the same file: " + index + ".new");
}

TEST_F(FileNames, AreComparedAfterResolution) {
  const std::string other = catalog_.directory() + "/./catalog.db.new";
  expect_refused({"export", other}, "new database and export are the same file: " + other);
  expect_refused({"export", catalog_.directory() + "/./catalog.db"},
                 "database and export are the same file: " + catalog_.directory() + "/./catalog.db");
}

/// A database behind a symbolic link in another directory.
class LinkedDatabase : public FileNames {
 protected:
  LinkedDatabase() { std::filesystem::create_symlink(catalog_.path(), links_.path()); }
  CatalogFiles links_;
};

TEST_F(LinkedDatabase, StandsForTheFileItself) {
  const Finished finished = links_.update(rd("http://localhost/2", {{"title", "Two"}}));
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_TRUE(std::filesystem::is_symlink(links_.path()));
  EXPECT_THAT(links_.files(), ElementsAre("catalog.db"));
  EXPECT_EQ(catalog_.records().size(), 2u);
  EXPECT_EQ(support::run(catalog_.command({"verify"})).out, "sound: 2 descriptions, no index\n");
}

TEST_F(LinkedDatabase, HasItsIndexNextToTheLink) {
  EXPECT_EQ(links_.index().out, "1\n");
  EXPECT_THAT(links_.files(), ElementsAre("catalog.db", "catalog.db.idx"));
  std::filesystem::rename(links_.path(".idx"), catalog_.path(".idx"));
  std::filesystem::create_symlink(catalog_.path(".idx"), links_.path(".idx"));
  catalog_.update(rd("http://localhost/2", {{"title", "Two"}}));
  EXPECT_EQ(links_.index().out, "2\n");
  EXPECT_TRUE(std::filesystem::is_symlink(links_.path(".idx")));
  EXPECT_EQ(support::run(catalog_.command({"verify"})).out, "sound: 2 descriptions, 2 index entries\n");
}

TEST_F(LinkedDatabase, MustLeadSomewhere) {
  std::filesystem::remove(catalog_.path());
  const Finished finished = links_.update(stream);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: cannot follow the link " + links_.path() + ": No such file or directory\n");
  EXPECT_TRUE(std::filesystem::is_symlink(links_.path()));
}

}  // namespace
