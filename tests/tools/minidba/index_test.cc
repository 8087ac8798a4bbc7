// SPDX-License-Identifier: MIT
#include <sys/stat.h>
#include <zlib.h>

#include <ctime>
#include <utility>

#include <gtest/gtest.h>
#include <libcs/cs.h>

#include "catalog/catalog_files.h"

using namespace rdm;

namespace {

using support::Finished;

constexpr uint32_t magic = 0x3EB1CA0E;

class Index : public testing::Test {
 protected:
  void put(const std::string &key, const std::string &record) { catalog_.put(key, record); }
  static std::string at(time_t time) {
    char text[64];
    cs_time2str(time, text, sizeof text);
    return text;
  }
  CatalogFiles catalog_;
};

uint32_t checksum(const std::string &record) {
  return static_cast<uint32_t>(crc32_z(0, reinterpret_cast<const unsigned char *>(record.data()), record.size()));
}

TEST_F(Index, IsSortedByTimeAndNumberWithSizesAndChecksums) {
  const std::string late = rd("u1", {{"rd-last-changed", at(3000)}}), early = rd("u2", {{"rd-last-changed", at(1000)}});
  const std::string never = rd("u10", {{"title", "T"}});
  put("00000001", late);
  put("00000002", early);
  put("00000003", late);
  put("0000000a", never);
  const Finished finished = catalog_.index();
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "4\n");
  EXPECT_EQ(finished.errors, "");
  const auto size = [](const std::string &record) { return static_cast<uint32_t>(record.size()); };
  EXPECT_EQ(catalog_.words(), (std::vector<uint32_t>{magic, 4,                                    //
                                                     0,     0, 10, size(never), checksum(never),  //
                                                     1000,  0, 2,  size(early), checksum(early),  //
                                                     3000,  0, 1,  size(late),  checksum(late),   //
                                                     3000,  0, 3,  size(late),  checksum(late)}));
}

TEST_F(Index, IsReplacedAsAWhole) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
  catalog_.index();
  struct stat before, after;
  stat(catalog_.path(".idx").c_str(), &before);
  catalog_.update(rd("http://localhost/2", {{"title", "Two"}}));
  EXPECT_EQ(catalog_.index().out, "2\n");
  stat(catalog_.path(".idx").c_str(), &after);
  EXPECT_NE(before.st_ino, after.st_ino) << "a reader keeps the old file";
}

TEST_F(Index, ReplacesNoFileThatIsNoIndex) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
  const std::string other = catalog_.path(".conf");
  for (const std::string text : {"x", "csid=\"a configuration\"\n"}) {
    support::write_file(other, text);
    for (const std::vector<std::string> &words :
         {std::vector<std::string>{"-i", other, "index"}, {"-i", other, "index", "--dry-run"}}) {
      const Finished finished = support::run(catalog_.command(words));
      EXPECT_EQ(finished.status, 2);
      EXPECT_EQ(finished.out, "");
      EXPECT_EQ(finished.errors, "minidba: index not written: " + other +
                                     " exists and is no index: name another file, or remove it if it is a damaged "
                                     "index\n");
    }
    EXPECT_EQ(support::read_file(other), text);
  }
  EXPECT_EQ(support::run(catalog_.command({"-i", "/dev/null", "index"})).errors,
            "minidba: not a regular file: /dev/null\n");
}

TEST_F(Index, ReplacesAnIndexAndAnEmptyFileOfAnyNameAndAnyFileBesideTheDatabase) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
  catalog_.index();
  const std::string index = support::read_file(catalog_.path(".idx")), other = catalog_.path(".other");
  const std::pair<std::string, std::string> rows[] = {
      {other, index}, {other, ""}, {other, index.substr(0, 10)}, {catalog_.path(".idx"), "damaged"}};
  for (const auto &[file, text] : rows) {
    support::write_file(file, text);
    EXPECT_EQ(support::run(catalog_.command({"-i", file, "index"})).out, "1\n");
    EXPECT_EQ(support::read_file(file), index);
  }
}

TEST_F(Index, ARecordWithANonNumericKeyIsRefused) {
  catalog_.update(rd("http://localhost/1", {{"title", "One"}}));
  catalog_.index();
  const std::string before = support::read_file(catalog_.path(".idx"));
  put("short", rd("http://localhost/3", {{"title", "Three"}}));
  const Finished finished = catalog_.index();
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "minidba: damaged record \"short\" in " + catalog_.path() +
                                 ": its key is not a number (--skip-damaged of minidba leaves it out)\n");
  EXPECT_EQ(support::read_file(catalog_.path(".idx")), before);
}

}  // namespace
