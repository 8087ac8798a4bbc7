// SPDX-License-Identifier: MIT
/// Owner, group and mode of replaced files.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "catalog/os/atomic_file.h"
#include "support/environment.h"

using namespace rdm;

namespace {

using support::Finished;

constexpr uid_t owner = 1;
constexpr gid_t group = 2;

struct stat status_of(const std::string &path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  return status;
}

mode_t mode_of(const std::string &path) { return status_of(path).st_mode & 07777; }

/// CountedApart redirects the coverage files of a coverage build, which other users cannot write.
class CountedApart {
 public:
  CountedApart() { EXPECT_EQ(::chmod(directory_.path().c_str(), 0777), 0); }

 private:
  const support::TemporaryDirectory directory_;
  const support::Uncounted uncounted_{directory_.path()};
};

class Ownership : public testing::Test {
 protected:
  Ownership() {
    catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
    catalog_.index();
  }
  Finished update() const { return catalog_.update(rd("http://localhost/2", {{"title", "Two"}})); }

  /// give_away changes owner and group of files of the catalog. It returns false if the caller is not the superuser,
  /// who alone may do so.
  bool give_away(mode_t mode, const std::vector<const char *> &suffixes = {"", ".url", ".idx"}) const {
    const bool is_superuser = ::geteuid() == 0;
    for (const char *suffix : suffixes) {
      EXPECT_EQ(::chown(catalog_.path(suffix).c_str(), owner, group), is_superuser ? 0 : -1);
      if (!is_superuser) {
        EXPECT_EQ(errno, EPERM);
      }
      EXPECT_EQ(::chmod(catalog_.path(suffix).c_str(), mode), 0);
    }
    return is_superuser;
  }

  /// expect_kept runs update and index and compares owner, group and mode of their files.
  void expect_kept(uid_t user, gid_t group_of_files, mode_t mode) const {
    EXPECT_EQ(update().status, 0);
    EXPECT_EQ(catalog_.index().out, "2\n");
    for (const char *suffix : {"", ".url", ".idx"}) {
      const struct stat status = status_of(catalog_.path(suffix));
      EXPECT_EQ(status.st_uid, user) << suffix;
      EXPECT_EQ(status.st_gid, group_of_files) << suffix;
      EXPECT_EQ(mode_of(catalog_.path(suffix)), mode) << suffix;
    }
  }
  void expect_kept_by_caller(mode_t mode) const { expect_kept(::geteuid(), ::getegid(), mode); }

  /// update_as runs an update as a user who may write the directory and is in no other group.
  Finished update_as(uid_t user) const {
    const CountedApart counted_apart;
    EXPECT_EQ(::chown(catalog_.directory().c_str(), user, 0), 0);
    std::vector<std::string> words = catalog_.command({"update"});
    const std::string id = std::to_string(user);
    words.insert(words.begin(), {"/usr/bin/setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"});
    return support::run(words, rd("http://localhost/2", {{"title", "Two"}}));
  }

  CatalogFiles catalog_;
};

TEST_F(Ownership, PermissionsAreKept) {
  for (const mode_t mode : {0600u, 0640u, 0664u}) {
    ASSERT_EQ(::chmod(catalog_.path().c_str(), mode), 0);
    catalog_.run({"rebuild"});
    EXPECT_EQ(mode_of(catalog_.path()), mode);
  }
}

TEST_F(Ownership, AnUnfinishedFileIsOnlyForItsOwner) {
  ASSERT_EQ(::chmod(catalog_.path().c_str(), 0664), 0);
  catalog::AtomicFile snapshot(catalog_.path());
  EXPECT_EQ(mode_of(catalog_.path(".new")), 0600u);
  snapshot.sync();
  EXPECT_EQ(mode_of(catalog_.path(".new")), 0664u);
}

TEST_F(Ownership, ANewFileGetsTheModeOfTheDatabase) {
  ASSERT_EQ(::chmod(catalog_.path().c_str(), 0640), 0);
  for (const char *suffix : {".url", ".idx"}) ASSERT_EQ(::unlink(catalog_.path(suffix).c_str()), 0);
  EXPECT_EQ(update().status, 0);
  EXPECT_EQ(catalog_.index().out, "2\n");
  for (const char *suffix : {".url", ".idx"}) EXPECT_EQ(mode_of(catalog_.path(suffix)), 0640u) << suffix;
}

TEST_F(Ownership, AMaintainerCanHoldAReadOnlyLockFile) {
  ASSERT_EQ(::chmod(catalog_.path(".lock").c_str(), 0444), 0);
  const Finished finished = support::run(support::as_owner(catalog_.command({"rebuild"})));
  EXPECT_EQ(finished.status, 0) << finished.errors;
}

/// FilesOfAnother are files of another user. Unless the caller is the superuser, they stay those of the caller.
class FilesOfAnother : public Ownership {};

TEST_F(FilesOfAnother, KeepTheirOwnerAndGroup) {
  if (!give_away(0640)) return expect_kept_by_caller(0640);
  expect_kept(owner, group, 0640);
}

TEST_F(FilesOfAnother, AreNotReplacedIfTheirGroupMattersAndCannotBeKept) {
  if (!give_away(0640)) return expect_kept_by_caller(0640);
  const auto before = catalog_.records();
  const Finished finished = update_as(owner);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors,
            "minidba: cannot keep the group of " + catalog_.path(".new") + ": Operation not permitted\n");
  EXPECT_EQ(catalog_.records(), before);
  EXPECT_EQ(status_of(catalog_.path()).st_gid, group);
}

TEST_F(FilesOfAnother, BelongToTheMaintainerIfAllMayReadThem) {
  if (!give_away(0644)) return expect_kept_by_caller(0644);
  constexpr uid_t other = 3;
  const Finished finished = update_as(other);
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(status_of(catalog_.path()).st_uid, other);
  EXPECT_EQ(mode_of(catalog_.path()), 0644u);
}

TEST_F(FilesOfAnother, AreNotReplacedIfTheirOwnerCouldNotReadThemAnyMore) {
  if (!give_away(0600, {".idx"})) {
    EXPECT_EQ(catalog_.index().status, 0);
    EXPECT_EQ(status_of(catalog_.path(".idx")).st_uid, ::geteuid());
    EXPECT_EQ(mode_of(catalog_.path(".idx")), 0600u);
    return;
  }
  ASSERT_EQ(::chown(catalog_.path(".idx").c_str(), owner, 0), 0);
  constexpr uid_t other = 3;
  ASSERT_EQ(::chown(catalog_.directory().c_str(), other, 0), 0);
  std::vector<std::string> words = catalog_.command({"-i", catalog_.path(".idx"), "index"});
  words.insert(words.begin(), {"/usr/bin/setpriv", "--reuid=3", "--regid=0", "--clear-groups"});
  const CountedApart counted_apart;
  const Finished finished = support::run(words);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors,
            "minidba: cannot read " + catalog_.path(".idx") +
                ": Permission denied: records are not compared with it\nminidba: cannot keep the owner of " +
                catalog_.path(".idx.new") + ": Operation not permitted\n");
  EXPECT_EQ(status_of(catalog_.path(".idx")).st_uid, owner);
}

}  // namespace
