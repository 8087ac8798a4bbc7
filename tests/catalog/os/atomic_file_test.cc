// SPDX-License-Identifier: MIT
/// Several processes that replace the same file.
#include "catalog/os/atomic_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "catalog/os/error.h"

using namespace rdm;

namespace {

using catalog::AtomicFile;
using support::Finished;
using testing::ElementsAre;

const std::string malformed = "@D { http://localhost/2\ntitle{3}:Two\n}\n";

class AtomicFiles : public testing::Test {
 protected:
  AtomicFiles() { catalog_.update(rd("http://localhost/1", {{"title", "One"}})); }

  static void expect_refused(const Finished &finished, const std::string &message) {
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_THAT(finished.errors, testing::EndsWith("minidba: " + message + "\n"));
  }

  CatalogFiles catalog_, other_;
  const std::string file_ = other_.path(".soif");
};

TEST_F(AtomicFiles, ASecondExportToTheSameFileIsRefused) {
  AtomicFile first(file_);
  first.file().write_at(0, "the first");
  expect_refused(catalog_.run({"export", file_}), "another process is writing " + file_ + ".new");
  first.sync();
  first.commit();
  EXPECT_EQ(support::read_file(file_), "the first");
  EXPECT_EQ(catalog_.run({"export", file_}).status, 0);
  EXPECT_EQ(support::read_file(file_), catalog_.run({"export"}).out);
}

TEST_F(AtomicFiles, ARejectsFileIsNotSharedByTwoCatalogsAtATime) {
  const AtomicFile first(file_);
  const auto before = catalog_.records();
  expect_refused(
      catalog_.run({"update", "--rejects", file_}, rd("http://localhost/3", {{"title", "Three"}}) + malformed),
      "another process is writing " + file_ + ".new");
  EXPECT_EQ(catalog_.records(), before);
  EXPECT_THAT(other_.files(), ElementsAre("catalog.db.soif.new")) << "the first goes on";
}

TEST_F(AtomicFiles, ALeftoverOfAKilledProcessIsReplaced) {
  support::write_file(file_ + ".new", std::string(100'000, 'x'));
  EXPECT_EQ(catalog_.run({"export", file_}).status, 0);
  EXPECT_EQ(support::read_file(file_), catalog_.run({"export"}).out);
  EXPECT_THAT(other_.files(), ElementsAre("catalog.db.soif"));
}

TEST_F(AtomicFiles, ALinkInThePlaceOfTheNextStateIsNotFollowed) {
  support::write_file(other_.path(), "precious");
  std::filesystem::create_symlink(other_.path(), file_ + ".new");
  EXPECT_EQ(catalog_.run({"export", file_}).status, 0);
  EXPECT_EQ(support::read_file(other_.path()), "precious");
  EXPECT_EQ(support::read_file(file_), catalog_.run({"export"}).out);
}

TEST_F(AtomicFiles, ACommitRefusesAForeignNewFile) {
  support::write_file(file_, "before");
  {
    AtomicFile file(file_);
    ASSERT_EQ(::unlink((file_ + ".new").c_str()), 0);
    support::write_file(file_ + ".new", "of another");
    EXPECT_THROW(file.commit(), catalog::Failure);
  }
  EXPECT_EQ(support::read_file(file_), "before");
  EXPECT_EQ(support::read_file(file_ + ".new"), "of another");
}

}  // namespace
