// SPDX-License-Identifier: MIT
/// The checks of scripts/release, in a small repository with the files that they read.

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

namespace {

namespace fs = std::filesystem;

using ::testing::EndsWith;
using ::testing::HasSubstr;

class Release : public ::testing::Test {
 protected:
  Release() {
    for (const char *file : {"scripts/release", "scripts/common.sh", "scripts/debian.sh", "CMakeLists.txt",
                             "CHANGELOG.md", "debian/changelog", "qxapi/CMakeLists.txt", "libcs/CMakeLists.txt",
                             "dba/CMakeLists.txt", "service/CMakeLists.txt", "tests/abi"})
      copy(file);
    date_changes();
    git({"init", "--quiet", "--initial-branch=main"});
    commit();
  }

  std::string file(const std::string &name) const { return directory_.path(name); }

  /// change replaces a text that must be in the file.
  void change(const std::string &name, const std::string &from, const std::string &to) {
    std::string text = support::read_file(file(name));
    const std::size_t at = text.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    support::write_file(file(name), text.replace(at, from.size(), to));
  }

  /// date_changes gives the newest section of the changes a date, whether or not it has one in the source.
  void date_changes() {
    const std::regex heading("\n## ([0-9.]+) \\([^)]*\\)");
    const std::string text = support::read_file(file("CHANGELOG.md"));
    support::write_file(file("CHANGELOG.md"), std::regex_replace(text, heading, "\n## $1 (2026-12-01)",
                                                                 std::regex_constants::format_first_only));
  }

  void commit() {
    git({"add", "--all"});
    git({"-c", "user.name=Ada", "-c", "user.email=ada@localhost", "commit", "--quiet", "--message=change"});
  }

  /// release makes the present state the last release, and raises the version.
  void release() {
    git({"tag", "v" VERSION});
    change("CMakeLists.txt", "VERSION " VERSION, "VERSION 99.0.0");
    change("debian/changelog", "(" VERSION ")", "(99.0.0)");
    change("CHANGELOG.md", "## " VERSION, "## 99.0.0");
    commit();
  }

  support::Finished check() { return support::run({"/bin/sh", file("scripts/release"), "--check"}); }

 private:
  void copy(const std::string &name) {
    fs::create_directories(fs::path(file(name)).parent_path());
    fs::copy(support::in_source(name), file(name), fs::copy_options::recursive);
  }

  void git(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {GIT, "-C", file("")});
    const support::Finished done = support::run(arguments);
    ASSERT_EQ(done.status, 0) << done.errors;
  }

  support::TemporaryDirectory directory_;
};

constexpr const char *function = "<elf-symbol name='dba_open'";
constexpr const char *another = "<elf-symbol name='dba_opened'";

TEST_F(Release, ACompleteTreeIsAccepted) {
  const support::Finished checked = check();
  EXPECT_EQ(checked.errors, "there is no release yet to compare the libraries with\n");
  EXPECT_EQ(checked.status, 0);
}

TEST_F(Release, EverythingIsCommitted) {
  support::write_file(file("left"), "");
  EXPECT_EQ(check().errors, "release: something is not committed\n");
}

TEST_F(Release, AVersionIsReleasedOnce) {
  release();
  change("CMakeLists.txt", "VERSION 99.0.0", "VERSION " VERSION);
  commit();
  EXPECT_EQ(check().errors, "release: version " VERSION
                            " is released; raise it in CMakeLists.txt, debian/changelog and CHANGELOG.md\n");
}

TEST_F(Release, VersionsAgree) {
  change("debian/changelog", "(" VERSION ")", "(99.0.0)");
  commit();
  EXPECT_EQ(check().errors, "release: debian/changelog has the version 99.0.0, not " VERSION "\n");
}

TEST_F(Release, ChangesHaveADate) {
  change("CHANGELOG.md", " (2026-12-01)", " (unreleased)");
  commit();
  EXPECT_EQ(check().errors, "release: CHANGELOG.md begins with '## " VERSION " (unreleased)' instead of '## " VERSION
                            " (YEAR-MONTH-DAY)'\n");
}

TEST_F(Release, UnchangedLibrariesKeepTheirVersions) {
  release();
  EXPECT_EQ(check().errors, "the libraries are compatible with v" VERSION "\n");
  EXPECT_EQ(check().status, 0);
}

TEST_F(Release, ALibraryThatBreaksProgramsNeedsAnotherSoname) {
  release();
  change("tests/abi/snapshots/libdba.xml", function, another);
  commit();
  const support::Finished checked = check();
  EXPECT_THAT(checked.errors, HasSubstr("dba_open@@LIBDBA_1"));
  EXPECT_THAT(checked.errors,
              EndsWith("release: libdba 1.0.0 breaks programs that were built with 1.0.0; raise the first "
                       "number\n"));
  EXPECT_EQ(checked.status, 1);
}

TEST_F(Release, AnAdditionRaisesTheSecondNumber) {
  change("tests/abi/snapshots/libdba.xml", function,
         std::string(another) +
             " version='LIBDBA_1' is-default-version='yes' "
             "type='func-type' binding='global-binding' visibility='default-visibility' is-defined='yes'/>\n    " +
             function);
  const std::string added = support::read_file(file("tests/abi/snapshots/libdba.xml"));
  fs::copy(support::in_source("tests/abi/snapshots/libdba.xml"), file("tests/abi/snapshots/libdba.xml"),
           fs::copy_options::overwrite_existing);
  release();
  support::write_file(file("tests/abi/snapshots/libdba.xml"), added);
  commit();
  EXPECT_THAT(check().errors, EndsWith("release: libdba has more than 1.0.0 had; raise the second number of 1.0.0\n"));
  change("dba/CMakeLists.txt", "VERSION 1.0.0", "VERSION 1.1.0");
  commit();
  EXPECT_EQ(check().status, 0);
}

}  // namespace
