// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/health.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "hosts/rdmd/check/catalog_files.h"
#include "support/files.h"

using namespace rdm;

namespace {

using rdmd::CatalogHealth;
using rdmd::examine;
using rdmd::Health;

const support::Descriptions two = {{1, {"one", 1'794'800'000}}, {2, {"two", 1'794'800'467}}};

class CatalogHealthTest : public ::testing::Test {
 protected:
  void make(const support::Descriptions &descriptions) {
    support::make_database(path_, support::records_of(descriptions));
    support::write_file(path_ + ".idx", support::index_of(descriptions));
  }
  CatalogHealth state() const { return examine({{"c", path_}}).front(); }
  static void set_time(const std::string &path, std::time_t time) {
    const std::array<struct timespec, 2> times = {{{time, 0}, {time, 0}}};
    EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
  }

  support::TemporaryDirectory directory_;
  const std::string path_ = directory_.path("catalog.db");
};

TEST_F(CatalogHealthTest, ASoundCatalogHasItsNumberAndItsNewestChange) {
  make(two);
  const CatalogHealth health = state();
  EXPECT_FALSE(health.failing());
  EXPECT_EQ(health.descriptions, 2u);
  EXPECT_EQ(health.newest_change, 1'794'800'467);
  EXPECT_TRUE(health.notes.empty());
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(health.database->st_ino, status.st_ino);
  EXPECT_EQ(health.database->st_size, status.st_size);
}

TEST_F(CatalogHealthTest, AnIndexOlderThanItsDatabaseIsNoFailure) {
  make(two);
  set_time(path_ + ".idx", 1'000'000);
  set_time(path_, 1'000'001);
  EXPECT_FALSE(state().failing());
  EXPECT_EQ(state().notes, std::vector<std::string>{"the index is older than the database"});
  set_time(path_, 1'000'000);
  EXPECT_TRUE(state().notes.empty()) << "of the same age";
}

TEST_F(CatalogHealthTest, AMissingDatabaseOrIndexIsAFailure) {
  EXPECT_EQ(state().unreadable, (std::vector<std::string>{"index " + path_ + ".idx: No such file or directory",
                                                          "database " + path_ + ": No such file or directory"}));
  make(two);
  std::filesystem::remove(path_);
  EXPECT_EQ(state().unreadable, std::vector<std::string>{"database " + path_ + ": No such file or directory"});
  EXPECT_EQ(state().descriptions, 2u);
  make(two);
  std::filesystem::remove(path_ + ".idx");
  EXPECT_EQ(state().unreadable, std::vector<std::string>{"index " + path_ + ".idx: No such file or directory"});
}

TEST_F(CatalogHealthTest, AnEmptyDatabaseOrIndexIsAFailureButCanBeRead) {
  make({});
  EXPECT_TRUE(state().unreadable.empty());
  EXPECT_EQ(state().empty, (std::vector<std::string>{"index " + path_ + ".idx: has no descriptions",
                                                     "database " + path_ + ": has no records"}));
  EXPECT_TRUE(state().failing());
  EXPECT_EQ(state().descriptions, 0u);
  EXPECT_EQ(state().newest_change, std::nullopt);
  support::make_database(path_, support::records_of(two));
  EXPECT_EQ(state().empty, std::vector<std::string>{"index " + path_ + ".idx: has no descriptions"});
}

TEST_F(CatalogHealthTest, DamagedFilesAreFailures) {
  const std::string index = support::index_of(two);
  const std::pair<std::string, const char *> rows[] = {
      {"", "is no index"},
      {index.substr(0, 7), "is no index"},
      {"x" + index, "is no index"},
      {index.substr(0, index.size() - 1), "is cut"},
      {index.substr(0, 8), "is cut"},
      {support::big_endian(0x3EB1CA0E) + support::big_endian(UINT32_MAX), "is cut"},
  };
  make(two);
  for (const auto &[bytes, reason] : rows) {
    support::write_file(path_ + ".idx", bytes);
    EXPECT_EQ(state().unreadable, std::vector<std::string>{"index " + path_ + ".idx: " + reason}) << bytes.size();
  }
  support::write_file(path_ + ".idx", index);
  for (const std::string &bytes : {std::string(), std::string("text"), std::string(100'000, '\xff')}) {
    support::write_file(path_, bytes);
    EXPECT_EQ(state().unreadable, std::vector<std::string>{"database " + path_ + ": is damaged or no database"});
  }
}

TEST_F(CatalogHealthTest, AFileOfAnotherKindNeverBlocks) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  std::filesystem::create_directory(path_ + ".idx");
  EXPECT_EQ(state().unreadable, (std::vector<std::string>{"index " + path_ + ".idx: Invalid argument",
                                                          "database " + path_ + ": Invalid argument"}));
}

TEST_F(CatalogHealthTest, ATimeThatIsUnknownIsLeftOut) {
  make({{1, {"one", 0}}});
  EXPECT_FALSE(state().failing());
  EXPECT_EQ(state().newest_change, std::nullopt);
}

TEST_F(CatalogHealthTest, ACatalogWithoutADatabaseIsNoFailure) {
  const Health health = examine({{"c", ""}});
  EXPECT_FALSE(is_failing(health));
  EXPECT_EQ(health_json(health),
            "{\n  \"status\": \"ok\",\n  \"catalogs\": [\n    {\n      \"csid\": \"c\",\n      \"status\": \"ok\",\n"
            "      \"notes\": [\n        \"has no database\"\n      ]\n    }\n  ]\n}\n");
}

TEST_F(CatalogHealthTest, OneFailingCatalogMakesTheWholeFail) {
  make(two);
  const Health health = examine({{"sound", path_}, {"gone\xff", directory_.path("gone.db")}});
  EXPECT_TRUE(is_failing(health));
  EXPECT_EQ(describe_unreadable(health), "gone\xff: index " + directory_.path("gone.db.idx") +
                                             ": No such file or directory\n" + "gone\xff: database " +
                                             directory_.path("gone.db") + ": No such file or directory\n");
  const auto object = nlohmann::json::parse(health_json(health));
  EXPECT_EQ(object["status"], "failing");
  EXPECT_EQ(object["catalogs"][0]["status"], "ok");
  EXPECT_EQ(object["catalogs"][0]["descriptions"], 2);
  EXPECT_EQ(object["catalogs"][0]["newest_change"], "2026-11-16T03:41:07Z");
  EXPECT_EQ(object["catalogs"][1]["status"], "failing");
  EXPECT_EQ(object["catalogs"][1]["failures"].size(), 2u);
  const auto figures = figures_of(health);
  EXPECT_EQ(figures[0].descriptions, 2u);
  EXPECT_FALSE(figures[0].failing);
  EXPECT_TRUE(figures[1].failing);
}

TEST(ConfiguredCatalogs, AreThoseThatTheServiceTakes) {
  const support::TemporaryDirectory directory;
  const std::string list = directory.write("csid.conf",
                                           "catalog-database=\"lost\"\n# csid=\"remark\"\n"
                                           "csid=\"a\"\ncatalog-database=\"a.db\" catalog-database=\"other.db\"\n"
                                           "csid=\"b\"\n"
                                           "csid=\"a\" catalog-database=\"second.db\"\n");
  const auto catalogs = check::configured_catalogs(directory.write("rdm.conf", "csid-config=\"" + list + "\"\n"));
  ASSERT_EQ(catalogs.size(), 2u);
  EXPECT_EQ(catalogs[0].csid, "a");
  EXPECT_EQ(catalogs[0].database, "a.db");
  EXPECT_EQ(catalogs[1].csid, "b");
  EXPECT_EQ(catalogs[1].database, "");
  EXPECT_TRUE(check::configured_catalogs(directory.path("nowhere")).empty());
}

}  // namespace
